#include "menubar/menu_bar_part.h"

namespace pulsebar {

MenuBarPart MenuBarPart::makeText(const QString& text, const QString& widthTemplate)
{
    MenuBarPart p;
    p.kind = Kind::text;
    p.text = text;
    p.widthTemplate = widthTemplate;
    return p;
}

MenuBarPart MenuBarPart::makeStacked(const QString& top, const QString& bottom, const QString& widthTemplate)
{
    MenuBarPart p;
    p.kind = Kind::stacked;
    p.text = top;
    p.bottom = bottom;
    p.widthTemplate = widthTemplate;
    return p;
}

MenuBarPart MenuBarPart::makeGraph(std::vector<double> fractions, PartColor color)
{
    MenuBarPart p;
    p.kind = Kind::graph;
    p.values = std::move(fractions);
    p.color = color;
    return p;
}

MenuBarPart MenuBarPart::makeMirrored(std::vector<double> upper, std::vector<double> lower)
{
    MenuBarPart p;
    p.kind = Kind::mirrored;
    p.values = std::move(upper);
    p.lowerValues = std::move(lower);
    return p;
}

MenuBarPart MenuBarPart::makeBar(double fraction, PartColor color)
{
    MenuBarPart p;
    p.kind = Kind::bar;
    p.fraction = fraction;
    p.color = color;
    return p;
}

MenuBarPart MenuBarPart::makeSymbol(const QString& name, bool multicolor)
{
    MenuBarPart p;
    p.kind = Kind::symbol;
    p.text = name;
    p.flag = multicolor;
    return p;
}

MenuBarPart MenuBarPart::makeBattery(double fraction, bool charging)
{
    MenuBarPart p;
    p.kind = Kind::battery;
    p.fraction = fraction;
    p.flag = charging;
    return p;
}

MenuBarPart MenuBarPart::makeAppGlyph()
{
    MenuBarPart p;
    p.kind = Kind::appGlyph;
    return p;
}

} // namespace pulsebar
