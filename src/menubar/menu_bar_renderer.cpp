#include "menubar/menu_bar_renderer.h"

#include "menubar/symbols.h"

#include <QFontDatabase>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>
#include <QScreen>

#include <algorithm>
#include <cmath>

namespace pulsebar {

namespace {

constexpr qreal stackedPitch = 10.5;
constexpr qreal stackedPadding = 2; // each side: two-line texts would otherwise touch their neighbours
constexpr qreal backgroundOpacity = 0.14;

double clamp01(double v)
{
    return std::isfinite(v) ? std::clamp(v, 0.0, 1.0) : 0.0;
}

qreal textWidth(const QFont& font, const QString& text)
{
    return std::ceil(QFontMetricsF(font).horizontalAdvance(text));
}

QColor withAlpha(QColor c, qreal alpha)
{
    c.setAlphaF(c.alphaF() * alpha);
    return c;
}

void fillRounded(QPainter& p, const QRectF& r, qreal radius, const QColor& c)
{
    QPainterPath path;
    path.addRoundedRect(r, radius, radius);
    p.fillPath(path, c);
}

// Bars of the last graphSlots values, newest at the right edge. Upward bars stand on the box's
// bottom edge, downward bars hang from its top edge; bars of 0.2 pt or less are not drawn.
void drawBars(QPainter& p, const QRectF& box, const std::vector<double>& values, const QColor& c, bool upward)
{
    const int slots = MenuBarRenderer::graphSlots;
    const qreal slot = box.width() / slots;
    const qreal barWidth = std::max(slot - 0.3, 0.5);
    const std::size_t count = std::min<std::size_t>(values.size(), std::size_t(slots));
    const std::size_t first = values.size() - count;
    for (std::size_t i = 0; i < count; ++i) {
        const qreal h = clamp01(values[first + i]) * box.height();
        if (h <= 0.2)
            continue;
        const qreal x = box.left() + slot * qreal(slots - int(count) + int(i));
        const qreal y = upward ? box.bottom() - h : box.top();
        p.fillRect(QRectF(x, y, barWidth, h), c);
    }
}

struct Painter {
    QPainter& p;
    bool monochrome;
    bool dark;
    QColor fg;

    QColor partColor(PartColor c) const { return monochrome ? fg : MenuBarRenderer::color(c, dark); }

    void text(const MenuBarPart& part, const QRectF& r)
    {
        p.setFont(MenuBarRenderer::textFont());
        p.setPen(fg);
        p.drawText(r, Qt::AlignCenter, part.text);
    }

    void stacked(const MenuBarPart& part, const QRectF& r)
    {
        p.setFont(MenuBarRenderer::stackedFont());
        p.setPen(fg);
        const qreal top = (MenuBarRenderer::height - 2 * stackedPitch) / 2;
        const QRectF lines = r.adjusted(stackedPadding, 0, -stackedPadding, 0);
        p.drawText(QRectF(lines.left(), top, lines.width(), stackedPitch), Qt::AlignLeft | Qt::AlignVCenter, part.text);
        p.drawText(QRectF(lines.left(), top + stackedPitch, lines.width(), stackedPitch),
                   Qt::AlignLeft | Qt::AlignVCenter, part.bottom);
    }

    // The faint rounded background of graphs and gauges; what is drawn until the restore() stays inside it.
    void beginBox(const QRectF& box, qreal radius)
    {
        QPainterPath clip;
        clip.addRoundedRect(box, radius, radius);
        p.save();
        p.setClipPath(clip);
        p.fillRect(box, withAlpha(fg, backgroundOpacity));
    }

    QRectF graphBox(const QRectF& r) const
    {
        return QRectF(r.left(), (MenuBarRenderer::height - MenuBarRenderer::graphHeight) / 2,
                      MenuBarRenderer::graphWidth, MenuBarRenderer::graphHeight);
    }

    void graph(const MenuBarPart& part, const QRectF& r)
    {
        const QRectF box = graphBox(r);
        beginBox(box, 3);
        drawBars(p, box, part.values, partColor(part.color), true);
        p.restore();
    }

    void mirrored(const MenuBarPart& part, const QRectF& r)
    {
        const QRectF box = graphBox(r);
        beginBox(box, 3);
        const qreal half = box.height() / 2;
        drawBars(p, QRectF(box.left(), box.top(), box.width(), half), part.values, partColor(PartColor::orange), true);
        drawBars(p, QRectF(box.left(), box.top() + half, box.width(), half), part.lowerValues,
                 partColor(PartColor::blue), false);
        p.restore();
    }

    void bar(const MenuBarPart& part, const QRectF& r)
    {
        const QRectF box(r.left(), (MenuBarRenderer::height - MenuBarRenderer::graphHeight) / 2,
                         MenuBarRenderer::barWidth, MenuBarRenderer::graphHeight);
        beginBox(box, 1.5);
        const qreal h = clamp01(part.fraction) * box.height();
        p.fillRect(QRectF(box.left(), box.bottom() - h, box.width(), h), partColor(part.color));
        p.restore();
    }

    void symbol(const MenuBarPart& part, const QRectF& r)
    {
        const qreal s = MenuBarRenderer::symbolSize;
        const QRectF box(r.left() + (r.width() - s) / 2, (MenuBarRenderer::height - s) / 2, s, s);
        Symbols::Style style = Symbols::Style::tinted;
        if (part.flag && !monochrome)
            style = dark ? Symbols::Style::multicolor : Symbols::Style::palette;
        Symbols::draw(p, part.text, box, fg, style);
    }

    void battery(const MenuBarPart& part, const QRectF& r)
    {
        const QRectF body(r.left(), (MenuBarRenderer::height - 11) / 2, 21, 11);
        const QColor outline = withAlpha(fg, 0.45);
        p.save();
        p.setPen(QPen(outline, 1));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(body.adjusted(0.5, 0.5, -0.5, -0.5), 3, 3);
        p.restore();
        fillRounded(p, QRectF(body.right() + 1, body.center().y() - 2, 2, 4), 1, outline);

        const double fraction = clamp01(part.fraction);
        const QRectF inner = body.adjusted(2, 2, -2, -2);
        QColor fill = fg;
        if (!monochrome) {
            if (fraction < 0.15)
                fill = MenuBarRenderer::color(PartColor::red, dark);
            else if (part.flag)
                fill = MenuBarRenderer::color(PartColor::green, dark);
        }
        if (fraction > 0)
            fillRounded(p, QRectF(inner.left(), inner.top(), inner.width() * fraction, inner.height()), 1.5, fill);
        if (part.flag) {
            // A rim in the panel's colour keeps the bolt readable over any fill, the short red one included.
            const QColor boltColor = monochrome ? QColor(Qt::black) : fg;
            // (A template image is only a shape: there the rim would merge with the bolt.)
            const QRectF bolt(body.center().x() - 4, body.center().y() - 5.5, 8, 11);
            if (!monochrome)
                for (QPointF d : {QPointF(-1, 0), QPointF(1, 0), QPointF(0, -1), QPointF(0, 1)})
                    Symbols::draw(p, QStringLiteral("bolt.fill"), bolt.translated(d),
                                  dark ? QColor(Qt::black) : QColor(Qt::white), Symbols::Style::tinted);
            Symbols::draw(p, QStringLiteral("bolt.fill"), bolt, boltColor, Symbols::Style::tinted);
        }
    }

    void appGlyph(const QRectF& r)
    {
        const qreal s = MenuBarRenderer::glyphSize;
        Symbols::draw(p, QStringLiteral("pulsebar.mark"), QRectF(r.left(), (MenuBarRenderer::height - s) / 2, s, s),
                      fg, Symbols::Style::tinted);
    }

    void draw(const MenuBarPart& part, const QRectF& r)
    {
        switch (part.kind) {
        case MenuBarPart::Kind::text: text(part, r); break;
        case MenuBarPart::Kind::stacked: stacked(part, r); break;
        case MenuBarPart::Kind::graph: graph(part, r); break;
        case MenuBarPart::Kind::mirrored: mirrored(part, r); break;
        case MenuBarPart::Kind::bar: bar(part, r); break;
        case MenuBarPart::Kind::symbol: symbol(part, r); break;
        case MenuBarPart::Kind::battery: battery(part, r); break;
        case MenuBarPart::Kind::appGlyph: appGlyph(r); break;
        }
    }
};

} // namespace

MenuBarRenderer::Context MenuBarRenderer::Context::current()
{
    Context c;
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        c.devicePixelRatio = screen->devicePixelRatio();
    c.dark = QGuiApplication::palette().color(QPalette::Window).lightness() < 128;
    return c;
}

QFont MenuBarRenderer::textFont()
{
    QFont f = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    f.setPixelSize(12);
    f.setWeight(QFont::Normal);
    return f;
}

QFont MenuBarRenderer::stackedFont()
{
    QFont f = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    f.setPixelSize(10);
    f.setWeight(QFont::Normal); // one weight with the single-line texts
    return f;
}

qreal MenuBarRenderer::width(const MenuBarPart& part)
{
    switch (part.kind) {
    case MenuBarPart::Kind::text:
        return std::max(textWidth(textFont(), part.text), textWidth(textFont(), part.widthTemplate));
    case MenuBarPart::Kind::stacked:
        return std::max({textWidth(stackedFont(), part.text), textWidth(stackedFont(), part.bottom),
                         textWidth(stackedFont(), part.widthTemplate)}) +
               2 * stackedPadding;
    case MenuBarPart::Kind::graph:
    case MenuBarPart::Kind::mirrored: return graphWidth;
    case MenuBarPart::Kind::bar: return barWidth;
    case MenuBarPart::Kind::symbol: return symbolSize;
    case MenuBarPart::Kind::battery: return batteryWidth;
    case MenuBarPart::Kind::appGlyph: return glyphSize;
    }
    return 0;
}

qreal MenuBarRenderer::width(const MenuBarParts& parts)
{
    qreal total = 0;
    for (const MenuBarPart& part : parts)
        total += width(part);
    if (parts.size() > 1)
        total += gap * qreal(parts.size() - 1);
    return std::max<qreal>(total, 1);
}

QColor MenuBarRenderer::foreground(bool monochrome, bool dark)
{
    if (monochrome)
        return Qt::black;
    return dark ? QColor(255, 255, 255, 217) : QColor(0, 0, 0, 217);
}

QColor MenuBarRenderer::color(PartColor c, bool dark)
{
    switch (c) {
    case PartColor::foreground: return foreground(false, dark);
    case PartColor::blue: return dark ? QColor(0x0a, 0x84, 0xff) : QColor(0x00, 0x7a, 0xff);
    case PartColor::green: return dark ? QColor(0x30, 0xd1, 0x58) : QColor(0x34, 0xc7, 0x59);
    case PartColor::yellow: return dark ? QColor(0xff, 0xd6, 0x0a) : QColor(0xff, 0xcc, 0x00);
    case PartColor::red: return dark ? QColor(0xff, 0x45, 0x3a) : QColor(0xff, 0x3b, 0x30);
    case PartColor::orange: return dark ? QColor(0xff, 0x9f, 0x0a) : QColor(0xff, 0x95, 0x00);
    case PartColor::purple: return dark ? QColor(0xbf, 0x5a, 0xf2) : QColor(0xaf, 0x52, 0xde);
    }
    return Qt::black;
}

QImage MenuBarRenderer::image(const MenuBarParts& parts, bool monochrome)
{
    return image(parts, monochrome, Context::current());
}

QImage MenuBarRenderer::image(const MenuBarParts& parts, bool monochrome, const Context& context)
{
    const qreal dpr = context.devicePixelRatio > 0 ? context.devicePixelRatio : 1;
    const qreal w = width(parts);
    QImage out(int(std::ceil(w * dpr)), int(std::ceil(height * dpr)), QImage::Format_ARGB32_Premultiplied);
    out.setDevicePixelRatio(dpr);
    out.fill(Qt::transparent);
    // A template image: only its shape counts, the tray host (or the controller) supplies the colour.
    out.setText(QStringLiteral("template"), monochrome ? QStringLiteral("true") : QStringLiteral("false"));

    QPainter p(&out);
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::TextAntialiasing);
    Painter painter{p, monochrome, context.dark, foreground(monochrome, context.dark)};
    qreal x = 0;
    for (const MenuBarPart& part : parts) {
        const qreal pw = width(part);
        painter.draw(part, QRectF(x, 0, pw, height));
        x += pw + gap;
    }
    return out;
}

QImage MenuBarRenderer::tinted(const QImage& templateImage, const QColor& color)
{
    QImage out = templateImage.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    QPainter p(&out);
    p.setCompositionMode(QPainter::CompositionMode_SourceIn);
    p.fillRect(QRectF(QPointF(0, 0), out.deviceIndependentSize()), color);
    return out;
}

} // namespace pulsebar
