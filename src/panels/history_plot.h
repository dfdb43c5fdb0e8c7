#pragma once

#include "core/config.h"
#include "history/history_range.h"
#include "history/history_series.h"
#include "menubar/menu_bar_part.h"
#include "panels/panel_model.h"

#include <QString>
#include <QStringList>
#include <QTimeZone>

#include <optional>
#include <vector>

namespace pulsebar {

// The geometry-free part of the history graph: which buckets join into runs, where the gaps are, how
// high the value axis goes and what its labels and the time labels say. HistoryGraph only maps these
// numbers to pixels.
namespace HistoryPlot {

// The texts that open the graph when there is nothing to draw.
inline const QString emptyMessage = QStringLiteral("No history yet. It builds up while Pulsebar is running.");

// The range switch: the stored ranges in order, with their labels "1H", "24H", "7D", "30D".
const std::vector<HistoryRange>& switchRanges();
QString rangeLabel(HistoryRange range);
// The range remembered under "panel.historyRange"; "hour" when the text names none of the switch's.
HistoryRange rangeFromPreference(const QString& text);

// One bucket of a filled area: the area spans lower … upper (lower is 0 unless the chart is stacked).
struct Sample {
    double time; // start of the bucket, seconds since 1970
    double lower;
    double upper;
    bool operator==(const Sample&) const = default;
};

// One metric's area, cut into runs at every gap: a bucket without a value, or a jump in time of more
// than one bucket (the store returns no row at all for a bucket in which nothing was recorded).
struct Area {
    HistoryMetric metric;
    std::vector<std::vector<Sample>> runs;
};

struct Plot {
    double start = 0; // the left edge: now − the range's span
    double end = 0;   // now
    double bucket = 0;
    double maximum = 1; // top of the value axis
    std::vector<Area> areas;
    bool isEmpty() const; // no metric has a single value
};

Plot plot(const HistorySeries& series, const HistoryChart& chart, HistoryRange range, double now);

// A round top for the value axis at or above the largest value: 100 for percentages, else 1, 2 or 5
// times a power of ten (never below a small floor, so an idle disk does not fill the chart).
double niceMaximum(double largest, GraphUnit unit);

// A value in the chart's unit, as the panels write it.
QString valueText(double value, GraphUnit unit, const Config& config);

struct TimeTick {
    double time;
    QString label;
    bool operator==(const TimeTick&) const = default;
};
// Labels at round times inside [start, end]: quarter hours for 1H, six hours for 24H, days for 7D,
// weeks for 30D, in the given zone.
std::vector<TimeTick> timeTicks(HistoryRange range, double start, double end, const QTimeZone& zone);

// What hovering at `time` shows: the bucket's time and one line per metric, or that nothing was recorded.
struct Hover {
    double bucketStart = 0;
    QString title;
    QStringList lines;
};
Hover hoverAt(const HistorySeries& series, const HistoryChart& chart, HistoryRange range, double time,
              const Config& config, const QTimeZone& zone);

QString metricLabel(HistoryMetric metric);
PartColor metricColor(HistoryMetric metric);

} // namespace HistoryPlot

} // namespace pulsebar
