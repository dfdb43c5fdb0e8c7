#include "panels/panel_content.h"

#include <QJsonArray>

#include <gtest/gtest.h>

#include <unistd.h>

using namespace pulsebar;

namespace {

// The rows of a panel as "section/label=value" lines, so a whole panel compares in one expectation.
QStringList texts(const PanelModel& model)
{
    QStringList out;
    for (const PanelSection& section : model.sections)
        for (const PanelRow& row : section.rows)
            out << section.title + "/" + row.label + "=" + row.value;
    return out;
}

const PanelRow* find(const PanelModel& model, const QString& label)
{
    for (const PanelSection& section : model.sections)
        for (const PanelRow& row : section.rows)
            if (row.label == label)
                return &row;
    return nullptr;
}

PanelSnapshot machine()
{
    PanelSnapshot s;
    s.cpu.brand = "Test CPU";
    s.cpu.user = 30;
    s.cpu.system = 12.4;
    s.cpu.performanceCount = 2;
    s.cpu.efficiencyCount = 2;
    s.cpu.cores = {{0, 50, 10, false}, {1, 20, 0, false}, {2, 5, 5, true}, {3, 0, 0, true}};
    s.cpu.loadAverage = {1.5, 1.25, 0.5};
    s.cpu.uptime = 90061;
    s.memory = {16.0 * (1 << 30), 6.0 * (1 << 30), 2.0 * (1 << 30), 1.0 * (1 << 30), 3.0 * (1 << 30), 4.0 * (1 << 30),
                64, MemoryPressureLevel::warning, 0, 0, 0, 0, {}};
    s.topByCpu = {{::getpid(), "pulsebar", 40, 0, 0, 0}, {1, "systemd", 20, 0, 0, 0}, {77, "make", 10, 0, 0, 0}};
    s.disks.volumes = {{"/", "/", 500e9, 100e9, 100e9, false, true, true}};
    s.network.internetReachable = false;
    s.battery.present = true;
    s.battery.percent = 10;
    s.battery.stateDescription = "On battery";
    s.battery.minutesRemaining = 75;
    s.keepAwake = {false, "Off"};
    s.insight = {Insight::Kind::cpu, "make is using 2 cores.", Insight::Severity::warning, ModuleKind::cpu, 77};
    return s;
}

} // namespace

TEST(PanelContent, CpuPanelShowsFiguresCoresLoadAndProcessesWithTheQuitRule)
{
    const PanelModel cpu = PanelContent::cpu(machine(), Config{});
    EXPECT_EQ(cpu.headline, "42%");
    EXPECT_EQ(cpu.subtitle, "Test CPU");
    const PanelRow* cores = find(cpu, "Per core");
    ASSERT_TRUE(cores);
    EXPECT_EQ(cores->value, "2 performance, 2 efficiency");
    ASSERT_EQ(cores->segments.size(), 4u);
    EXPECT_EQ(cores->segments[0].label, "P0");
    EXPECT_EQ(cores->segments[2].label, "E2");
    EXPECT_DOUBLE_EQ(cores->segments[0].fraction, 0.6);
    EXPECT_EQ(find(cpu, "Load average")->value, "1.50  1.25  0.50");
    EXPECT_EQ(find(cpu, "Uptime")->value, "1d 1h 1m");

    // This program and protected names are never offered for force quit.
    const PanelRow* own = find(cpu, "pulsebar");
    ASSERT_TRUE(own && own->process);
    EXPECT_FALSE(own->canQuit);
    EXPECT_FALSE(find(cpu, "systemd")->canQuit);
    EXPECT_TRUE(find(cpu, "make")->canQuit);
    EXPECT_EQ(find(cpu, "make")->value, "10%");
    EXPECT_EQ(cpu.historyMetrics(), (std::vector<HistoryMetric>{HistoryMetric::cpuUser, HistoryMetric::cpuSystem}));
    EXPECT_TRUE(cpu.history.front().stacked);
}

TEST(PanelContent, MemoryBreakdownIsOneBarOfTheWholeWithItsPressureLevel)
{
    const PanelModel memory = PanelContent::memory(machine(), Config{});
    EXPECT_EQ(memory.headline, "56%"); // (6 + 2 + 1) of 16
    const PanelRow* used = find(memory, "Used");
    ASSERT_TRUE(used);
    QStringList legend;
    double whole = 0;
    for (const PanelSegment& segment : used->segments) {
        legend << segment.label + " " + segment.value;
        whole += segment.fraction;
    }
    EXPECT_EQ(legend, (QStringList{"App 6.0 GB", "Wired 2.0 GB", "Compressed 1.0 GB", "Cached 3.0 GB", "Free 4.0 GB"}));
    EXPECT_DOUBLE_EQ(whole, 1.0);
    const PanelRow* pressure = find(memory, "Warning");
    ASSERT_TRUE(pressure);
    EXPECT_EQ(pressure->color, PartColor::yellow);
    EXPECT_EQ(find(memory, "Swap")->value, "None"); // a machine without swap says so instead of "0 B of 0 B"

    EXPECT_EQ(PanelContent::pressureLevelName(MemoryPressureLevel::critical), "Critical");
}

TEST(PanelContent, WhatTheMachineLacksIsLeftOut)
{
    PanelSnapshot s = machine();
    Config config;
    // No GPU, no Wi-Fi, no public address, no fans: no tile, no section, no row for them.
    EXPECT_EQ(PanelContent::gpu(s, config).sections.front().rows.front().kind, PanelRow::Kind::note);
    const PanelModel network = PanelContent::network(s, config);
    EXPECT_EQ(network.subtitle, "Offline");
    for (const PanelSection& section : network.sections)
        EXPECT_NE(section.title, "Wi-Fi");
    EXPECT_FALSE(find(network, "Public IP"));
    EXPECT_FALSE(find(PanelContent::sensors(s, config), "Fan 1"));

    s.network.publicIP = "203.0.113.9";
    EXPECT_EQ(find(PanelContent::network(s, config), "Public IP")->kind, PanelRow::Kind::copy);

    const PanelModel battery = PanelContent::battery(s, config);
    EXPECT_EQ(find(battery, "Charge")->color, PartColor::red); // below 15 %
    EXPECT_EQ(find(battery, "Time remaining")->value, "1h 15m");
    s.battery.present = false;
    EXPECT_EQ(texts(PanelContent::battery(s, config)), QStringList{"/=This computer has no battery."});
}

TEST(PanelContent, OverviewStartsWithTheInsightThenTilesInTheConfiguredOrder)
{
    Config config;
    config.overviewOrder = {OverviewItem::battery, OverviewItem::insight, OverviewItem::memory, OverviewItem::cpu};
    config.setShowsInOverview(OverviewItem::network, false);
    const PanelModel overview = PanelContent::overview(machine(), config);
    ASSERT_GE(overview.sections.size(), 2u);
    const PanelRow& insight = overview.sections[0].rows[0];
    EXPECT_EQ(insight.kind, PanelRow::Kind::link);
    EXPECT_EQ(insight.target, ModuleKind::cpu);
    QStringList tiles;
    for (const PanelRow& row : overview.sections[1].rows)
        tiles << row.label;
    // The configured order first, then the rest in their own order; no GPU tile without a GPU, no sensors
    // tile without a temperature or a fan, no devices tile without a device, network hidden, the first
    // world clock, and no event tile without a calendar.
    EXPECT_EQ(tiles, (QStringList{"Battery", "Memory", "CPU", "Disk", "Keep Awake", "Weather", "New York"}));
}

TEST(PanelContent, SensorsFollowTheModeAndTheTrayChoice)
{
    PanelSnapshot s = machine();
    s.sensors.sensors = {{"a", "CPU Package", SensorGroup::cpu, SensorKind::temperature, 61, 70},
                         {"b", "NVMe", SensorGroup::storage, SensorKind::temperature, 40, 41},
                         {"PSTR", "System Total", SensorGroup::power, SensorKind::power, 12.5, 20}};
    s.sensors.summaries = {{SensorGroup::cpu, {61, 61}}, {SensorGroup::storage, {40, 40}}};
    s.sensors.fans = {{0, 2000, 1000, 5000}};
    Config config;
    EXPECT_EQ(texts(PanelContent::sensors(s, config)).mid(0, 2), (QStringList{"Temperatures/CPU=61°", "Temperatures/Storage=40°"}));
    EXPECT_DOUBLE_EQ(find(PanelContent::sensors(s, config), "Fan 1")->fraction, 0.25);
    EXPECT_EQ(find(PanelContent::sensors(s, config), "System Total")->value, "12.5 W");

    config.sensorMode = SensorMode::detailed;
    config.temperatureUnit = TempUnit::fahrenheit;
    config.menubarSensorKey = "b";
    const PanelModel detailed = PanelContent::sensors(s, config);
    EXPECT_EQ(find(detailed, "CPU Package")->value, "142°");
    EXPECT_EQ(find(detailed, "CPU Package")->detail, "Peak 158°");
    const PanelRow* choice = find(detailed, "Shown in menu bar");
    ASSERT_TRUE(choice);
    EXPECT_EQ(choice->chosen, "b");
    EXPECT_EQ(choice->value, "NVMe");
    EXPECT_EQ(choice->choices.size(), 3u); // automatic and the two temperatures
}

TEST(PanelContent, EveryRegisteredPanelBuildsAndWritesItsTexts)
{
    const PanelSnapshot s = machine();
    for (const PanelContent::Entry& entry : PanelContent::registry()) {
        const QJsonObject json = entry.build(s, Config{}).toJson();
        EXPECT_EQ(json["module"].toString(), enumName(entry.kind));
        EXPECT_FALSE(json["sections"].toArray().isEmpty()) << enumName(entry.kind).toStdString();
    }
    for (ModuleKind kind : allCases<ModuleKind>())
        EXPECT_TRUE(PanelContent::hasPanel(kind)) << enumName(kind).toStdString();
}

TEST(PanelContent, SpeedTestOffersARunOrACancelAndListsResultsNewestFirst)
{
    PanelSnapshot s = machine();
    s.now = 1'800'000'000;
    Config config;
    const auto section = [&] {
        for (const PanelSection& section : PanelContent::network(s, config).sections)
            if (section.title == "Speed Test")
                return section;
        return PanelSection{};
    };

    ASSERT_EQ(section().rows.size(), 1u); // nothing saved yet: only the button
    EXPECT_EQ(section().rows[0].kind, PanelRow::Kind::command);
    EXPECT_EQ(section().rows[0].value, "Run Speed Test");
    EXPECT_EQ(section().rows[0].command, PanelContent::runSpeedTest);

    s.speedTests.state = {SpeedTest::State::Kind::running, QDateTime::fromMSecsSinceEpoch(qint64((s.now - 12.6) * 1000)), {}};
    EXPECT_EQ(section().rows[0].label, "Testing… 12 s");
    EXPECT_EQ(section().rows[0].command, PanelContent::cancelSpeedTest);

    s.speedTests.state = {SpeedTest::State::Kind::failed, {}, "The test returned no result."};
    const QDateTime date = QDateTime::fromSecsSinceEpoch(s.now - 60);
    const double mib = 1 << 20;
    s.speedTests.results = {{date, 12.5 * mib, mib, 1250, 14.2, "eth0", std::nullopt},
                            {date.addDays(-1), 2 * mib, 512000, std::nullopt, std::nullopt, std::nullopt, std::nullopt}};
    QStringList rows;
    for (const PanelRow& row : section().rows)
        rows << row.label + "=" + row.value + "|" + row.detail;
    ASSERT_EQ(rows.size(), 8);
    EXPECT_EQ(rows[0], "Internet speed=Run Speed Test|");
    EXPECT_EQ(rows[1], "=The test returned no result.|");
    EXPECT_EQ(rows.mid(2, 4), (QStringList{"Download=12.5 MB/s|", "Upload=1.0 MB/s|", "Responsiveness=1250 RPM|High",
                                           "Base RTT=14 ms|"}));
    EXPECT_TRUE(rows[6].contains(" on eth0")) << rows[6].toStdString();
    EXPECT_EQ(rows[7].section('=', 1), "↓ 2.0 MB/s   ↑ 500 KB/s|"); // an older test: no responsiveness, no RTT

    config.bandwidthBits = true;
    EXPECT_EQ(section().rows[2].value, "105 Mb/s");
}
