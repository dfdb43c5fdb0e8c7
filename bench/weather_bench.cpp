#include "sky/astronomy_monitor.h"
#include "weather/weather_report.h"

#include <QFile>

#include <benchmark/benchmark.h>

using namespace pulsebar;

// The 14-day forecast as the service sends it (48 hourly entries), parsed into a report.
static void BM_WeatherParseForecast(benchmark::State& state)
{
    QFile file(QStringLiteral(PULSEBAR_FIXTURES "/weather/forecast.json"));
    if (!file.open(QIODevice::ReadOnly)) {
        state.SkipWithError("no forecast fixture");
        return;
    }
    const QByteArray body = file.readAll();
    const WeatherLocation place{QStringLiteral("Berlin"), 52.52, 13.42};
    for (auto _ : state) {
        auto parsed = WeatherParse::forecast(body, place, 0);
        benchmark::DoNotOptimize(parsed);
    }
    state.counters["bytes"] = double(body.size());
}
BENCHMARK(BM_WeatherParseForecast);

// One snapshot rebuild as the tick does it once a minute: positions, sun times and the moon-time search,
// with the phase search cached.
static void BM_AstronomySnapshotRebuild(benchmark::State& state)
{
    double clock = 1773481260;
    AstronomyMonitor monitor([&] { return clock; }, QTimeZone("Europe/Berlin"));
    const WeatherLocation place{QStringLiteral("Berlin"), 52.52, 13.42};
    monitor.update(place);
    for (auto _ : state) {
        clock += AstronomyMonitor::snapshotAge + 1;
        monitor.update(place);
        benchmark::DoNotOptimize(monitor.snapshot());
    }
    state.counters["phaseSearches"] = double(monitor.phaseSearches());
}
BENCHMARK(BM_AstronomySnapshotRebuild);

// The hourly step: the search for the next new and full moon.
static void BM_AstronomyPhaseSearch(benchmark::State& state)
{
    double t = 1773481260;
    for (auto _ : state) {
        benchmark::DoNotOptimize(SunCalc::nextPhases(t));
        t += 3600;
    }
}
BENCHMARK(BM_AstronomyPhaseSearch);
