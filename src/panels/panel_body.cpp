#include "panels/panel_body.h"

#include "history/history.h"
#include "menubar/symbols.h"
#include "panels/panel_style.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

namespace pulsebar {

namespace {

using Kind = PanelRow::Kind;

const QString moreGlyph = QStringLiteral("•••");
constexpr int rowGap = 6;
constexpr int barThickness = 6;
constexpr int sparkWidth = 56;
constexpr int tileTrailWidth = 56;
constexpr int symbolBox = 18;
constexpr int forecastLabelWidth = 64; // "Today" and the short weekday names
constexpr int monthCellHeight = 24;
constexpr int swatchWidth = 4;
const QString joinText = QStringLiteral("Join");

int lineCount(const QString& text)
{
    return text.isEmpty() ? 0 : int(text.count(QLatin1Char('\n'))) + 1;
}

// The values of a trail spread over the box, newest at the right edge; a trail shorter than the monitors'
// capacity starts part-way across, as the menu-bar graphs do.
QPolygonF points(const std::vector<double>& values, const std::vector<double>& base, const QRectF& box, double maximum,
                 bool downward)
{
    QPolygonF out;
    const int slots = History::defaultCapacity;
    const double step = box.width() / (slots - 1);
    const size_t n = std::min(values.size(), size_t(slots));
    const size_t first = values.size() - n;
    for (size_t i = 0; i < n; ++i) {
        const double x = box.right() - double(n - 1 - i) * step;
        double v = values[first + i];
        if (i < base.size() && base.size() == n)
            v += base[i];
        const double h = std::clamp(v / maximum, 0.0, 1.0) * box.height();
        out << QPointF(x, downward ? box.top() + h : box.bottom() - h);
    }
    return out;
}

void fillUnder(QPainter& p, const QPolygonF& line, double baseline, const QColor& color)
{
    if (line.isEmpty())
        return;
    QPolygonF area = line;
    area << QPointF(line.last().x(), baseline) << QPointF(line.first().x(), baseline);
    QColor fill = color;
    fill.setAlphaF(0.28f);
    p.setPen(Qt::NoPen);
    p.setBrush(fill);
    p.drawPolygon(area);
    p.setBrush(Qt::NoBrush);
    p.setPen(QPen(color, 1.3));
    p.drawPolyline(line);
}

std::vector<double> lastValues(const std::vector<double>& values)
{
    const size_t n = std::min(values.size(), size_t(History::defaultCapacity));
    return {values.end() - long(n), values.end()};
}

} // namespace

PanelBody::PanelBody(QWidget* parent) : QWidget(parent)
{
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_Hover);
}

void PanelBody::setModel(const PanelModel& model)
{
    const QString focused = m_focus >= 0 && m_focus < int(m_items.size()) && m_items[size_t(m_focus)].row
                                ? m_items[size_t(m_focus)].row->label
                                : QString();
    m_model = model;
    relayout();
    // Keep the keyboard on the same row across redraws (process rows reorder; find it by name).
    m_focus = -1;
    if (!focused.isEmpty())
        for (size_t i = 0; i < m_items.size(); ++i)
            if (isActive(int(i)) && m_items[i].row->label == focused)
                m_focus = int(i);
    QStringList described;
    for (const PanelSection& section : m_model.sections)
        for (const PanelRow& row : section.rows)
            described << (row.label + QLatin1Char(' ') + row.value).trimmed();
    setAccessibleName(m_model.title);
    setAccessibleDescription(described.join(QStringLiteral("; ")));
    update();
}

QSize PanelBody::sizeHint() const
{
    return {PanelStyle::width, m_height};
}

int PanelBody::wrappedHeight(const QString& text, const QFont& font, int width) const
{
    return QFontMetrics(font).boundingRect(QRect(0, 0, width, 10000), Qt::TextWordWrap, text).height();
}

int PanelBody::legendHeight(const PanelRow& row) const
{
    const int small = QFontMetrics(PanelStyle::smallFont(font())).height();
    return int((row.segments.size() + 1) / 2) * small;
}

int PanelBody::rowHeight(const PanelRow& row) const
{
    const int line = fontMetrics().height();
    const QFont smallFont = PanelStyle::smallFont(font());
    const int small = QFontMetrics(smallFont).height();
    const int inner = PanelStyle::width - 2 * PanelStyle::margin;
    switch (row.kind) {
    case Kind::value:
    case Kind::copy:
    case Kind::command:
    case Kind::choice: return line + lineCount(row.detail) * small + rowGap;
    case Kind::bar:
        return line + 4 + barThickness + (row.detail.isEmpty() ? 0 : small + 2) +
               (row.segments.empty() ? 0 : legendHeight(row) + 6) + rowGap + 2;
    case Kind::columns:
        return line + 4 + PanelStyle::columnsHeight + (row.segments.size() <= 16 ? small : 0) + rowGap;
    case Kind::trail: return PanelStyle::trailHeight + (row.value.isEmpty() ? 0 : small + 2) + rowGap;
    case Kind::process: return line + 8;
    case Kind::link: return wrappedHeight(row.value, font(), inner - 16) + 14;
    case Kind::tile: return line + small + 14;
    case Kind::note: return wrappedHeight(row.value, smallFont, inner) + rowGap;
    case Kind::forecast: return std::max(line, symbolBox) + rowGap;
    case Kind::month: return line + 4 + small + 4 + int(row.month ? row.month->weeks.size() : 0) * monthCellHeight + rowGap;
    case Kind::event: return line + small + 6 + rowGap;
    }
    return line;
}

void PanelBody::relayout()
{
    m_items.clear();
    const int heading = QFontMetrics(PanelStyle::headingFont(font())).height();
    int y = 6;
    bool first = true;
    for (const PanelSection& section : m_model.sections) {
        if (section.rows.empty())
            continue;
        if (!first) {
            m_items.push_back({Item::Kind::separator, QRect(PanelStyle::margin, y + 4, PanelStyle::width - 2 * PanelStyle::margin, 1), {}, nullptr});
            y += 10;
        }
        first = false;
        if (!section.title.isEmpty()) {
            m_items.push_back({Item::Kind::heading, QRect(0, y, PanelStyle::width, heading + 4), section.title, nullptr});
            y += heading + 4;
        }
        for (const PanelRow& row : section.rows) {
            const int h = rowHeight(row);
            m_items.push_back({Item::Kind::row, QRect(0, y, PanelStyle::width, h), {}, &row});
            y += h;
        }
    }
    m_height = y + 4;
    m_hover = -1;
    updateGeometry();
    setFixedHeight(m_height);
}

bool PanelBody::isActive(int index) const
{
    if (index < 0 || index >= int(m_items.size()) || !m_items[size_t(index)].row)
        return false;
    const PanelRow& row = *m_items[size_t(index)].row;
    switch (row.kind) {
    case Kind::process:
    case Kind::choice:
    case Kind::command:
    case Kind::copy: return true;
    case Kind::link:
    case Kind::tile: return row.target.has_value() || row.tilePanel.has_value();
    case Kind::event: return !row.openURL.isEmpty() || !row.joinURL.isEmpty();
    default: return false;
    }
}

int PanelBody::itemAt(QPoint point) const
{
    for (size_t i = 0; i < m_items.size(); ++i)
        if (m_items[i].rect.contains(point))
            return int(i);
    return -1;
}

QPoint PanelBody::menuPoint(int index) const
{
    const QRect r = m_items[size_t(index)].rect;
    return mapToGlobal(QPoint(r.right() - PanelStyle::margin - 80, r.bottom()));
}

void PanelBody::moveFocus(int step)
{
    int i = m_focus;
    for (size_t n = 0; n < m_items.size(); ++n) {
        i += step;
        if (i < 0)
            i = int(m_items.size()) - 1;
        if (i >= int(m_items.size()))
            i = 0;
        if (isActive(i)) {
            m_focus = i;
            const PanelRow& row = *m_items[size_t(i)].row;
            setAccessibleName((row.label + QLatin1Char(' ') + row.value).trimmed());
            update();
            return;
        }
    }
}

void PanelBody::mouseMoveEvent(QMouseEvent* event)
{
    const int at = itemAt(event->position().toPoint());
    const int hover = isActive(at) ? at : -1;
    if (hover != m_hover) {
        m_hover = hover;
        setCursor(hover >= 0 ? Qt::PointingHandCursor : Qt::ArrowCursor);
        update();
    }
}

void PanelBody::leaveEvent(QEvent*)
{
    m_hover = -1;
    update();
}

void PanelBody::mousePressEvent(QMouseEvent* event)
{
    const int at = itemAt(event->position().toPoint());
    if (!isActive(at))
        return;
    const PanelRow& row = *m_items[size_t(at)].row;
    const QPoint global = event->globalPosition().toPoint();
    if (event->button() == Qt::LeftButton && onOpenURL && !row.joinURL.isEmpty() &&
        joinRect(row, m_items[size_t(at)].rect).contains(event->position().toPoint())) {
        onOpenURL(row.joinURL);
        return;
    }
    if (event->button() == Qt::LeftButton && row.kind == Kind::event) {
        if (onOpenURL)
            onOpenURL(row.openURL.isEmpty() ? row.joinURL : row.openURL);
        return;
    }
    if (event->button() == Qt::RightButton && row.kind == Kind::process && onContextMenu)
        onContextMenu(row, global);
    else if (event->button() == Qt::LeftButton && onActivate)
        onActivate(row, global);
}

void PanelBody::keyPressEvent(QKeyEvent* event)
{
    switch (event->key()) {
    case Qt::Key_Down: moveFocus(1); return;
    case Qt::Key_Up: moveFocus(-1); return;
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_Space:
        if (!isActive(m_focus))
            return;
        if (const PanelRow& row = *m_items[size_t(m_focus)].row; row.kind == Kind::event) {
            if (onOpenURL)
                onOpenURL(row.openURL.isEmpty() ? row.joinURL : row.openURL);
        } else if (onActivate) {
            onActivate(row, menuPoint(m_focus));
        }
        return;
    case Qt::Key_Menu:
        if (isActive(m_focus) && m_items[size_t(m_focus)].row->kind == Kind::process && onContextMenu)
            onContextMenu(*m_items[size_t(m_focus)].row, menuPoint(m_focus));
        return;
    default: QWidget::keyPressEvent(event);
    }
}

bool PanelBody::event(QEvent* event)
{
    // Tab leaves the body for the next control; inside it the arrows move.
    if (event->type() == QEvent::FocusIn && m_focus < 0)
        moveFocus(1);
    return QWidget::event(event);
}

void PanelBody::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::FontChange)
        relayout();
    QWidget::changeEvent(event);
}

void PanelBody::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QPalette& pal = palette();
    for (size_t i = 0; i < m_items.size(); ++i) {
        const Item& item = m_items[i];
        switch (item.kind) {
        case Item::Kind::separator: p.fillRect(item.rect, PanelStyle::track(pal)); break;
        case Item::Kind::heading:
            p.setFont(PanelStyle::headingFont(font()));
            p.setPen(PanelStyle::secondary(pal));
            p.drawText(item.rect.adjusted(PanelStyle::margin, 0, -PanelStyle::margin, 0), Qt::AlignLeft | Qt::AlignVCenter,
                       item.title);
            break;
        case Item::Kind::row:
            paintRow(p, *item.row, item.rect, int(i) == m_hover || (int(i) == m_focus && hasFocus()));
            break;
        }
    }
}

PanelBody::RowFonts PanelBody::rowFonts() const
{
    const QFont smallFont = PanelStyle::smallFont(font());
    return {font(), smallFont, fontMetrics().height(), QFontMetrics(smallFont).height()};
}

void PanelBody::paintRow(QPainter& p, const PanelRow& row, const QRect& r, bool highlighted) const
{
    const QPalette& pal = palette();
    const RowFonts f = rowFonts();
    const QRect inner = r.adjusted(PanelStyle::margin, 0, -PanelStyle::margin, 0);
    if (highlighted) {
        p.setPen(Qt::NoPen);
        p.setBrush(PanelStyle::hover(pal));
        p.drawRoundedRect(QRectF(r.adjusted(6, 1, -6, -1)), 6, 6);
        p.setBrush(Qt::NoBrush);
    }
    // `inset` keeps the value that far from the right edge (a button's outline goes around it).
    auto labelAndValue = [&](const QString& value, const QColor& valueColor, int inset = 0) {
        p.setFont(f.base);
        p.setPen(PanelStyle::text(pal));
        const int valueWidth = fontMetrics().horizontalAdvance(value);
        const QRect top(inner.left(), r.top() + 2, inner.width(), f.line);
        const int labelWidth = top.width() - valueWidth - 2 * inset - 8;
        p.drawText(top.adjusted(0, 0, -valueWidth - 2 * inset - 8, 0), Qt::AlignLeft | Qt::AlignVCenter,
                   fontMetrics().elidedText(row.label, Qt::ElideRight, labelWidth));
        p.setPen(valueColor);
        p.drawText(top.adjusted(0, 0, -inset, 0), Qt::AlignRight | Qt::AlignVCenter, value);
        return valueWidth;
    };

    switch (row.kind) {
    case Kind::value:
    case Kind::copy:
    case Kind::command:
    case Kind::choice: {
        const QString value = row.kind == Kind::choice ? row.value + QStringLiteral(" ▾") : row.value;
        const bool link = row.kind == Kind::copy || row.kind == Kind::command;
        const QColor valueColor = link ? pal.color(QPalette::Link) : PanelStyle::text(pal);
        const int buttonPadding = row.kind == Kind::command ? 8 : 0;
        const int valueWidth = labelAndValue(value, valueColor, buttonPadding);
        if (row.kind == Kind::command) { // a button: the value in a rounded outline
            p.setPen(QPen(valueColor, 1));
            p.setBrush(Qt::NoBrush);
            p.drawRoundedRect(QRectF(inner.right() - valueWidth - 2 * buttonPadding + 0.5, r.top() + 2.5,
                                     valueWidth + 2 * buttonPadding, f.line - 1),
                              5, 5);
        }
        if (!row.series.empty()) {
            const QRectF spark(inner.right() - valueWidth - 10 - sparkWidth, r.top() + 4, sparkWidth, f.line - 4);
            PanelRow sparkRow = row;
            paintTrail(p, sparkRow, spark);
        }
        if (!row.detail.isEmpty()) {
            p.setFont(f.small);
            p.setPen(PanelStyle::secondary(pal));
            p.drawText(QRect(inner.left(), r.top() + 2 + f.line, inner.width(), f.smallLine * lineCount(row.detail)),
                       Qt::AlignLeft | Qt::AlignTop, row.detail);
        }
        break;
    }
    case Kind::bar: {
        labelAndValue(row.value, PanelStyle::text(pal));
        int y = r.top() + 2 + f.line + 4;
        paintBar(p, row, QRectF(inner.left(), y, inner.width(), barThickness));
        y += barThickness + 2;
        if (!row.detail.isEmpty()) {
            p.setFont(f.small);
            p.setPen(PanelStyle::secondary(pal));
            p.drawText(QRect(inner.left(), y, inner.width(), f.smallLine), Qt::AlignLeft | Qt::AlignVCenter, row.detail);
            y += f.smallLine + 2;
        }
        if (!row.segments.empty())
            paintLegend(p, row, QRect(inner.left(), y + 4, inner.width(), legendHeight(row)));
        break;
    }
    case Kind::columns: {
        labelAndValue(row.value, PanelStyle::secondary(pal));
        paintColumns(p, row, QRectF(inner.left(), r.top() + 2 + f.line + 4, inner.width(), PanelStyle::columnsHeight));
        break;
    }
    case Kind::trail: {
        int y = r.top();
        if (!row.value.isEmpty()) {
            p.setFont(f.small);
            p.setPen(PanelStyle::secondary(pal));
            p.drawText(QRect(inner.left(), y, inner.width(), f.smallLine), Qt::AlignLeft | Qt::AlignVCenter, row.value);
            y += f.smallLine + 2;
        }
        paintTrail(p, row, QRectF(inner.left(), y, inner.width(), PanelStyle::trailHeight));
        break;
    }
    case Kind::process: {
        p.setFont(f.base);
        const int valueWidth = fontMetrics().horizontalAdvance(row.value);
        const int moreWidth = highlighted ? fontMetrics().horizontalAdvance(moreGlyph) + 10 : 0;
        const QRect box(inner.left(), r.top(), inner.width(), r.height());
        p.setPen(PanelStyle::text(pal));
        p.drawText(box.adjusted(0, 0, -valueWidth - moreWidth - 10, 0), Qt::AlignLeft | Qt::AlignVCenter,
                   fontMetrics().elidedText(row.label, Qt::ElideRight, box.width() - valueWidth - moreWidth - 10));
        p.setPen(PanelStyle::secondary(pal));
        p.drawText(box.adjusted(0, 0, -moreWidth, 0), Qt::AlignRight | Qt::AlignVCenter, row.value);
        if (highlighted)
            p.drawText(box, Qt::AlignRight | Qt::AlignVCenter, moreGlyph);
        break;
    }
    case Kind::link: {
        p.setFont(f.base);
        p.setPen(row.color == PartColor::foreground ? PanelStyle::text(pal) : PanelStyle::color(row.color, pal));
        p.drawText(inner.adjusted(0, 7, -16, -7), Qt::AlignLeft | Qt::AlignVCenter | Qt::TextWordWrap, row.value);
        if (row.target) {
            p.setPen(PanelStyle::secondary(pal));
            p.drawText(inner, Qt::AlignRight | Qt::AlignVCenter, QStringLiteral("›"));
        }
        break;
    }
    case Kind::tile: {
        const int textLeft = inner.left() + symbolBox + 10;
        if (!row.symbol.isEmpty())
            Symbols::draw(p, row.symbol, QRectF(inner.left(), r.center().y() - symbolBox / 2.0, symbolBox, symbolBox),
                          PanelStyle::text(pal), Symbols::Style::palette);
        const QRectF trailBox(inner.right() - tileTrailWidth, r.top() + 8, tileTrailWidth, r.height() - 16);
        const bool hasTrail = !row.series.empty();
        if (hasTrail)
            paintTrail(p, row, trailBox);
        const int valueRight = hasTrail ? int(trailBox.left()) - 10 : inner.right();
        QFont bold = f.base;
        bold.setWeight(QFont::DemiBold);
        p.setFont(bold);
        p.setPen(PanelStyle::text(pal));
        const QRect top(textLeft, r.top() + 6, valueRight - textLeft, f.line);
        p.drawText(top, Qt::AlignLeft | Qt::AlignVCenter, row.label);
        p.setFont(f.base);
        p.drawText(top, Qt::AlignRight | Qt::AlignVCenter, row.value);
        const QRect join = joinRect(row, r);
        if (!join.isEmpty())
            paintJoin(p, join);
        p.setFont(f.small);
        p.setPen(PanelStyle::secondary(pal));
        const QRect bottom(textLeft, r.top() + 6 + f.line, (join.isEmpty() ? valueRight : join.left() - 8) - textLeft,
                           f.smallLine);
        p.drawText(bottom, Qt::AlignLeft | Qt::AlignVCenter,
                   QFontMetrics(f.small).elidedText(row.detail, Qt::ElideRight, bottom.width()));
        break;
    }
    case Kind::note:
        p.setFont(f.small);
        p.setPen(PanelStyle::secondary(pal));
        p.drawText(inner.adjusted(0, 0, 0, -rowGap), Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap, row.value);
        break;
    case Kind::forecast: {
        const QRect box(inner.left(), r.top(), inner.width(), r.height() - rowGap);
        p.setFont(f.base);
        p.setPen(PanelStyle::text(pal));
        p.drawText(box, Qt::AlignLeft | Qt::AlignVCenter, row.label);
        const int symbolLeft = box.left() + forecastLabelWidth;
        if (!row.symbol.isEmpty())
            Symbols::draw(p, row.symbol, QRectF(symbolLeft, box.center().y() - symbolBox / 2.0, symbolBox, symbolBox),
                          PanelStyle::text(pal), Symbols::Style::palette);
        p.drawText(box, Qt::AlignRight | Qt::AlignVCenter, row.value);
        p.setFont(f.small);
        p.setPen(PanelStyle::secondary(pal));
        p.drawText(box.adjusted(forecastLabelWidth + symbolBox + 12, 0, 0, 0), Qt::AlignLeft | Qt::AlignVCenter,
                   row.detail);
        break;
    }
    case Kind::month: paintMonth(p, row, inner.adjusted(0, 0, 0, -rowGap)); break;
    case Kind::event: paintCalendarEvent(p, row, r); break;
    }
}

QRect PanelBody::joinRect(const PanelRow& row, const QRect& r) const
{
    if (row.joinURL.isEmpty() || (row.kind != Kind::event && row.kind != Kind::tile))
        return {};
    const QFontMetrics small(PanelStyle::smallFont(font()));
    const int w = small.horizontalAdvance(joinText) + 16;
    const int h = small.height() + 2;
    const int right = r.right() - PanelStyle::margin;
    const int top = row.kind == Kind::tile ? r.top() + 6 + fontMetrics().height()
                                           : r.top() + 2 + fontMetrics().height() + 1;
    return {right - w + 1, top, w, h};
}

void PanelBody::paintJoin(QPainter& p, const QRect& button) const
{
    const QPalette& pal = palette();
    p.setPen(Qt::NoPen);
    p.setBrush(pal.color(QPalette::Highlight));
    p.drawRoundedRect(QRectF(button), button.height() / 2.0, button.height() / 2.0);
    p.setBrush(Qt::NoBrush);
    QFont bold = PanelStyle::smallFont(font());
    bold.setWeight(QFont::DemiBold);
    p.setFont(bold);
    p.setPen(pal.color(QPalette::HighlightedText));
    p.drawText(button, Qt::AlignCenter, joinText);
}

void PanelBody::paintCalendarEvent(QPainter& p, const PanelRow& row, const QRect& r) const
{
    const QPalette& pal = palette();
    const RowFonts f = rowFonts();
    const QRect inner = r.adjusted(PanelStyle::margin, 0, -PanelStyle::margin, 0);
    const QColor swatch = row.swatch.isValid() ? row.swatch : PanelStyle::secondary(pal);
    p.setPen(Qt::NoPen);
    p.setBrush(swatch);
    p.drawRoundedRect(QRectF(inner.left(), r.top() + 3, swatchWidth, f.line + f.smallLine), swatchWidth / 2.0,
                      swatchWidth / 2.0);
    p.setBrush(Qt::NoBrush);

    const int left = inner.left() + swatchWidth + 8;
    p.setFont(f.base);
    const int valueWidth = fontMetrics().horizontalAdvance(row.value);
    const QRect top(left, r.top() + 2, inner.right() - left + 1, f.line);
    p.setPen(PanelStyle::secondary(pal));
    p.drawText(top, Qt::AlignRight | Qt::AlignVCenter, row.value);
    p.setPen(PanelStyle::text(pal));
    p.drawText(top.adjusted(0, 0, -valueWidth - 10, 0), Qt::AlignLeft | Qt::AlignVCenter,
               fontMetrics().elidedText(row.label, Qt::ElideRight, top.width() - valueWidth - 10));

    const QRect join = joinRect(row, r);
    if (!join.isEmpty())
        paintJoin(p, join);
    p.setFont(f.small);
    p.setPen(PanelStyle::secondary(pal));
    const QRect bottom(left, r.top() + 3 + f.line, (join.isEmpty() ? inner.right() + 1 : join.left() - 8) - left, f.smallLine);
    p.drawText(bottom, Qt::AlignLeft | Qt::AlignVCenter,
               QFontMetrics(f.small).elidedText(row.detail, Qt::ElideRight, bottom.width()));
}

void PanelBody::paintMonth(QPainter& p, const PanelRow& row, const QRect& box) const
{
    if (!row.month)
        return;
    const MonthGrid& grid = *row.month;
    const QPalette& pal = palette();
    const RowFonts f = rowFonts();
    QFont bold = f.base;
    bold.setWeight(QFont::DemiBold);
    p.setFont(bold);
    p.setPen(PanelStyle::text(pal));
    p.drawText(QRect(box.left(), box.top() + 2, box.width(), f.line), Qt::AlignLeft | Qt::AlignVCenter, row.label);

    const bool numbered = !grid.weeks.empty() && !grid.weeks.front().number.isEmpty();
    const double numberWidth = numbered ? 28.0 : 0.0;
    const double cell = (box.width() - numberWidth) / 7.0;
    const auto column = [&](int i, int y, int h) {
        return QRectF(box.left() + numberWidth + cell * i, y, cell, h);
    };
    int y = box.top() + f.line + 4;
    p.setFont(f.small);
    p.setPen(PanelStyle::secondary(pal));
    for (int i = 0; i < 7 && i < grid.weekdays.size(); ++i)
        p.drawText(column(i, y, f.smallLine), Qt::AlignCenter, grid.weekdays[i]);
    y += f.smallLine + 4;

    QColor faint = PanelStyle::secondary(pal);
    faint.setAlphaF(0.55f);
    for (const MonthGrid::Week& week : grid.weeks) {
        if (numbered) {
            p.setFont(f.small);
            p.setPen(faint);
            p.drawText(QRectF(box.left(), y, numberWidth - 6, monthCellHeight - 3.0), Qt::AlignRight | Qt::AlignVCenter,
                       week.number);
        }
        for (int i = 0; i < 7; ++i) {
            const MonthGrid::Day& day = week.days[size_t(i)];
            const QRectF c = column(i, y, monthCellHeight);
            const double d = monthCellHeight - 3.0;
            const QRectF disc(c.center().x() - d / 2, c.top() + 1, d, d);
            if (day.isToday) {
                p.setPen(Qt::NoPen);
                p.setBrush(pal.color(QPalette::Highlight));
                p.drawEllipse(disc);
                p.setBrush(Qt::NoBrush);
            }
            p.setFont(day.isToday ? bold : f.base);
            p.setPen(day.isToday ? pal.color(QPalette::HighlightedText)
                                 : day.inMonth ? PanelStyle::text(pal) : faint);
            p.drawText(disc.adjusted(0, -1, 0, -1), Qt::AlignCenter, day.text);
            if (day.hasEvents) {
                p.setPen(Qt::NoPen);
                p.setBrush(day.isToday ? pal.color(QPalette::HighlightedText) : PanelStyle::secondary(pal));
                p.drawEllipse(QPointF(c.center().x(), disc.bottom() - 3.5), 1.6, 1.6);
                p.setBrush(Qt::NoBrush);
            }
        }
        y += monthCellHeight;
    }
}

void PanelBody::paintBar(QPainter& p, const PanelRow& row, const QRectF& box) const
{
    const QPalette& pal = palette();
    QPainterPath clip;
    clip.addRoundedRect(box, box.height() / 2, box.height() / 2);
    p.save();
    p.setClipPath(clip);
    p.fillRect(box, PanelStyle::track(pal));
    if (row.segments.empty()) {
        p.fillRect(QRectF(box.left(), box.top(), box.width() * row.fraction, box.height()),
                   PanelStyle::color(row.color, pal));
    } else {
        double x = box.left();
        for (const PanelSegment& segment : row.segments) {
            const double w = box.width() * segment.fraction;
            if (segment.color != PartColor::foreground) // "free" is the empty track itself
                p.fillRect(QRectF(x, box.top(), w, box.height()), PanelStyle::color(segment.color, pal));
            x += w;
        }
    }
    p.restore();
}

void PanelBody::paintLegend(QPainter& p, const PanelRow& row, const QRect& box) const
{
    const QPalette& pal = palette();
    const QFont smallFont = PanelStyle::smallFont(font());
    const int small = QFontMetrics(smallFont).height();
    p.setFont(smallFont);
    const int column = box.width() / 2;
    for (size_t i = 0; i < row.segments.size(); ++i) {
        const PanelSegment& s = row.segments[i];
        const QRect cell(box.left() + int(i % 2) * column, box.top() + int(i / 2) * small, column - 8, small);
        const QColor dot = s.color == PartColor::foreground ? PanelStyle::track(pal) : PanelStyle::color(s.color, pal);
        p.setPen(Qt::NoPen);
        p.setBrush(dot);
        p.drawEllipse(QRectF(cell.left(), cell.center().y() - 3.5, 7, 7));
        p.setBrush(Qt::NoBrush);
        p.setPen(PanelStyle::secondary(pal));
        p.drawText(cell.adjusted(12, 0, 0, 0), Qt::AlignLeft | Qt::AlignVCenter, s.label);
        p.setPen(PanelStyle::text(pal));
        p.drawText(cell, Qt::AlignRight | Qt::AlignVCenter, s.value);
    }
}

void PanelBody::paintColumns(QPainter& p, const PanelRow& row, const QRectF& box) const
{
    const QPalette& pal = palette();
    const size_t n = row.segments.size();
    if (n == 0)
        return;
    const double slot = box.width() / double(n);
    const double w = std::max(2.0, std::min(slot - 3, 18.0));
    const QFont smallFont = PanelStyle::smallFont(font());
    const bool labelled = n <= 16;
    for (size_t i = 0; i < n; ++i) {
        const PanelSegment& s = row.segments[i];
        const QRectF column(box.left() + slot * double(i) + (slot - w) / 2, box.top(), w, box.height());
        QPainterPath clip;
        clip.addRoundedRect(column, std::min(3.0, w / 2), std::min(3.0, w / 2));
        p.save();
        p.setClipPath(clip);
        p.fillRect(column, PanelStyle::track(pal));
        const double h = column.height() * s.fraction;
        p.fillRect(QRectF(column.left(), column.bottom() - h, column.width(), h), PanelStyle::color(s.color, pal));
        p.restore();
        if (labelled) {
            p.setFont(smallFont);
            p.setPen(PanelStyle::secondary(pal));
            p.drawText(QRectF(box.left() + slot * double(i), box.bottom() + 1, slot, QFontMetrics(smallFont).height()),
                       Qt::AlignHCenter | Qt::AlignTop, s.label);
        }
    }
}

void PanelBody::paintTrail(QPainter& p, const PanelRow& row, const QRectF& box) const
{
    const QPalette& pal = palette();
    p.save();
    p.setPen(Qt::NoPen);
    p.setBrush(PanelStyle::track(pal));
    p.drawRoundedRect(box, 4, 4);
    QPainterPath clip;
    clip.addRoundedRect(box, 4, 4);
    p.setClipPath(clip);
    std::vector<std::vector<double>> series;
    for (const PanelSeries& s : row.series)
        series.push_back(lastValues(s.values));
    double maximum = row.trailMaximum;
    if (maximum <= 0) {
        for (size_t i = 0; i < series.size(); ++i)
            for (size_t j = 0; j < series[i].size(); ++j) {
                double v = series[i][j];
                if (row.trailStyle == PanelRow::TrailStyle::stacked && i > 0 && j < series[0].size())
                    v += series[0][j];
                maximum = std::max(maximum, v);
            }
        maximum = maximum > 0 ? maximum * 1.1 : 1;
    }
    const QRectF inner = box.adjusted(1, 2, -1, 0);
    switch (row.trailStyle) {
    case PanelRow::TrailStyle::line:
        for (size_t i = 0; i < series.size(); ++i)
            fillUnder(p, points(series[i], {}, inner, maximum, false), inner.bottom(),
                      PanelStyle::color(row.series[i].color, pal));
        break;
    case PanelRow::TrailStyle::stacked:
        for (size_t i = 0; i < series.size(); ++i) {
            const std::vector<double> base = i > 0 ? series[0] : std::vector<double>();
            const QPolygonF top = points(series[i], base, inner, maximum, false);
            const QPolygonF bottom = i > 0 ? points(series[0], {}, inner, maximum, false) : QPolygonF();
            if (i == 0) {
                fillUnder(p, top, inner.bottom(), PanelStyle::color(row.series[i].color, pal));
                continue;
            }
            QPolygonF area = top;
            for (auto it = bottom.rbegin(); it != bottom.rend(); ++it)
                area << *it;
            QColor fill = PanelStyle::color(row.series[i].color, pal);
            fill.setAlphaF(0.35f);
            p.setPen(Qt::NoPen);
            p.setBrush(fill);
            p.drawPolygon(area);
            p.setBrush(Qt::NoBrush);
            p.setPen(QPen(PanelStyle::color(row.series[i].color, pal), 1.3));
            p.drawPolyline(top);
        }
        break;
    case PanelRow::TrailStyle::mirrored: {
        const double mid = inner.center().y();
        const QRectF upper(inner.left(), inner.top(), inner.width(), mid - inner.top());
        const QRectF lower(inner.left(), mid, inner.width(), inner.bottom() - mid);
        if (!series.empty())
            fillUnder(p, points(series[0], {}, upper, maximum, false), mid, PanelStyle::color(row.series[0].color, pal));
        if (series.size() > 1)
            fillUnder(p, points(series[1], {}, lower, maximum, true), mid, PanelStyle::color(row.series[1].color, pal));
        p.setPen(QPen(PanelStyle::track(pal), 1));
        p.drawLine(QPointF(inner.left(), mid), QPointF(inner.right(), mid));
        break;
    }
    }
    p.restore();
}

} // namespace pulsebar
