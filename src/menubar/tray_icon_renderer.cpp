#include "menubar/tray_icon_renderer.h"

#include "menubar/menu_bar_renderer.h"
#include "menubar/symbols.h"

#include <QFontDatabase>
#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>
#include <QtEndian>

#include <algorithm>
#include <cmath>
#include <map>
#include <tuple>

namespace pulsebar {

namespace {

constexpr qreal trackOpacity = 0.22;

double clamp01(double v)
{
    return std::isfinite(v) ? std::clamp(v, 0.0, 1.0) : 0.0;
}

QColor withAlpha(QColor c, qreal alpha)
{
    c.setAlphaF(c.alphaF() * alpha);
    return c;
}

// The rounded box every graph and gauge sits in, over the pixels it touches (from `origin`): its
// track, and the coverage of its shape. Rasterising an antialiased rounded path, and clipping to it,
// cost more than the rest of an icon, and the boxes are the same at every tick: each is drawn once.
struct RoundedBox {
    QPoint origin;
    QImage track;
    QImage mask;
};

const RoundedBox& roundedBox(const QRectF& box, qreal radius, const QColor& track)
{
    using Key = std::tuple<qreal, qreal, qreal, qreal, qreal, QRgb>;
    thread_local std::map<Key, RoundedBox> drawn;
    const Key key{box.x(), box.y(), box.width(), box.height(), radius, track.rgba()};
    if (const auto found = drawn.find(key); found != drawn.end())
        return found->second;
    const QRect pixels = box.toAlignedRect();
    QPainterPath path;
    path.addRoundedRect(box.translated(-QPointF(pixels.topLeft())), radius, radius);
    const auto paint = [&](const QColor& color) {
        QImage image(pixels.size(), QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.fillPath(path, color);
        return image;
    };
    return drawn.emplace(key, RoundedBox{pixels.topLeft(), paint(track), paint(Qt::black)}).first->second;
}

struct SquarePainter {
    QPainter& p;
    qreal s; // the square's side in pixels
    bool dark;
    bool monochrome;
    QColor fg;

    QColor colorOf(PartColor c) const { return monochrome ? fg : MenuBarRenderer::color(c, dark); }

    // Draws the rounded box's track, then what `draw` paints, cut to the box's shape.
    template <typename Draw>
    void insideRoundedBox(const QRectF& box, qreal radius, Draw draw)
    {
        const RoundedBox& shape = roundedBox(box, radius, withAlpha(fg, trackOpacity));
        p.drawImage(shape.origin, shape.track);
        QImage layer(shape.mask.size(), QImage::Format_ARGB32_Premultiplied);
        layer.fill(Qt::transparent);
        {
            QPainter inside(&layer);
            inside.setRenderHint(QPainter::Antialiasing);
            inside.translate(-QPointF(shape.origin));
            draw(inside);
            inside.resetTransform();
            inside.setCompositionMode(QPainter::CompositionMode_DestinationIn);
            inside.drawImage(0, 0, shape.mask);
        }
        p.drawImage(shape.origin, layer);
    }

    // At most one bar per 2 px, newest at the right, each bar a pixel and a half or more.
    static void bars(QPainter& p, const QRectF& box, const std::vector<double>& values, const QColor& color, bool upward)
    {
        const int slots = std::max(4, int(box.width() / 2));
        const qreal slot = box.width() / slots;
        const std::size_t count = std::min<std::size_t>(values.size(), std::size_t(slots));
        const std::size_t first = values.size() - count;
        for (std::size_t i = 0; i < count; ++i) {
            const qreal h = clamp01(values[first + i]) * box.height();
            if (h < 0.5)
                continue;
            const qreal x = box.left() + slot * qreal(slots - int(count) + int(i));
            p.fillRect(QRectF(x, upward ? box.bottom() - h : box.top(), std::max(slot - 0.5, 1.0), h), color);
        }
    }

    void graph(const QRectF& box, const MenuBarPart& part)
    {
        insideRoundedBox(box, s / 8, [&](QPainter& inside) {
            if (part.kind == MenuBarPart::Kind::mirrored) {
                const qreal half = box.height() / 2;
                bars(inside, QRectF(box.left(), box.top(), box.width(), half), part.values,
                     colorOf(PartColor::orange), true);
                bars(inside, QRectF(box.left(), box.top() + half, box.width(), half), part.lowerValues,
                     colorOf(PartColor::blue), false);
            } else {
                bars(inside, box, part.values, colorOf(part.color), true);
            }
        });
    }

    void level(const QRectF& box, double fraction, const QColor& color)
    {
        const QRectF fill = box.height() >= box.width()
                                ? QRectF(box.left(), box.bottom() - clamp01(fraction) * box.height(), box.width(),
                                         clamp01(fraction) * box.height())
                                : QRectF(box.left(), box.top(), clamp01(fraction) * box.width(), box.height());
        insideRoundedBox(box, std::min(box.width(), box.height()) / 4,
                         [&](QPainter& inside) { inside.fillRect(fill, color); });
    }

    void symbol(const MenuBarPart& part, const QRectF& box)
    {
        Symbols::Style style = Symbols::Style::tinted;
        if (part.flag && !monochrome)
            style = dark ? Symbols::Style::multicolor : Symbols::Style::palette;
        Symbols::draw(p, part.text, box, fg, style);
    }

    // The battery across the square, its fill by charge, and a bolt with a rim in the panel's colour so
    // it reads as charging even over a short red fill.
    void battery(const MenuBarPart& part)
    {
        const qreal line = std::max(1.0, s / 16);
        const QRectF body(line / 2, s * 0.25, s * 0.86 - line, s * 0.5);
        p.save();
        p.setPen(QPen(withAlpha(fg, 0.8), line));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(body, s / 10, s / 10);
        p.fillRect(QRectF(body.right() + line, s * 0.4, s * 0.1, s * 0.2), withAlpha(fg, 0.8));
        const double fraction = clamp01(part.fraction);
        QColor fill = fg;
        if (!monochrome && fraction < 0.15)
            fill = MenuBarRenderer::color(PartColor::red, dark);
        else if (!monochrome && part.flag)
            fill = MenuBarRenderer::color(PartColor::green, dark);
        const QRectF inner = body.adjusted(line * 1.5, line * 1.5, -line * 1.5, -line * 1.5);
        p.fillRect(QRectF(inner.left(), inner.top(), std::max(inner.width() * fraction, line), inner.height()), fill);
        if (part.flag) {
            const QRectF bolt(body.center().x() - s * 0.22, s * 0.1, s * 0.44, s * 0.8);
            const QColor rim = dark ? QColor(0, 0, 0) : QColor(255, 255, 255);
            for (QPointF d : {QPointF(-1, 0), QPointF(1, 0), QPointF(0, -1), QPointF(0, 1)})
                Symbols::draw(p, QStringLiteral("bolt.fill"), bolt.translated(d * line), rim, Symbols::Style::tinted);
            Symbols::draw(p, QStringLiteral("bolt.fill"), bolt, monochrome ? fg : QColor(0xff, 0xd6, 0x0a),
                          Symbols::Style::tinted);
        }
        p.restore();
    }

    // As large as fits: measured once at a reference size and scaled, digits being drawn every tick.
    static QFont digitFont(const QString& text, qreal maxWidth, qreal maxHeight)
    {
        constexpr int reference = 100;
        QFont f = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
        f.setWeight(QFont::Bold);
        f.setPixelSize(reference);
        const QFontMetricsF m(f);
        const qreal byWidth = maxWidth * reference / std::max<qreal>(m.horizontalAdvance(text), 1);
        const qreal byHeight = 0.8 * maxHeight * reference / std::max<qreal>(m.capHeight(), 1);
        f.setPixelSize(std::max(5, int(std::min(byWidth, byHeight))));
        return f;
    }

    void digits(const QString& text, const QRectF& box)
    {
        p.setFont(digitFont(text, box.width(), box.height()));
        p.setPen(fg);
        const QFontMetricsF m(p.font());
        // Centred on the cap height, which is what the eye reads as the digits' middle.
        const qreal baseline = box.center().y() + m.capHeight() / 2;
        const qreal x = box.center().x() - m.horizontalAdvance(text) / 2;
        p.drawText(QPointF(x, baseline), text);
    }

    void value(const TrayIconValue& v)
    {
        if (!v.secondLine.isEmpty()) {
            digits(v.digits, QRectF(0, 0, s, s / 2));
            digits(v.secondLine, QRectF(0, s / 2, s, s / 2));
            return;
        }
        if (!v.fraction) {
            digits(v.digits, QRectF(0, 0, s, s));
            return;
        }
        const qreal barHeight = std::max(2.0, std::round(s * 0.16));
        digits(v.digits, QRectF(0, 0, s, s - barHeight - 1));
        level(QRectF(0, s - barHeight, s, barHeight), *v.fraction, colorOf(v.color));
    }

    void graphics(const MenuBarParts& parts)
    {
        const MenuBarPart* graphPart = nullptr;
        const MenuBarPart* levelPart = nullptr;
        for (const MenuBarPart& part : parts) {
            if (part.kind == MenuBarPart::Kind::graph || part.kind == MenuBarPart::Kind::mirrored)
                graphPart = &part;
            else if (part.kind == MenuBarPart::Kind::bar)
                levelPart = &part;
            else if (part.kind == MenuBarPart::Kind::battery)
                return battery(part);
        }
        const qreal inset = std::max(1.0, s / 16);
        const QRectF whole(inset, inset, s - 2 * inset, s - 2 * inset);
        if (graphPart && levelPart) {
            const qreal gaugeWidth = std::round(s * 0.22);
            graph(QRectF(whole.left(), whole.top(), whole.width() - gaugeWidth - inset, whole.height()), *graphPart);
            level(QRectF(whole.right() - gaugeWidth, whole.top(), gaugeWidth, whole.height()), levelPart->fraction,
                  colorOf(levelPart->color));
        } else if (graphPart) {
            graph(whole, *graphPart);
        } else if (levelPart) {
            level(whole, levelPart->fraction, colorOf(levelPart->color));
        }
    }

    void draw(const TrayFace& face)
    {
        switch (face.icon) {
        case TrayFace::Icon::value: value(face.value); break;
        case TrayFace::Icon::graphic: graphics(face.iconParts); break;
        case TrayFace::Icon::symbol:
            if (face.iconParts.empty())
                break;
            if (face.iconParts.front().kind == MenuBarPart::Kind::battery)
                battery(face.iconParts.front());
            else if (face.iconParts.front().kind == MenuBarPart::Kind::appGlyph)
                Symbols::draw(p, QStringLiteral("pulsebar.mark"), QRectF(0, 0, s, s), fg, Symbols::Style::tinted);
            else
                symbol(face.iconParts.front(), QRectF(0, 0, s, s));
            break;
        }
    }
};

} // namespace

QColor TrayIconRenderer::foreground(bool darkPanel)
{
    return darkPanel ? QColor(0xf4, 0xf4, 0xf4) : QColor(0x1c, 0x1c, 0x1e);
}

QImage TrayIconRenderer::image(const TrayFace& face, int size, bool darkPanel, bool monochrome)
{
    QImage out(size, size, QImage::Format_ARGB32_Premultiplied);
    out.fill(Qt::transparent);
    QPainter p(&out);
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::TextAntialiasing);
    SquarePainter{p, qreal(size), darkPanel, monochrome, foreground(darkPanel)}.draw(face);
    return out;
}

TrayPixmap TrayIconRenderer::pixmap(const QImage& image)
{
    const QImage argb = image.convertToFormat(QImage::Format_ARGB32);
    const int width = argb.width(); // asked once: QImage's accessors are calls into the library
    const int height = argb.height();
    TrayPixmap out{width, height, QByteArray(qsizetype(width) * height * 4, Qt::Uninitialized)};
    auto* to = reinterpret_cast<uchar*>(out.argb.data());
    for (int y = 0; y < height; ++y) {
        const auto* row = reinterpret_cast<const quint32*>(argb.constScanLine(y));
        for (int x = 0; x < width; ++x, to += 4)
            qToBigEndian(row[x], to);
    }
    return out;
}

std::vector<TrayPixmap> TrayIconRenderer::pixmaps(const TrayFace& face, bool darkPanel, bool monochrome)
{
    std::vector<TrayPixmap> out;
    for (int size : sizes)
        out.push_back(pixmap(image(face, size, darkPanel, monochrome)));
    return out;
}

} // namespace pulsebar
