#include "core/fmt.h"
#include "core/hub.h"
#include "menubar/menu_bar_content.h"

#include "../support/test_support.h"

#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>

using namespace pulsebar;
using Kind = MenuBarPart::Kind;

namespace {

MenuBarReadings sample()
{
    MenuBarReadings r;
    r.now = 1773481260; // 2026-03-14 09:41 UTC
    r.cpuUser = 30;
    r.cpuSystem = 12.4;
    r.cpuHistory = {10, 50, 100};
    r.hasGPU = true;
    r.gpuUtilization = 33;
    r.gpuHistory = {20, 40};
    r.memoryPressure = 45;
    r.memoryPressureLevel = 2;
    r.memoryUsed = 61.6;
    r.startupDiskUsed = 72;
    r.internetReachable = true;
    r.upload = 2048;
    r.download = 4096;
    r.uploadHistory = {0, 1024, 2048};
    r.downloadHistory = {4096, 8192};
    r.temperature = 55.4;
    r.hasBattery = true;
    r.batteryPercent = 80;
    return r;
}

std::vector<Kind> kinds(const MenuBarParts& parts)
{
    std::vector<Kind> out;
    for (const MenuBarPart& p : parts)
        out.push_back(p.kind);
    return out;
}

MenuBarParts partsOf(ModuleKind kind, DisplayStyle style, const MenuBarReadings& r = sample(), Config config = {})
{
    return MenuBarContent::parts({kind, true, style}, r, config);
}

} // namespace

TEST(MenuBarContent, CpuInEveryStyle)
{
    const MenuBarParts all = partsOf(ModuleKind::cpu, DisplayStyle::graphAndText);
    ASSERT_EQ(kinds(all), (std::vector<Kind>{Kind::graph, Kind::text}));
    EXPECT_EQ(all[0].values, (std::vector<double>{0.1, 0.5, 1.0}));
    EXPECT_EQ(all[0].color, PartColor::blue);
    EXPECT_EQ(all[1].text, "42%");
    EXPECT_EQ(all[1].widthTemplate, "100%");
    EXPECT_EQ(kinds(partsOf(ModuleKind::cpu, DisplayStyle::text)), std::vector<Kind>{Kind::text});
    EXPECT_EQ(kinds(partsOf(ModuleKind::cpu, DisplayStyle::graph)), std::vector<Kind>{Kind::graph});
    EXPECT_EQ(kinds(partsOf(ModuleKind::cpu, DisplayStyle::icon)), std::vector<Kind>{Kind::symbol});
    const MenuBarParts iconText = partsOf(ModuleKind::cpu, DisplayStyle::iconAndText);
    ASSERT_EQ(kinds(iconText), (std::vector<Kind>{Kind::symbol, Kind::text}));
    EXPECT_EQ(iconText[0].text, "cpu");
}

TEST(MenuBarContent, MemoryBarFollowsThePressureLevel)
{
    MenuBarReadings r = sample();
    const auto bar = [&](int level) {
        r.memoryPressureLevel = level;
        return partsOf(ModuleKind::memory, DisplayStyle::graph, r).at(0);
    };
    EXPECT_EQ(bar(1).color, PartColor::green);
    EXPECT_EQ(bar(2).color, PartColor::yellow);
    EXPECT_EQ(bar(4).color, PartColor::red);
    EXPECT_DOUBLE_EQ(bar(1).fraction, 0.45);
    EXPECT_EQ(partsOf(ModuleKind::memory, DisplayStyle::text, r).at(0).text, "62%");
}

TEST(MenuBarContent, CombinedItem)
{
    Config config;
    config.bandwidthBits = true;
    const MenuBarParts parts = partsOf(ModuleKind::combined, DisplayStyle::graphAndText, sample(), config);
    ASSERT_EQ(kinds(parts), (std::vector<Kind>{Kind::graph, Kind::bar, Kind::stacked, Kind::stacked}));
    EXPECT_EQ(parts[1].color, PartColor::yellow); // pressure level 2 and above
    EXPECT_EQ(parts[2].text, "CPU 42%");
    EXPECT_EQ(parts[2].bottom, "MEM 62%");
    EXPECT_EQ(parts[2].widthTemplate, "CPU 100%");
    EXPECT_EQ(parts[3].text, "55°");
    EXPECT_EQ(parts[3].bottom, "↓32.8 Kb/s");
    EXPECT_EQ(kinds(partsOf(ModuleKind::combined, DisplayStyle::icon)), std::vector<Kind>{Kind::appGlyph});
}

TEST(MenuBarContent, NetworkArrowsRatesAndReachability)
{
    MenuBarReadings r = sample();
    const MenuBarParts parts = partsOf(ModuleKind::network, DisplayStyle::iconAndText, r);
    ASSERT_EQ(kinds(parts), (std::vector<Kind>{Kind::symbol, Kind::stacked}));
    EXPECT_EQ(parts[0].text, "network");
    EXPECT_EQ(parts[1].text, "↑ 2.0 KB/s");
    EXPECT_EQ(parts[1].bottom, "↓ 4.0 KB/s");
    EXPECT_EQ(parts[1].widthTemplate, "↑ 1023 MB/s");

    // Both halves share the busiest value on screen as their scale.
    const MenuBarPart graph = partsOf(ModuleKind::network, DisplayStyle::graph, r).at(0);
    EXPECT_EQ(graph.values, (std::vector<double>{0, 0.125, 0.25}));
    EXPECT_EQ(graph.lowerValues, (std::vector<double>{0.5, 1}));

    r.internetReachable = false;
    EXPECT_EQ(partsOf(ModuleKind::network, DisplayStyle::icon, r).at(0).text, "network.slash");
    r.internetReachable.reset(); // not known yet: not shown as offline
    EXPECT_EQ(partsOf(ModuleKind::network, DisplayStyle::icon, r).at(0).text, "network");
}

TEST(MenuBarContent, SensorsShowTemperatureAndFanWhenThereIsOne)
{
    MenuBarReadings r = sample();
    Config config;
    MenuBarParts parts = partsOf(ModuleKind::sensors, DisplayStyle::iconAndText, r, config);
    ASSERT_EQ(kinds(parts), (std::vector<Kind>{Kind::symbol, Kind::text}));
    EXPECT_EQ(parts[0].text, "thermometer.medium");
    EXPECT_EQ(parts[1].text, "55°");
    EXPECT_EQ(parts[1].widthTemplate, "100°");
    config.temperatureUnit = TempUnit::kelvin;
    parts = partsOf(ModuleKind::sensors, DisplayStyle::text, r, config);
    EXPECT_EQ(parts[0].text, "329 K");
    EXPECT_EQ(parts[0].widthTemplate, "373 K");
    r.fanRpm = 2400;
    parts = partsOf(ModuleKind::sensors, DisplayStyle::text, r, config);
    ASSERT_EQ(kinds(parts), std::vector<Kind>{Kind::stacked});
    EXPECT_EQ(parts[0].bottom, "2400 rpm");
    EXPECT_EQ(parts[0].widthTemplate, "9999 rpm");
    r.temperature.reset();
    EXPECT_EQ(partsOf(ModuleKind::sensors, DisplayStyle::text, r).at(0).text, "—");
}

TEST(MenuBarContent, DisksBatteryAndGpu)
{
    MenuBarReadings r = sample();
    EXPECT_EQ(partsOf(ModuleKind::disks, DisplayStyle::iconAndText, r).at(1).text, "72%");
    r.startupDiskUsed.reset();
    EXPECT_EQ(partsOf(ModuleKind::disks, DisplayStyle::text, r).at(0).text, "—");
    // A module without a graphic shows its text rather than nothing in the graph style.
    EXPECT_EQ(kinds(partsOf(ModuleKind::disks, DisplayStyle::graph, r)), std::vector<Kind>{Kind::text});

    r.batteryCharging = true;
    const MenuBarParts battery = partsOf(ModuleKind::battery, DisplayStyle::iconAndText, r);
    ASSERT_EQ(kinds(battery), (std::vector<Kind>{Kind::battery, Kind::text}));
    EXPECT_DOUBLE_EQ(battery[0].fraction, 0.8);
    EXPECT_TRUE(battery[0].flag);
    EXPECT_EQ(battery[1].text, "80%");
    EXPECT_EQ(kinds(partsOf(ModuleKind::battery, DisplayStyle::graph, r)), std::vector<Kind>{Kind::battery});

    EXPECT_EQ(partsOf(ModuleKind::gpu, DisplayStyle::graph, r).at(0).color, PartColor::purple);
    r.hasGPU = false;
    for (DisplayStyle style : allCases<DisplayStyle>())
        EXPECT_TRUE(partsOf(ModuleKind::gpu, style, r).empty());
}

TEST(MenuBarContent, WeatherSunAndClocks)
{
    MenuBarReadings r = sample();
    // Before the first weather report and with no sun event ahead.
    MenuBarParts weather = partsOf(ModuleKind::weather, DisplayStyle::iconAndText, r);
    EXPECT_EQ(weather.at(0).text, "cloud");
    EXPECT_EQ(weather.at(1).text, "—");
    MenuBarParts sun = partsOf(ModuleKind::astronomy, DisplayStyle::iconAndText, r);
    EXPECT_EQ(sun.at(0).text, "sun.horizon");
    EXPECT_EQ(sun.at(1).text, "—");

    r.weather = MenuBarReadings::Weather{"cloud.sun.fill", -3.6};
    weather = partsOf(ModuleKind::weather, DisplayStyle::iconAndText, r);
    EXPECT_EQ(weather.at(0).text, "cloud.sun.fill");
    EXPECT_TRUE(weather.at(0).flag); // weather symbols are multicolour
    EXPECT_EQ(weather.at(1).text, "-4°");
    EXPECT_EQ(weather.at(1).widthTemplate, "-10°");
    r.nextSunEvent = MenuBarReadings::SunEvent{false, r.now + 3600};
    EXPECT_EQ(partsOf(ModuleKind::astronomy, DisplayStyle::icon, r).at(0).text, "sunset.fill");

    Config config;
    config.menubarClocks = {"Asia/Tokyo", "Not/AZone", "America/New_York"};
    MenuBarParts clocks = partsOf(ModuleKind::time, DisplayStyle::text, r, config);
    ASSERT_EQ(clocks.size(), 2u); // an unknown zone is left out
    EXPECT_EQ(clocks[0].text, "Tokyo");
    EXPECT_EQ(clocks[1].text, "New York");
    EXPECT_EQ(clocks[0].bottom, Fmt::time(QDateTime(QDate(2026, 3, 14), QTime(18, 41), QTimeZone("Asia/Tokyo")),
                                          QTimeZone("Asia/Tokyo")));
    config.clockLabel = ClockLabel::abbreviation;
    EXPECT_EQ(partsOf(ModuleKind::time, DisplayStyle::text, r, config).at(1).text, "EDT");
    EXPECT_EQ(kinds(partsOf(ModuleKind::time, DisplayStyle::icon, r, config)), std::vector<Kind>{Kind::symbol});
}

TEST(MenuBarReadings, CopiesTheHubsLiveValues)
{
    QTemporaryDir dir;
    Preferences preferences(dir.path() + "/preferences.json");
    AppSettings settings(preferences);
    Hub hub(settings);
    hub.now = [] { return 1773481260.0; };
    hub.network.upload = 2048;
    hub.network.download = 8192;
    hub.network.uploadHistory.add(1000);
    hub.network.uploadHistory.add(2048);
    hub.network.internetReachable = false;
    const MenuBarReadings r = MenuBarReadings::from(hub);
    EXPECT_EQ(r.now, 1773481260.0);
    EXPECT_EQ(r.upload, 2048);
    EXPECT_EQ(r.download, 8192);
    EXPECT_EQ(r.uploadHistory, (std::vector<double>{1000, 2048}));
    EXPECT_EQ(r.internetReachable, false);
    EXPECT_EQ(MenuBarContent::parts({ModuleKind::network, true, DisplayStyle::icon}, hub, settings.config()).at(0).text,
              "network.slash");
}

TEST(MenuBarReadings, ComeFromTheHubsMonitors)
{
    test::ScopedEnv root("PULSEBAR_SYSROOT", test::fixture("sensors/laptop-charging"));
    test::IsolatedSettings isolated;
    AppSettings& settings = isolated.settings;
    Hub hub(settings);
    hub.tick();
    const MenuBarReadings r = MenuBarReadings::from(hub);
    EXPECT_TRUE(r.hasBattery);
    EXPECT_TRUE(r.batteryCharging);
    EXPECT_EQ(r.batteryPercent, 51);
    EXPECT_EQ(r.temperature, 31.2); // the battery's, with no other sensor on this machine
    EXPECT_FALSE(r.fanRpm);
}
