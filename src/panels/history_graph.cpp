#include "panels/history_graph.h"

#include "core/preferences.h"
#include "history/history_store.h"
#include "panels/history_plot.h"
#include "panels/panel_style.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPointer>
#include <QToolButton>

#include <algorithm>
#include <cmath>

namespace pulsebar {

namespace {

const QString rangeKey = QStringLiteral("panel.historyRange");
constexpr int switchHeight = 30;
constexpr int chartGap = 8;

} // namespace

HistoryGraph::HistoryGraph(Loader loader, Preferences* preferences, QWidget* parent)
    : QWidget(parent), m_loader(std::move(loader)), m_preferences(preferences), m_switch(new QButtonGroup(this))
{
    setMouseTracking(true);
    auto* top = new QHBoxLayout;
    top->setContentsMargins(PanelStyle::margin, 4, PanelStyle::margin, 0);
    top->setSpacing(2);
    auto* heading = new QLabel(QStringLiteral("History"), this);
    heading->setFont(PanelStyle::headingFont(font()));
    heading->setForegroundRole(QPalette::PlaceholderText);
    top->addWidget(heading);
    top->addStretch(1);
    if (m_preferences)
        m_range = HistoryPlot::rangeFromPreference(m_preferences->value(rangeKey).toString());
    for (HistoryRange range : HistoryPlot::switchRanges()) {
        auto* button = new QToolButton(this);
        button->setText(HistoryPlot::rangeLabel(range));
        button->setCheckable(true);
        button->setAutoRaise(true);
        button->setChecked(range == m_range);
        button->setAccessibleName(QStringLiteral("History range ") + HistoryPlot::rangeLabel(range));
        button->setFocusPolicy(Qt::StrongFocus);
        m_switch->addButton(button, int(range));
        top->addWidget(button);
    }
    m_switch->setExclusive(true);
    connect(m_switch, &QButtonGroup::idClicked, this, [this](int id) { setRange(HistoryRange(id)); });
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(top);
    layout->addStretch(1);
}

void HistoryGraph::setRange(HistoryRange range)
{
    if (auto* button = m_switch->button(int(range)))
        button->setChecked(true);
    if (range == m_range)
        return;
    m_range = range;
    if (m_preferences)
        m_preferences->setValue(rangeKey, enumName(range));
    reload();
}

void HistoryGraph::setCharts(const std::vector<HistoryChart>& charts, double now, const Config& config)
{
    const bool changed = charts != m_charts;
    m_charts = charts;
    m_config = config;
    m_now = now;
    setVisible(!charts.empty());
    if (changed) {
        m_series = {};
        updateGeometry();
        reload();
    } else if (now - m_loadedAt >= double(HistoryStore::flushPeriod().count()) / 1000.0) {
        reload();
    }
    update();
}

void HistoryGraph::reload()
{
    std::vector<HistoryMetric> metrics;
    for (const HistoryChart& chart : m_charts)
        for (HistoryMetric metric : chart.metrics)
            if (std::find(metrics.begin(), metrics.end(), metric) == metrics.end())
                metrics.push_back(metric);
    m_loadedAt = m_now;
    if (metrics.empty() || !m_loader) {
        m_series = {};
        update();
        return;
    }
    m_loading = true;
    const int generation = ++m_generation;
    const HistoryRange range = m_range;
    QPointer<HistoryGraph> self(this);
    m_loader(metrics, range, this, [self, generation](HistorySeries series) {
        if (!self || generation != self->m_generation)
            return;
        self->m_series = std::move(series);
        self->m_loading = false;
        self->update();
    });
}

int HistoryGraph::chartsTop() const
{
    return switchHeight + 4;
}

QSize HistoryGraph::sizeHint() const
{
    const int title = QFontMetrics(PanelStyle::smallFont(font())).height();
    const int each = title + PanelStyle::chartHeight + title + chartGap;
    return {PanelStyle::width, chartsTop() + int(m_charts.size()) * each + 4};
}

QRect HistoryGraph::chartRect(size_t index) const
{
    const int small = QFontMetrics(PanelStyle::smallFont(font())).height();
    const int each = small + PanelStyle::chartHeight + small + chartGap;
    // The value axis is as wide as its widest label ("5000 rpm", "9.5 MB/s").
    const QFontMetrics metrics(PanelStyle::smallFont(font()));
    const HistoryChart& chart = m_charts[index];
    const double top = HistoryPlot::plot(m_series, chart, m_range, m_now).maximum;
    int labels = 36;
    for (double value : {top, top / 2})
        labels = std::max(labels, metrics.horizontalAdvance(HistoryPlot::valueText(value, chart.unit, m_config)) + 8);
    return {PanelStyle::margin + labels, chartsTop() + int(index) * each + small,
            PanelStyle::width - 2 * PanelStyle::margin - labels, PanelStyle::chartHeight};
}

double HistoryGraph::timeAt(int x, const QRect& chart) const
{
    const HistoryRangeShape shape = historyRangeShape(m_range);
    const double start = m_now - double(shape.span);
    return start + double(x - chart.left()) / chart.width() * double(shape.span);
}

std::optional<QStringList> HistoryGraph::hoverTextAt(QPoint point) const
{
    for (size_t i = 0; i < m_charts.size(); ++i) {
        const QRect chart = chartRect(i);
        if (!chart.contains(point))
            continue;
        const HistoryPlot::Hover hover =
            HistoryPlot::hoverAt(m_series, m_charts[i], m_range, timeAt(point.x(), chart), m_config, m_zone);
        return QStringList{hover.title} + hover.lines;
    }
    return std::nullopt;
}

void HistoryGraph::mouseMoveEvent(QMouseEvent* event)
{
    m_pointer = event->position().toPoint();
    update();
}

void HistoryGraph::leaveEvent(QEvent*)
{
    m_pointer.reset();
    update();
}

void HistoryGraph::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QPalette& pal = palette();
    const QFont smallFont = PanelStyle::smallFont(font());
    const QFontMetrics small(smallFont);
    p.setFont(smallFont);
    const HistoryRangeShape shape = historyRangeShape(m_range);
    const double start = m_now - double(shape.span);
    const std::vector<HistoryPlot::TimeTick> ticks = HistoryPlot::timeTicks(m_range, start, m_now, m_zone);

    for (size_t i = 0; i < m_charts.size(); ++i) {
        const HistoryChart& chart = m_charts[i];
        const QRect box = chartRect(i);
        const HistoryPlot::Plot plot = HistoryPlot::plot(m_series, chart, m_range, m_now);
        auto xOf = [&](double t) { return box.left() + (t - plot.start) / (plot.end - plot.start) * box.width(); };
        auto yOf = [&](double v) { return box.bottom() - std::clamp(v / plot.maximum, 0.0, 1.0) * box.height(); };

        // Title and legend above the chart.
        const QRect titleRow(PanelStyle::margin, box.top() - small.height(), PanelStyle::width - 2 * PanelStyle::margin,
                             small.height());
        p.setPen(PanelStyle::text(pal));
        p.drawText(titleRow, Qt::AlignLeft | Qt::AlignVCenter, chart.title);
        int legendRight = titleRow.right();
        for (auto it = chart.metrics.rbegin(); it != chart.metrics.rend() && chart.metrics.size() > 1; ++it) {
            const QString label = HistoryPlot::metricLabel(*it);
            const int w = small.horizontalAdvance(label);
            p.setPen(PanelStyle::secondary(pal));
            p.drawText(QRect(legendRight - w, titleRow.top(), w, titleRow.height()), Qt::AlignVCenter, label);
            p.setPen(Qt::NoPen);
            p.setBrush(PanelStyle::color(HistoryPlot::metricColor(*it), pal));
            p.drawEllipse(QRectF(legendRight - w - 11, titleRow.center().y() - 3.5, 7, 7));
            p.setBrush(Qt::NoBrush);
            legendRight -= w + 20;
        }

        // Grid and value axis.
        p.setPen(Qt::NoPen);
        p.setBrush(PanelStyle::track(pal));
        p.drawRoundedRect(QRectF(box), 4, 4);
        p.setBrush(Qt::NoBrush);
        for (double fraction : {0.5, 1.0}) {
            const double y = yOf(plot.maximum * fraction);
            p.setPen(QPen(PanelStyle::track(pal), 1, Qt::DashLine));
            p.drawLine(QPointF(box.left(), y), QPointF(box.right(), y));
            p.setPen(PanelStyle::secondary(pal));
            // Kept inside the chart's height, so the top label never meets the title row above.
            p.drawText(QRectF(PanelStyle::margin, std::max(double(box.top()), y - small.height() / 2.0),
                              box.left() - PanelStyle::margin - 6, small.height()),
                       Qt::AlignRight | Qt::AlignVCenter,
                       HistoryPlot::valueText(plot.maximum * fraction, chart.unit, m_config));
        }
        p.setPen(PanelStyle::secondary(pal));
        p.drawText(QRectF(PanelStyle::margin, box.bottom() - small.height(), box.left() - PanelStyle::margin - 6,
                          small.height()),
                   Qt::AlignRight | Qt::AlignBottom, HistoryPlot::valueText(0, chart.unit, m_config));

        // Areas: each run is one filled shape; a run of one bucket is a bar one bucket wide.
        p.save();
        p.setClipRect(box);
        for (const HistoryPlot::Area& area : plot.areas) {
            const QColor color = PanelStyle::color(HistoryPlot::metricColor(area.metric), pal);
            QColor fill = color;
            fill.setAlphaF(chart.stacked || chart.metrics.size() == 1 ? 0.45f : 0.25f);
            for (const auto& run : area.runs) {
                QPolygonF upper;
                QPolygonF lower;
                for (const HistoryPlot::Sample& s : run) {
                    upper << QPointF(xOf(s.time), yOf(s.upper));
                    lower << QPointF(xOf(s.time), yOf(s.lower));
                }
                if (run.size() == 1) {
                    const double w = std::max(1.5, xOf(run[0].time + plot.bucket) - xOf(run[0].time));
                    p.fillRect(QRectF(upper[0].x(), upper[0].y(), w, lower[0].y() - upper[0].y()), fill);
                    continue;
                }
                QPolygonF shape = upper;
                for (auto it = lower.rbegin(); it != lower.rend(); ++it)
                    shape << *it;
                p.setPen(Qt::NoPen);
                p.setBrush(fill);
                p.drawPolygon(shape);
                p.setBrush(Qt::NoBrush);
                p.setPen(QPen(color, 1.2));
                p.drawPolyline(upper);
            }
        }
        p.restore();

        // Time axis.
        p.setPen(PanelStyle::secondary(pal));
        for (const HistoryPlot::TimeTick& tick : ticks) {
            const double x = xOf(tick.time);
            p.setPen(QPen(PanelStyle::track(pal), 1));
            p.drawLine(QPointF(x, box.bottom()), QPointF(x, box.bottom() + 3));
            p.setPen(PanelStyle::secondary(pal));
            const int w = small.horizontalAdvance(tick.label);
            const double left = std::clamp(x - w / 2.0, double(box.left()), double(box.right() - w));
            p.drawText(QRectF(left, box.bottom() + 2, w + 1, small.height()), Qt::AlignLeft | Qt::AlignTop, tick.label);
        }

        if (plot.isEmpty() && !m_loading) {
            p.setPen(PanelStyle::secondary(pal));
            p.drawText(box.adjusted(8, 4, -8, -4), Qt::AlignCenter | Qt::TextWordWrap, HistoryPlot::emptyMessage);
        }

        // Hover: a line at the bucket and a label with its time and values.
        if (m_pointer && box.contains(*m_pointer) && !plot.isEmpty()) {
            const HistoryPlot::Hover hover =
                HistoryPlot::hoverAt(m_series, chart, m_range, timeAt(m_pointer->x(), box), m_config, m_zone);
            const double x = xOf(hover.bucketStart);
            p.setPen(QPen(PanelStyle::text(pal), 1));
            p.drawLine(QPointF(x, box.top()), QPointF(x, box.bottom()));
            const QStringList lines = QStringList{hover.title} + hover.lines;
            int w = 0;
            for (const QString& line : lines)
                w = std::max(w, small.horizontalAdvance(line));
            QRectF label(0, box.top() + 4, w + 12, small.height() * lines.size() + 6);
            label.moveLeft(x + 6 + label.width() <= box.right() ? x + 6 : x - 6 - label.width());
            p.setPen(PanelStyle::track(pal));
            p.setBrush(pal.color(QPalette::ToolTipBase));
            p.drawRoundedRect(label, 4, 4);
            p.setPen(pal.color(QPalette::ToolTipText));
            for (int l = 0; l < lines.size(); ++l)
                p.drawText(QRectF(label.left() + 6, label.top() + 3 + l * small.height(), w, small.height()),
                           Qt::AlignLeft | Qt::AlignVCenter, lines[l]);
        }
    }
}

} // namespace pulsebar
