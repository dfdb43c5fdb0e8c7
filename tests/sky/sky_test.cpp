#include "sky/astronomy_monitor.h"
#include "sky/fuzzy_clock.h"
#include "sky/sun_calc.h"

#include <gtest/gtest.h>

using namespace pulsebar;

namespace {

double utc(int year, int month, int day, int hour, int minute)
{
    return double(QDateTime(QDate(year, month, day), QTime(hour, minute), QTimeZone::utc()).toMSecsSinceEpoch()) / 1000;
}

const WeatherLocation berlin{QStringLiteral("Berlin"), 52.52, 13.405};
const WeatherLocation tromso{QStringLiteral("Tromsø"), 69.6492, 18.9553};

} // namespace

TEST(FuzzyClock, Words)
{
    const struct {
        int hour, minute;
        const char* words;
    } cases[] = {
        {23, 58, "midnight"},          {0, 2, "midnight"},         {0, 33, "twenty five to one"},
        {12, 0, "twelve o'clock"},     {14, 32, "half past two"},  {14, 33, "twenty five to three"},
        {9, 57, "five to ten"},        {9, 58, "ten o'clock"},     {11, 58, "twelve o'clock"},
        {7, 12, "ten past seven"},     {7, 13, "quarter past seven"}, {18, 28, "half past six"},
        {21, 47, "quarter to ten"},    {0, 10, "ten past twelve"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(FuzzyClock::string(QDateTime(QDate(2026, 3, 14), QTime(c.hour, c.minute), QTimeZone::utc())), c.words)
            << c.hour << ":" << c.minute;
}

TEST(SunCalc, PhaseSymbols)
{
    const struct {
        double phase;
        const char* symbol;
    } cases[] = {
        {0, "moonphase.new.moon"},       {0.029, "moonphase.new.moon"},        {0.03, "moonphase.waxing.crescent"},
        {0.25, "moonphase.first.quarter"}, {0.28, "moonphase.waxing.gibbous"}, {0.5, "moonphase.full.moon"},
        {0.53, "moonphase.waning.gibbous"}, {0.75, "moonphase.last.quarter"}, {0.78, "moonphase.waning.crescent"},
        {0.969, "moonphase.waning.crescent"}, {0.975, "moonphase.new.moon"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(SunCalc::phaseSymbol(c.phase), c.symbol) << c.phase;
}

TEST(SunCalc, PolarSummerHasNoSunsetAndNoDayLength)
{
    const auto snapshot = AstronomyMonitor::compute(tromso, utc(2026, 6, 21, 12, 0), QTimeZone("Europe/Oslo"));
    for (const char* absent : {"sunrise", "sunset", "civilDawn", "civilDusk", "nauticalDusk", "astronomicalDusk",
                               "blueHourStart", "blueHourEnd"})
        EXPECT_FALSE(snapshot.sun.event(absent)) << absent;
    // The sun still sinks below 6° at night, so the golden hour exists.
    EXPECT_TRUE(snapshot.sun.event("goldenHourStart"));
    EXPECT_FALSE(snapshot.dayLength());
    EXPECT_GT(snapshot.sunAltitude, 0);
}

TEST(AstronomyMonitor, RebuildsAtMostOnceAMinuteAndSearchesPhasesHourly)
{
    double clock = utc(2026, 3, 14, 9, 0);
    AstronomyMonitor monitor([&] { return clock; }, QTimeZone("Europe/Berlin"));
    monitor.update(std::nullopt);
    EXPECT_FALSE(monitor.snapshot()); // waits for a place

    const struct {
        const char* step;
        double advance;
        WeatherLocation place;
        double lastUpdate; // seconds after the start
        int phaseSearches;
    } steps[] = {
        {"first", 0, berlin, 0, 1},
        {"a minute exactly", 60, berlin, 0, 1},
        {"past a minute", 1, berlin, 61, 1},
        {"another place at once", 1, tromso, 62, 1},
        {"past an hour", 3600, tromso, 3662, 2},
    };
    const double start = clock;
    for (const auto& s : steps) {
        clock += s.advance;
        monitor.update(s.place);
        ASSERT_TRUE(monitor.snapshot()) << s.step;
        EXPECT_EQ(monitor.lastUpdate() - start, s.lastUpdate) << s.step;
        EXPECT_EQ(monitor.snapshot()->location, s.place) << s.step;
        EXPECT_EQ(monitor.phaseSearches(), s.phaseSearches) << s.step;
    }
}

TEST(AstronomyMonitor, NextSunEvent)
{
    double clock = 0;
    AstronomyMonitor monitor([&] { return clock; }, QTimeZone("Europe/Berlin"));
    // Berlin on 14 March 2026: sunrise about 05:20 UTC, sunset about 17:05 UTC.
    clock = utc(2026, 3, 14, 3, 0);
    monitor.update(berlin);
    const auto sun = monitor.snapshot()->sun;
    const double sunrise = *sun.event("sunrise"), sunset = *sun.event("sunset");
    EXPECT_NEAR(sunrise, utc(2026, 3, 14, 5, 20), 600);
    EXPECT_NEAR(sunset, utc(2026, 3, 14, 17, 5), 600);

    const auto tomorrow = *SunCalc::sunTimes(clock + 86400, berlin.latitude, berlin.longitude).event("sunrise");
    const struct {
        double now;
        bool isSunrise;
        double time;
    } cases[] = {{clock, true, sunrise}, {sunrise + 1, false, sunset}, {sunset + 1, true, tomorrow}};
    for (const auto& c : cases) {
        const auto next = monitor.nextSunEvent(c.now);
        ASSERT_TRUE(next);
        EXPECT_EQ(next->isSunrise, c.isSunrise);
        EXPECT_EQ(next->time, c.time);
    }

    // Midsummer inside the polar circle: nothing ahead.
    clock = utc(2026, 6, 21, 12, 0);
    monitor.update(tromso);
    EXPECT_FALSE(monitor.nextSunEvent(clock));
}
