#include "core/fmt.h"
#include "hub/hub.h"
#include "menubar/menu_bar_content.h"

#include "../support/test_support.h"

#include <QTimeZone>

#include <functional>
#include <ostream>

#include <gtest/gtest.h>

using namespace pulsebar;
using Kind = MenuBarPart::Kind;

namespace {

HubSnapshot sample()
{
    HubSnapshot r;
    r.time = 1773481260; // 2026-03-14 09:41 UTC
    r.cpuUser = 30;
    r.cpuSystem = 12.4;
    r.cpuHistory = {10, 50, 100};
    r.gpuUtilization = 33;
    r.gpuHistory = {20, 40};
    r.memoryPressure = 45;
    r.memoryPressureLevel = MemoryPressureLevel::warning;
    r.memoryUsed = 61.6;
    r.startupVolume = LiveVolume{100, 28};
    r.internetReachable = true;
    r.upload = 2048;
    r.download = 4096;
    r.uploadHistory = {0, 1024, 2048};
    r.downloadHistory = {4096, 8192};
    r.menubarTemperature = 55.4;
    r.batteryPresent = true;
    r.batteryPercent = 80;
    return r;
}

MenuBarParts partsOf(ModuleKind kind, DisplayStyle style, const HubSnapshot& r = sample(), Config config = {})
{
    return MenuBarContent::parts({kind, true, style}, r, config);
}

using P = MenuBarPart;

} // namespace

namespace pulsebar {
void PrintTo(const MenuBarPart& p, std::ostream* os)
{
    *os << "{kind " << int(p.kind) << " '" << p.text.toStdString() << "' '" << p.bottom.toStdString() << "' template '"
        << p.widthTemplate.toStdString() << "' fraction " << p.fraction << " colour " << int(p.color) << " flag "
        << p.flag << " values " << p.values.size() << "/" << p.lowerValues.size() << "}";
}
} // namespace pulsebar

// Every module in the styles that matter, over the same readings, with the change a case makes to them.
TEST(MenuBarContent, PartsPerModuleAndStyle)
{
    Config bits;
    bits.bandwidthBits = true;
    Config kelvin;
    kelvin.temperatureUnit = TempUnit::kelvin;
    const struct {
        const char* name;
        ModuleKind kind;
        DisplayStyle style;
        std::function<void(HubSnapshot&)> change;
        Config config;
        MenuBarParts expected;
    } cases[] = {
        {"cpu graph and text", ModuleKind::cpu, DisplayStyle::graphAndText, nullptr, {},
         {P::makeGraph({0.1, 0.5, 1.0}, PartColor::blue), P::makeText("42%", "100%")}},
        {"cpu icon and text", ModuleKind::cpu, DisplayStyle::iconAndText, nullptr, {},
         {P::makeSymbol("cpu"), P::makeText("42%", "100%")}},
        {"memory normal", ModuleKind::memory, DisplayStyle::graph, [](auto& r) { r.memoryPressureLevel = MemoryPressureLevel::normal; }, {},
         {P::makeBar(0.45, PartColor::green)}},
        {"memory warning", ModuleKind::memory, DisplayStyle::graph, nullptr, {}, {P::makeBar(0.45, PartColor::yellow)}},
        {"memory critical", ModuleKind::memory, DisplayStyle::graph, [](auto& r) { r.memoryPressureLevel = MemoryPressureLevel::critical; }, {},
         {P::makeBar(0.45, PartColor::red)}},
        {"memory text", ModuleKind::memory, DisplayStyle::text, nullptr, {}, {P::makeText("62%", "100%")}},
        {"combined", ModuleKind::combined, DisplayStyle::graphAndText, nullptr, bits,
         {P::makeGraph({0.1, 0.5, 1.0}, PartColor::blue), P::makeBar(0.45, PartColor::yellow),
          P::makeStacked("CPU 42%", "MEM 62%", "CPU 100%"), P::makeStacked("55°", "↓32.8 Kb/s", "↓ 999 Mb/s")}},
        {"combined icon", ModuleKind::combined, DisplayStyle::icon, nullptr, {}, {P::makeAppGlyph()}},
        // Both network halves share the busiest value on screen as their scale.
        {"network graph", ModuleKind::network, DisplayStyle::graph, nullptr, {},
         {P::makeMirrored({0, 0.125, 0.25}, {0.5, 1})}},
        {"network rates", ModuleKind::network, DisplayStyle::iconAndText, nullptr, {},
         {P::makeSymbol("network"), P::makeStacked("↑ 2.0 KB/s", "↓ 4.0 KB/s", "↑ 1023 MB/s")}},
        {"network offline", ModuleKind::network, DisplayStyle::icon, [](auto& r) { r.internetReachable = false; }, {},
         {P::makeSymbol("network.slash")}},
        {"network not known yet", ModuleKind::network, DisplayStyle::icon,
         [](auto& r) { r.internetReachable.reset(); }, {}, {P::makeSymbol("network")}},
        {"sensors", ModuleKind::sensors, DisplayStyle::iconAndText, nullptr, {},
         {P::makeSymbol("thermometer.medium"), P::makeText("55°", "100°")}},
        {"sensors in kelvin", ModuleKind::sensors, DisplayStyle::text, nullptr, kelvin, {P::makeText("329 K", "373 K")}},
        {"sensors with a fan", ModuleKind::sensors, DisplayStyle::text, [](auto& r) { r.fastestFanRpm = 2400; }, kelvin,
         {P::makeStacked("329 K", "2400 rpm", "9999 rpm")}},
        {"sensors without a temperature", ModuleKind::sensors, DisplayStyle::text,
         [](auto& r) { r.menubarTemperature.reset(); }, {}, {P::makeText("—", "100°")}},
        {"disks", ModuleKind::disks, DisplayStyle::iconAndText, nullptr, {},
         {P::makeSymbol("internaldrive"), P::makeText("72%", "100%")}},
        // A module without a graphic shows its text rather than nothing in the graph style.
        {"disks graph", ModuleKind::disks, DisplayStyle::graph, [](auto& r) { r.startupVolume.reset(); }, {},
         {P::makeText("—", "100%")}},
        {"battery charging", ModuleKind::battery, DisplayStyle::iconAndText, [](auto& r) { r.batteryCharging = true; },
         {}, {P::makeBattery(0.8, true), P::makeText("80%", "100%")}},
        {"battery graph", ModuleKind::battery, DisplayStyle::graph, nullptr, {}, {P::makeBattery(0.8, false)}},
        {"gpu", ModuleKind::gpu, DisplayStyle::graph, nullptr, {}, {P::makeGraph({0.2, 0.4}, PartColor::purple)}},
        {"weather before a report", ModuleKind::weather, DisplayStyle::iconAndText, nullptr, {},
         {P::makeSymbol("cloud"), P::makeText("—", "")}},
        {"weather", ModuleKind::weather, DisplayStyle::iconAndText,
         [](auto& r) { r.weather = HubSnapshot::Weather{"cloud.sun.fill", -3.6}; }, {},
         {P::makeSymbol("cloud.sun.fill", true), P::makeText("-4°", "-10°")}},
        {"no sun event ahead", ModuleKind::astronomy, DisplayStyle::iconAndText, nullptr, {},
         {P::makeSymbol("sun.horizon"), P::makeText("—", "")}},
        {"sunset next", ModuleKind::astronomy, DisplayStyle::icon,
         [](auto& r) { r.nextSunEvent = HubSnapshot::SunEvent{false, r.time + 3600}; }, {},
         {P::makeSymbol("sunset.fill")}},
    };
    for (const auto& c : cases) {
        HubSnapshot r = sample();
        if (c.change)
            c.change(r);
        EXPECT_EQ(partsOf(c.kind, c.style, r, c.config), c.expected) << c.name;
    }
    for (DisplayStyle style : allCases<DisplayStyle>()) {
        HubSnapshot r = sample();
        r.gpuUtilization.reset();
        EXPECT_TRUE(partsOf(ModuleKind::gpu, style, r).empty());
    }
}

TEST(MenuBarContent, ClocksLeaveOutUnknownZones)
{
    const HubSnapshot r = sample();
    Config config;
    config.menubarClocks = {"Asia/Tokyo", "Not/AZone", "America/New_York"};
    MenuBarParts clocks = partsOf(ModuleKind::time, DisplayStyle::text, r, config);
    ASSERT_EQ(clocks.size(), 2u);
    EXPECT_EQ(clocks[0].text, "Tokyo");
    EXPECT_EQ(clocks[1].text, "New York");
    EXPECT_EQ(clocks[0].bottom, Fmt::time(QDateTime(QDate(2026, 3, 14), QTime(18, 41), QTimeZone("Asia/Tokyo")),
                                          QTimeZone("Asia/Tokyo")));
    config.clockLabel = ClockLabel::abbreviation;
    EXPECT_EQ(partsOf(ModuleKind::time, DisplayStyle::text, r, config).at(1).text, "EDT");
    EXPECT_EQ(partsOf(ModuleKind::time, DisplayStyle::icon, r, config).at(0).kind, Kind::symbol);
}

TEST(HubSnapshot, ComeFromTheHubsMonitors)
{
    test::ScopedEnv root("PULSEBAR_SYSROOT", test::fixture("sensors/laptop-charging"));
    test::IsolatedSettings isolated;
    Hub hub(isolated.settings, systemReaders());
    hub.tick();
    hub.now = [] { return 1773481260.0; };
    hub.network.upload = 2048;
    hub.network.uploadHistory.add(1000);
    hub.network.internetReachable = false;
    const HubSnapshot r = HubSnapshot::of(hub);
    EXPECT_TRUE(r.batteryPresent);
    EXPECT_TRUE(r.batteryCharging);
    EXPECT_EQ(r.batteryPercent, 51);
    EXPECT_EQ(r.menubarTemperature, 31.2); // the battery's, with no other sensor on this machine
    EXPECT_FALSE(r.fastestFanRpm);
    EXPECT_EQ(r.time, 1773481260.0);
    EXPECT_EQ(r.upload, 2048);
    EXPECT_EQ(r.uploadHistory.back(), 1000.0);
    EXPECT_EQ(MenuBarContent::parts({ModuleKind::network, true, DisplayStyle::icon}, hub, isolated.settings.config())
                  .at(0).text,
              "network.slash");
}
