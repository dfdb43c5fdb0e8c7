#include "sky/astronomy_monitor.h"
#include "weather/weather_report.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <benchmark/benchmark.h>

using namespace pulsebar;

// A 14-day forecast the size the service sends it: the fixture's answer with its hourly block grown to
// the 336 hours of 14 days.
QByteArray fullForecast()
{
    QFile file(QStringLiteral(PULSEBAR_FIXTURES "/weather/forecast.json"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QJsonObject answer = QJsonDocument::fromJson(file.readAll()).object();
    QJsonObject hourly = answer[QStringLiteral("hourly")].toObject();
    const QDateTime first = QDateTime::fromString(hourly[QStringLiteral("time")].toArray().first().toString(),
                                                  QStringLiteral("yyyy-MM-dd'T'HH:mm"));
    for (const QString& key : hourly.keys()) {
        const QJsonArray sample = hourly[key].toArray();
        QJsonArray grown;
        for (int hour = 0; hour < 14 * 24; ++hour)
            grown.append(key == QStringLiteral("time")
                             ? QJsonValue(first.addSecs(hour * 3600).toString(QStringLiteral("yyyy-MM-dd'T'HH:mm")))
                             : sample[hour % sample.size()]);
        hourly[key] = grown;
    }
    answer[QStringLiteral("hourly")] = hourly;
    return QJsonDocument(answer).toJson(QJsonDocument::Compact);
}

static void BM_WeatherParseForecast(benchmark::State& state)
{
    const QByteArray body = fullForecast();
    if (body.isEmpty()) {
        state.SkipWithError("no forecast fixture");
        return;
    }
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
