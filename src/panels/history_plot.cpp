#include "panels/history_plot.h"

#include "core/fmt.h"

#include <QDateTime>

#include <algorithm>
#include <cmath>

namespace pulsebar::HistoryPlot {

namespace {

QDateTime at(double time, const QTimeZone& zone)
{
    return QDateTime::fromMSecsSinceEpoch(qint64(time * 1000.0), zone);
}

double seconds(const QDateTime& date)
{
    return double(date.toMSecsSinceEpoch()) / 1000.0;
}

const std::vector<std::optional<double>>* valuesOf(const HistorySeries& series, HistoryMetric metric)
{
    const auto found = series.values.find(metric);
    return found == series.values.end() ? nullptr : &found->second;
}

std::optional<double> valueAt(const HistorySeries& series, HistoryMetric metric, size_t index)
{
    const auto* values = valuesOf(series, metric);
    if (!values || index >= values->size())
        return std::nullopt;
    return (*values)[index];
}

} // namespace

const std::vector<HistoryRange>& switchRanges()
{
    static const std::vector<HistoryRange> ranges{HistoryRange::hour, HistoryRange::day, HistoryRange::week,
                                                  HistoryRange::month};
    return ranges;
}

QString rangeLabel(HistoryRange range)
{
    switch (range) {
    case HistoryRange::live:
    case HistoryRange::hour: return QStringLiteral("1H");
    case HistoryRange::day: return QStringLiteral("24H");
    case HistoryRange::week: return QStringLiteral("7D");
    case HistoryRange::month: return QStringLiteral("30D");
    }
    return {};
}

HistoryRange rangeFromPreference(const QString& text)
{
    for (HistoryRange range : switchRanges())
        if (enumName(range) == text)
            return range;
    return HistoryRange::hour;
}

bool Plot::isEmpty() const
{
    return std::all_of(areas.begin(), areas.end(), [](const Area& a) { return a.runs.empty(); });
}

Plot plot(const HistorySeries& series, const HistoryChart& chart, HistoryRange range, double now)
{
    Plot out;
    const HistoryRangeShape shape = historyRangeShape(range);
    out.end = now;
    out.start = now - double(shape.span);
    out.bucket = series.bucket > 0 ? series.bucket : double(shape.width);
    std::vector<double> base(series.times.size(), 0.0);
    double largest = 0;
    for (HistoryMetric metric : chart.metrics) {
        Area area{metric, {}};
        std::vector<Sample> run;
        double previousTime = 0;
        for (size_t i = 0; i < series.times.size(); ++i) {
            const double time = series.times[i];
            const std::optional<double> value = valueAt(series, metric, i);
            const bool joins = !run.empty() && time - previousTime <= out.bucket * 1.5;
            if (!value || !joins) {
                if (!run.empty())
                    area.runs.push_back(std::move(run));
                run.clear();
            }
            if (value) {
                const double lower = chart.stacked ? base[i] : 0.0;
                const double upper = lower + std::max(0.0, *value);
                run.push_back({time, lower, upper});
                largest = std::max(largest, upper);
                if (chart.stacked)
                    base[i] = upper;
            }
            previousTime = time;
        }
        if (!run.empty())
            area.runs.push_back(std::move(run));
        out.areas.push_back(std::move(area));
    }
    out.maximum = niceMaximum(largest, chart.unit);
    return out;
}

double niceMaximum(double largest, GraphUnit unit)
{
    if (unit == GraphUnit::percent)
        return 100;
    const double floor = unit == GraphUnit::bytesPerSecond ? 10e3 : unit == GraphUnit::temperature ? 50 : 10;
    const double target = std::max(largest, floor);
    const double power = std::pow(10.0, std::floor(std::log10(target)));
    for (double step : {1.0, 2.0, 5.0, 10.0})
        if (step * power >= target)
            return step * power;
    return 10 * power;
}

QString valueText(double value, GraphUnit unit, const Config& config)
{
    switch (unit) {
    case GraphUnit::percent: return Fmt::percent(value);
    case GraphUnit::bytesPerSecond: return Fmt::rate(value, config.bandwidthBits);
    case GraphUnit::temperature: return format(config.temperatureUnit, value, 0);
    case GraphUnit::rpm: return Fmt::number(value, 0) + QStringLiteral(" rpm");
    case GraphUnit::watts: return Fmt::number(value, 1) + QStringLiteral(" W");
    }
    return {};
}

std::vector<TimeTick> timeTicks(HistoryRange range, double start, double end, const QTimeZone& zone)
{
    std::vector<TimeTick> ticks;
    QDateTime first = at(start, zone);
    QString format;
    int stepSeconds = 0;
    int stepDays = 0;
    switch (range) {
    case HistoryRange::live:
    case HistoryRange::hour:
        first = QDateTime(first.date(), QTime(first.time().hour(), first.time().minute() / 15 * 15), zone);
        stepSeconds = 15 * 60;
        format = QStringLiteral("HH:mm");
        break;
    case HistoryRange::day:
        first = QDateTime(first.date(), QTime(first.time().hour() / 6 * 6, 0), zone);
        stepSeconds = 6 * 3600;
        format = QStringLiteral("HH:mm");
        break;
    case HistoryRange::week:
        first = QDateTime(first.date(), QTime(0, 0), zone);
        stepDays = 1;
        format = QStringLiteral("ddd");
        break;
    case HistoryRange::month:
        first = QDateTime(first.date(), QTime(0, 0), zone);
        stepDays = 7;
        format = QStringLiteral("d MMM");
        break;
    }
    const QLocale locale = QLocale::c();
    for (QDateTime tick = first; seconds(tick) <= end;
         tick = stepDays ? tick.addDays(stepDays) : tick.addSecs(stepSeconds)) {
        if (seconds(tick) >= start)
            ticks.push_back({seconds(tick), locale.toString(tick, format)});
    }
    return ticks;
}

Hover hoverAt(const HistorySeries& series, const HistoryChart& chart, HistoryRange range, double time,
              const Config& config, const QTimeZone& zone)
{
    const double bucket = series.bucket > 0 ? series.bucket : double(historyRangeShape(range).width);
    const double bucketStart = std::floor(time / bucket) * bucket;
    const bool wide = range == HistoryRange::week || range == HistoryRange::month;
    Hover hover;
    hover.bucketStart = bucketStart;
    hover.title = QLocale::c().toString(at(bucketStart, zone), wide ? QStringLiteral("ddd d MMM, HH:mm")
                                                                    : QStringLiteral("HH:mm"));
    const auto found = std::find(series.times.begin(), series.times.end(), bucketStart);
    bool any = false;
    for (HistoryMetric metric : chart.metrics) {
        std::optional<double> value;
        if (found != series.times.end())
            value = valueAt(series, metric, size_t(found - series.times.begin()));
        any = any || value.has_value();
        hover.lines << metricLabel(metric) + QStringLiteral(" ") +
                           (value ? valueText(*value, chart.unit, config) : QStringLiteral("—"));
    }
    if (!any)
        hover.lines = QStringList{QStringLiteral("Nothing recorded")};
    return hover;
}

QString metricLabel(HistoryMetric metric)
{
    switch (metric) {
    case HistoryMetric::cpuUser: return QStringLiteral("User");
    case HistoryMetric::cpuSystem: return QStringLiteral("System");
    case HistoryMetric::gpu: return QStringLiteral("GPU");
    case HistoryMetric::memoryPressure: return QStringLiteral("Pressure");
    case HistoryMetric::memoryUsed: return QStringLiteral("Used");
    case HistoryMetric::diskRead: return QStringLiteral("Read");
    case HistoryMetric::diskWrite: return QStringLiteral("Write");
    case HistoryMetric::download: return QStringLiteral("Download");
    case HistoryMetric::upload: return QStringLiteral("Upload");
    case HistoryMetric::temperature: return QStringLiteral("Temperature");
    case HistoryMetric::fan: return QStringLiteral("Fan");
    case HistoryMetric::battery: return QStringLiteral("Charge");
    case HistoryMetric::power: return QStringLiteral("Power");
    }
    return {};
}

PartColor metricColor(HistoryMetric metric)
{
    switch (metric) {
    case HistoryMetric::cpuUser: return PartColor::blue;
    case HistoryMetric::cpuSystem: return PartColor::red;
    case HistoryMetric::gpu: return PartColor::purple;
    case HistoryMetric::memoryPressure: return PartColor::green;
    case HistoryMetric::memoryUsed: return PartColor::blue;
    case HistoryMetric::diskRead: return PartColor::blue;
    case HistoryMetric::diskWrite: return PartColor::orange;
    case HistoryMetric::download: return PartColor::blue;
    case HistoryMetric::upload: return PartColor::orange;
    case HistoryMetric::temperature: return PartColor::orange;
    case HistoryMetric::fan: return PartColor::blue;
    case HistoryMetric::battery: return PartColor::green;
    case HistoryMetric::power: return PartColor::purple;
    }
    return PartColor::blue;
}

} // namespace pulsebar::HistoryPlot
