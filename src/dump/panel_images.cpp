#include "dump/panel_images.h"

#include "menubar/symbols.h"

#include <QFontMetricsF>
#include <QPainter>

namespace pulsebar::PanelImages {

namespace {

constexpr qreal width = 360;
constexpr qreal padding = 14;
constexpr qreal maxHeight = 1200;

// Draws top to bottom onto a tall image and crops it to what was used.
class Card {
public:
    Card(bool dark, double dpr)
        : m_image(int(width * dpr), int(maxHeight * dpr), QImage::Format_ARGB32_Premultiplied), m_dark(dark)
    {
        m_image.setDevicePixelRatio(dpr);
        m_image.fill(dark ? QColor(0x26, 0x26, 0x2b) : QColor(0xf6, 0xf6, 0xf8));
        m_painter.begin(&m_image);
        m_painter.setRenderHint(QPainter::Antialiasing);
        m_painter.setRenderHint(QPainter::TextAntialiasing);
    }

    QColor text() const { return m_dark ? QColor(0xee, 0xee, 0xf0) : QColor(0x1d, 0x1d, 0x1f); }
    QColor secondary() const { return m_dark ? QColor(0x9a, 0x9a, 0xa2) : QColor(0x6e, 0x6e, 0x73); }

    void line(const QString& s, qreal size, bool bold, const QColor& color, qreal x = padding)
    {
        const QFont f = font(size, bold);
        m_painter.setFont(f);
        m_painter.setPen(color);
        const QFontMetricsF metrics(f);
        m_painter.drawText(QPointF(x, m_y + metrics.ascent()), s);
        m_y += metrics.height() + 2;
    }

    void wrapped(const QString& s, qreal size, const QColor& color)
    {
        const QFont f = font(size, false);
        m_painter.setFont(f);
        m_painter.setPen(color);
        const QRectF box(padding, m_y, width - 2 * padding, maxHeight);
        const QRectF used = m_painter.boundingRect(box, Qt::TextWordWrap, s);
        m_painter.drawText(box, Qt::TextWordWrap, s);
        m_y += used.height() + 4;
    }

    void heading(const QString& s)
    {
        gap(6);
        line(s.toUpper(), 9, true, secondary());
    }

    void rows(const std::vector<InfoRow>& rows)
    {
        const QFont f = font(11, false);
        const QFontMetricsF metrics(f);
        m_painter.setFont(f);
        for (const InfoRow& row : rows) {
            m_painter.setPen(secondary());
            m_painter.drawText(QPointF(padding, m_y + metrics.ascent()), row.label);
            m_painter.setPen(text());
            m_painter.drawText(QRectF(padding, m_y, width - 2 * padding, metrics.height()), Qt::AlignRight, row.value);
            m_y += metrics.height() + 3;
        }
    }

    void symbol(const QString& name, qreal x, qreal y, qreal size)
    {
        Symbols::draw(m_painter, name, QRectF(x, y, size, size), text(),
                      m_dark ? Symbols::Style::multicolor : Symbols::Style::palette);
    }

    // A left-aligned label, an icon, then cells right-aligned at the x given.
    void columns(const QString& label, const QString& icon, qreal iconX, const std::vector<std::pair<qreal, QString>>& cells)
    {
        const QFont f = font(11, false);
        const QFontMetricsF metrics(f);
        m_painter.setFont(f);
        m_painter.setPen(text());
        m_painter.drawText(QPointF(padding, m_y + metrics.ascent()), label);
        for (const auto& [right, s] : cells)
            m_painter.drawText(QRectF(padding, m_y, right - padding, metrics.height()), Qt::AlignRight, s);
        if (!icon.isEmpty())
            symbol(icon, iconX, m_y, metrics.height());
        m_y += metrics.height() + 4;
    }

    void gap(qreal h) { m_y += h; }
    void divider()
    {
        gap(6);
        m_painter.setPen(QPen(secondary(), 0.5));
        m_painter.drawLine(QPointF(padding, m_y), QPointF(width - padding, m_y));
        gap(6);
    }
    qreal y() const { return m_y; }

    QImage finish()
    {
        m_painter.end();
        const qreal dpr = m_image.devicePixelRatio();
        QImage out = m_image.copy(0, 0, m_image.width(), int((m_y + padding) * dpr));
        out.setDevicePixelRatio(dpr);
        return out;
    }

private:
    static QFont font(qreal size, bool bold)
    {
        QFont f;
        f.setPointSizeF(size);
        f.setBold(bold);
        return f;
    }

    QImage m_image;
    QPainter m_painter;
    bool m_dark;
    qreal m_y = padding;
};

} // namespace

QImage weather(const WeatherPanelView& v, bool dark, double dpr)
{
    Card card(dark, dpr);
    card.line(v.title, 15, true, card.text());
    if (v.state != WeatherPanelView::State::report) {
        card.gap(24);
        card.line(v.message, 13, true, card.text());
        if (!v.detail.isEmpty())
            card.wrapped(v.detail, 11, card.secondary());
        card.gap(24);
    } else {
        card.gap(4);
        const qreal top = card.y();
        card.symbol(v.symbol, padding, top, 44);
        card.line(v.temperature, 26, false, card.text(), padding + 56);
        card.line(v.description, 12, false, card.secondary(), padding + 56);
        card.gap(6);
        card.rows(v.conditions);
        card.heading(QStringLiteral("14 days"));
        for (const WeatherPanelView::Day& d : v.days) {
            card.columns(d.weekday, d.symbol, 70,
                         {{185, d.high + QStringLiteral(" / ") + d.low}, {260, d.chance}, {width - padding, d.amount}});
        }
        card.heading(QStringLiteral("Sun"));
        card.rows(v.sun);
        card.gap(4);
        card.line(v.age, 10, false, card.secondary());
        if (!v.staleError.isEmpty())
            card.wrapped(v.staleError, 10, QColor(0xd7, 0x3a, 0x2f));
    }
    card.divider();
    card.wrapped(WeatherPanelView::footer(), 9, card.secondary());
    return card.finish();
}

QImage astronomy(const AstronomyPanelView& v, bool dark, double dpr)
{
    Card card(dark, dpr);
    card.line(v.title, 15, true, card.text());
    if (!v.message.isEmpty()) {
        card.gap(24);
        card.line(v.message, 13, true, card.text());
        card.wrapped(v.detail, 11, card.secondary());
        return card.finish();
    }
    card.heading(QStringLiteral("Sun"));
    card.rows(v.sun);
    card.heading(QStringLiteral("Twilight"));
    card.rows(v.twilight);
    card.heading(QStringLiteral("Position"));
    card.rows(v.position);
    card.heading(QStringLiteral("Moon"));
    const qreal top = card.y();
    card.symbol(v.moonSymbol, width - padding - 28, top - 18, 22);
    card.rows(v.moon);
    return card.finish();
}

} // namespace pulsebar::PanelImages
