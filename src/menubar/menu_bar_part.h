#pragma once

#include <QColor>
#include <QString>

#include <vector>

namespace pulsebar {

// The colours a part may ask for; the renderer maps each to the desktop's shade of it.
enum class PartColor { foreground, blue, green, yellow, red, orange, purple };

// One drawable piece of a menu-bar item. Only the fields of the part's kind carry meaning.
struct MenuBarPart {
    enum class Kind { text, stacked, graph, mirrored, bar, symbol, battery, appGlyph };

    Kind kind = Kind::text;
    QString text;          // text: the line; stacked: the top line; symbol: the symbol name
    QString bottom;        // stacked: the bottom line
    QString widthTemplate; // text, stacked: the widest text the part normally takes
    std::vector<double> values;      // graph: fractions; mirrored: the upper fractions
    std::vector<double> lowerValues; // mirrored: the lower fractions
    double fraction = 0;   // bar, battery
    PartColor color = PartColor::foreground;
    bool flag = false;     // symbol: multicolour; battery: charging

    static MenuBarPart makeText(const QString& text, const QString& widthTemplate);
    static MenuBarPart makeStacked(const QString& top, const QString& bottom, const QString& widthTemplate);
    static MenuBarPart makeGraph(std::vector<double> fractions, PartColor color);
    static MenuBarPart makeMirrored(std::vector<double> upper, std::vector<double> lower);
    static MenuBarPart makeBar(double fraction, PartColor color);
    static MenuBarPart makeSymbol(const QString& name, bool multicolor = false);
    static MenuBarPart makeBattery(double fraction, bool charging);
    static MenuBarPart makeAppGlyph();

    bool isText() const { return kind == Kind::text || kind == Kind::stacked; }
    bool isGraphic() const { return kind == Kind::graph || kind == Kind::mirrored || kind == Kind::bar; }
    bool isIcon() const { return kind == Kind::symbol || kind == Kind::battery || kind == Kind::appGlyph; }

    bool operator==(const MenuBarPart&) const = default;
};

using MenuBarParts = std::vector<MenuBarPart>;

} // namespace pulsebar
