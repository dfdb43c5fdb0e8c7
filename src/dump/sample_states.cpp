#include "dump/sample_states.h"

#include "dump/panel_images.h"
#include "sky/astronomy_panel_content.h"
#include "weather/weather_panel_content.h"

#include <cmath>

namespace pulsebar {

namespace {

constexpr double sampleTime = 1773481260; // 2026-03-14 09:41 UTC

// A trail of `count` values around `level`, wobbling so the graphs look like a live machine.
std::vector<double> trail(double level, double swing, int count = 120)
{
    std::vector<double> out;
    for (int i = 0; i < count; ++i)
        out.push_back(std::max(0.0, level + swing * std::sin(i * 0.9) * std::cos(i * 0.37)));
    return out;
}

MenuBarReadings idle()
{
    MenuBarReadings r;
    r.now = sampleTime;
    r.cpuUser = 3;
    r.cpuSystem = 2;
    r.cpuHistory = trail(5, 3);
    r.hasGPU = true;
    r.gpuUtilization = 2;
    r.gpuHistory = trail(2, 2);
    r.memoryPressure = 22;
    r.memoryPressureLevel = MemoryPressureLevel::normal;
    r.memoryUsed = 38;
    r.startupDiskUsed = 41;
    r.internetReachable = true;
    r.upload = 1200;
    r.download = 5400;
    r.uploadHistory = trail(1200, 900);
    r.downloadHistory = trail(5400, 4000);
    r.temperature = 41;
    r.sensorsReady = true;
    r.hasBattery = true;
    r.batteryPercent = 84;
    r.weather = MenuBarReadings::Weather{QStringLiteral("cloud.sun.fill"), 17};
    r.nextSunEvent = MenuBarReadings::SunEvent{false, sampleTime + 8.5 * 3600};
    return r;
}

MenuBarReadings busy()
{
    MenuBarReadings r = idle();
    r.cpuUser = 71;
    r.cpuSystem = 17;
    r.cpuHistory = trail(80, 18);
    r.gpuUtilization = 64;
    r.gpuHistory = trail(60, 30);
    r.memoryPressure = 58;
    r.memoryPressureLevel = MemoryPressureLevel::warning;
    r.memoryUsed = 81;
    r.upload = 2.4e6;
    r.download = 38.5e6;
    r.uploadHistory = trail(2.4e6, 1.5e6);
    r.downloadHistory = trail(38.5e6, 20e6);
    r.temperature = 78;
    r.fanRpm = 3400;
    r.batteryPercent = 62;
    r.weather = MenuBarReadings::Weather{QStringLiteral("cloud.rain.fill"), 9};
    return r;
}

MenuBarReadings hot()
{
    MenuBarReadings r = busy();
    r.cpuUser = 92;
    r.cpuSystem = 7;
    r.cpuHistory = trail(96, 4);
    r.memoryPressure = 91;
    r.memoryPressureLevel = MemoryPressureLevel::critical;
    r.temperature = 99;
    r.fanRpm = 6800;
    r.weather = MenuBarReadings::Weather{QStringLiteral("sun.max.fill"), 34};
    return r;
}

} // namespace

std::vector<SampleState> sampleStates()
{
    std::vector<SampleState> out;
    out.push_back({QStringLiteral("idle"), idle()});
    out.push_back({QStringLiteral("busy"), busy()});
    out.push_back({QStringLiteral("hot"), hot()});

    MenuBarReadings charging = idle();
    charging.batteryPercent = 10;
    charging.batteryCharging = true;
    out.push_back({QStringLiteral("charging"), charging});

    MenuBarReadings noBattery = busy();
    noBattery.hasBattery = false;
    noBattery.batteryPercent = 0;
    out.push_back({QStringLiteral("no-battery"), noBattery});

    MenuBarReadings offline = idle();
    offline.internetReachable = false;
    offline.upload = offline.download = 0;
    offline.uploadHistory = offline.downloadHistory = std::vector<double>(120, 0.0);
    offline.weather.reset(); // no report without a network
    out.push_back({QStringLiteral("offline"), offline});

    out.push_back({QStringLiteral("monochrome"), busy(), true, false});

    MenuBarReadings night = busy();
    night.weather = MenuBarReadings::Weather{QStringLiteral("moon.stars.fill"), 6};
    night.nextSunEvent = MenuBarReadings::SunEvent{true, sampleTime + 9 * 3600};
    out.push_back({QStringLiteral("dark"), night, false, true});
    out.push_back({QStringLiteral("light"), busy(), false, false});
    return out;
}

namespace {

// A fixed 14-day report for Berlin, fetched ten minutes before the sample time.
WeatherReport sampleReport(int code, bool isDay)
{
    WeatherReport r;
    r.location = {QStringLiteral("Berlin, Land Berlin, Germany"), 52.52437, 13.41053};
    r.timeZone = QTimeZone("Europe/Berlin");
    r.fetched = sampleTime - 600;
    r.current = {isDay ? 11.4 : 4.2, isDay ? 9.8 : 1.1, 71, 6.3, 14.8, 225, 31.3, 1012.6, 18500, isDay ? 3.0 : 0.0,
                 0.2, 40, code, isDay};
    const QDate first = QDateTime::fromMSecsSinceEpoch(qint64(sampleTime * 1000), r.timeZone).date();
    const int codes[] = {2, 61, 0, 3, 45, 80, 95, 71, 1, 3, 63, 0, 2, 51};
    for (int i = 0; i < 14; ++i) {
        WeatherDay d;
        d.date = first.addDays(i);
        d.code = codes[i];
        d.high = 12.0 + 3 * std::sin(i * 0.8);
        d.low = 3.0 + 2 * std::cos(i * 0.6);
        if (i != 8)
            d.precipitationChance = (i * 37) % 100;
        d.precipitationSum = codes[i] >= 51 ? 0.8 + i * 0.7 : 0;
        d.sunrise = double(QDateTime(d.date, QTime(6, 12), r.timeZone).toMSecsSinceEpoch()) / 1000;
        d.sunset = double(QDateTime(d.date, QTime(18, 4), r.timeZone).toMSecsSinceEpoch()) / 1000;
        r.days.push_back(d);
    }
    return r;
}

QImage weatherPanel(const std::optional<WeatherReport>& report, bool loading, bool located,
                    const std::optional<QString>& error, bool dark, double dpr)
{
    WeatherPanelInput in;
    in.report = report ? &*report : nullptr;
    in.isLoading = loading;
    in.hasLocation = located;
    in.lastError = error;
    in.now = sampleTime;
    in.displayZone = QTimeZone("Europe/Berlin");
    return PanelImages::weather(WeatherPanelContent::view(in), dark, dpr);
}

QImage astronomyPanel(const WeatherLocation& place, double time, const QByteArray& zone, bool dark, double dpr)
{
    const auto snapshot = AstronomyMonitor::compute(place, time, QTimeZone(zone));
    return PanelImages::astronomy(AstronomyPanelContent::view(snapshot, QTimeZone(zone)), dark, dpr);
}

} // namespace

std::vector<PanelSample> panelSamples(double dpr)
{
    const std::optional<QString> none;
    const WeatherLocation berlin{QStringLiteral("Berlin, Land Berlin, Germany"), 52.52437, 13.41053};
    const WeatherLocation tromso{QStringLiteral("Tromsø, Troms, Norway"), 69.6492, 18.9553};
    const double midsummer = 1782043200; // 2026-06-21 12:00 UTC
    return {
        {QStringLiteral("weather-day"), weatherPanel(sampleReport(2, true), false, true, none, false, dpr)},
        {QStringLiteral("weather-night"), weatherPanel(sampleReport(0, false), false, true, none, true, dpr)},
        {QStringLiteral("weather-unknown-code"), weatherPanel(sampleReport(4, true), false, true, none, false, dpr)},
        {QStringLiteral("weather-loading"), weatherPanel(std::nullopt, true, true, none, false, dpr)},
        {QStringLiteral("weather-waiting"), weatherPanel(std::nullopt, false, false, none, false, dpr)},
        {QStringLiteral("weather-failed"),
         weatherPanel(std::nullopt, false, false, QStringLiteral("Cannot reach the location service: Host ipapi.co not found."),
                      false, dpr)},
        {QStringLiteral("astronomy"), astronomyPanel(berlin, sampleTime, "Europe/Berlin", false, dpr)},
        {QStringLiteral("astronomy-polar-summer"), astronomyPanel(tromso, midsummer, "Europe/Oslo", true, dpr)},
    };
}

} // namespace pulsebar
