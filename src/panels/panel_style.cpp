#include "panels/panel_style.h"

#include "menubar/menu_bar_renderer.h"

namespace pulsebar::PanelStyle {

bool isDark(const QPalette& palette)
{
    return palette.color(QPalette::Window).lightness() < 128;
}

QColor text(const QPalette& palette)
{
    return palette.color(QPalette::WindowText);
}

QColor secondary(const QPalette& palette)
{
    QColor c = text(palette);
    c.setAlphaF(0.62f);
    return c;
}

QColor track(const QPalette& palette)
{
    QColor c = text(palette);
    c.setAlphaF(0.12f);
    return c;
}

QColor hover(const QPalette& palette)
{
    QColor c = palette.color(QPalette::Highlight);
    c.setAlphaF(0.16f);
    return c;
}

QColor color(PartColor part, const QPalette& palette)
{
    if (part == PartColor::foreground) {
        QColor c = text(palette);
        c.setAlphaF(0.55f);
        return c;
    }
    return MenuBarRenderer::color(part, isDark(palette));
}

QFont smallFont(const QFont& base)
{
    QFont f = base;
    f.setPointSizeF(base.pointSizeF() * 0.86);
    return f;
}

QFont headingFont(const QFont& base)
{
    QFont f = smallFont(base);
    f.setWeight(QFont::DemiBold);
    f.setCapitalization(QFont::AllUppercase);
    f.setLetterSpacing(QFont::PercentageSpacing, 104);
    return f;
}

QFont titleFont(const QFont& base)
{
    QFont f = base;
    f.setPointSizeF(base.pointSizeF() * 1.2);
    f.setWeight(QFont::Bold);
    return f;
}

QFont headlineFont(const QFont& base)
{
    QFont f = base;
    f.setPointSizeF(base.pointSizeF() * 1.6);
    f.setWeight(QFont::DemiBold);
    return f;
}

} // namespace pulsebar::PanelStyle
