#include "panels/history_plot.h"

#include <gtest/gtest.h>

using namespace pulsebar;
using Sample = HistoryPlot::Sample;

namespace {

constexpr double now = 1773481260; // 09:41 UTC

HistorySeries series(std::vector<double> times, std::map<HistoryMetric, std::vector<std::optional<double>>> values)
{
    return {std::move(times), std::move(values), 10};
}

} // namespace

TEST(HistoryPlot, AbsentBucketsAndMissingRowsSplitRunsAndStackedChartsAddUp)
{
    const double t = now - 100;
    // A null at t+20 and no row at all between t+30 and t+60 (the computer slept).
    const HistorySeries s = series({t, t + 10, t + 20, t + 30, t + 60, t + 70},
                                   {{HistoryMetric::cpuUser, {10, 20, std::nullopt, 30, 40, 50}},
                                    {HistoryMetric::cpuSystem, {1, 2, 3, 4, std::nullopt, 6}}});
    const HistoryChart stacked{"CPU", {HistoryMetric::cpuUser, HistoryMetric::cpuSystem}, GraphUnit::percent, true};
    const HistoryPlot::Plot plot = HistoryPlot::plot(s, stacked, HistoryRange::hour, now);
    EXPECT_EQ(plot.start, now - 3600);
    EXPECT_EQ(plot.maximum, 100);
    ASSERT_EQ(plot.areas.size(), 2u);
    const std::vector<std::vector<Sample>> user{{{t, 0, 10}, {t + 10, 0, 20}}, {{t + 30, 0, 30}}, {{t + 60, 0, 40}, {t + 70, 0, 50}}};
    EXPECT_EQ(plot.areas[0].runs, user);
    // System stands on user where both exist, and on nothing where user is absent.
    const std::vector<std::vector<Sample>> system{{{t, 10, 11}, {t + 10, 20, 22}, {t + 20, 0, 3}, {t + 30, 30, 34}},
                                                  {{t + 70, 50, 56}}};
    EXPECT_EQ(plot.areas[1].runs, system);
    EXPECT_FALSE(plot.isEmpty());

    const HistoryChart separate{"CPU", {HistoryMetric::cpuSystem}, GraphUnit::percent, false};
    EXPECT_TRUE(HistoryPlot::plot(series({}, {}), separate, HistoryRange::month, now).isEmpty());
}

TEST(HistoryPlot, ValueAxisTopsAreRound)
{
    const struct {
        double largest;
        GraphUnit unit;
        double top;
    } cases[] = {{3, GraphUnit::percent, 100},          {250, GraphUnit::percent, 100},
                 {0, GraphUnit::bytesPerSecond, 10e3},  {1.2e6, GraphUnit::bytesPerSecond, 2e6},
                 {4.9e6, GraphUnit::bytesPerSecond, 5e6}, {61, GraphUnit::temperature, 100},
                 {2400, GraphUnit::rpm, 5000},           {7.5, GraphUnit::watts, 10}};
    for (const auto& c : cases)
        EXPECT_EQ(HistoryPlot::niceMaximum(c.largest, c.unit), c.top) << c.largest;
}

TEST(HistoryPlot, TimeLabelsFitTheRange)
{
    const QTimeZone utc = QTimeZone::utc();
    auto labels = [&](HistoryRange range) {
        QStringList out;
        const double span = double(historyRangeShape(range).span);
        for (const HistoryPlot::TimeTick& tick : HistoryPlot::timeTicks(range, now - span, now, utc))
            out << tick.label;
        return out;
    };
    EXPECT_EQ(labels(HistoryRange::hour), (QStringList{"08:45", "09:00", "09:15", "09:30"}));
    EXPECT_EQ(labels(HistoryRange::day), (QStringList{"12:00", "18:00", "00:00", "06:00"}));
    EXPECT_EQ(labels(HistoryRange::week), (QStringList{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"}));
    EXPECT_EQ(labels(HistoryRange::month), (QStringList{"19 Feb", "26 Feb", "5 Mar", "12 Mar"}));
}

TEST(HistoryPlot, HoverNamesTheBucketAndItsValuesOrThatNothingWasRecorded)
{
    const double bucket = now - 600; // 09:31:00
    const HistorySeries s = series({bucket}, {{HistoryMetric::download, {2.5e6}}, {HistoryMetric::upload, {std::nullopt}}});
    const HistoryChart chart{"Network", {HistoryMetric::download, HistoryMetric::upload}, GraphUnit::bytesPerSecond, false};
    Config config;
    const HistoryPlot::Hover hover = HistoryPlot::hoverAt(s, chart, HistoryRange::hour, bucket + 7, config, QTimeZone::utc());
    EXPECT_EQ(hover.bucketStart, bucket);
    EXPECT_EQ(hover.title, "09:31");
    EXPECT_EQ(hover.lines, (QStringList{"Download 2.4 MB/s", "Upload —"}));
    config.bandwidthBits = true;
    EXPECT_EQ(HistoryPlot::hoverAt(s, chart, HistoryRange::hour, bucket + 3, config, QTimeZone::utc()).lines.first(),
              "Download 20.0 Mb/s");
    EXPECT_EQ(HistoryPlot::hoverAt(s, chart, HistoryRange::hour, bucket - 5, config, QTimeZone::utc()).lines,
              QStringList{"Nothing recorded"});
}

TEST(HistoryPlot, RangePreferenceReadsTheSwitchRangesOnly)
{
    EXPECT_EQ(HistoryPlot::rangeFromPreference("week"), HistoryRange::week);
    EXPECT_EQ(HistoryPlot::rangeFromPreference("live"), HistoryRange::hour);
    EXPECT_EQ(HistoryPlot::rangeFromPreference("bogus"), HistoryRange::hour);
    QStringList labels;
    for (HistoryRange range : HistoryPlot::switchRanges())
        labels << HistoryPlot::rangeLabel(range);
    EXPECT_EQ(labels, (QStringList{"1H", "24H", "7D", "30D"}));
}
