#include "core/app_settings.h"

#include "../support/test_support.h"

#include <QJsonArray>
#include <QFile>
#include <QJsonDocument>

#include <QFileInfo>

#include <gtest/gtest.h>

#include <cmath>
#include <sys/stat.h>

using namespace pulsebar;

namespace {
Config decode(const char* json)
{
    return Config::fromJson(QJsonDocument::fromJson(json).object());
}
} // namespace

TEST(Config, DefaultsMatchTheDocumentedRecord)
{
    const Config c;
    EXPECT_EQ(c.updateInterval, 2.0);
    ASSERT_EQ(c.modules.size(), 11u);
    EXPECT_EQ(c.modules[0], (ModuleConfig{ModuleKind::combined, false, DisplayStyle::text}));
    EXPECT_EQ(c.modules[1], (ModuleConfig{ModuleKind::cpu, true, DisplayStyle::graphAndText}));
    EXPECT_EQ(c.modules[10], (ModuleConfig{ModuleKind::time, false, DisplayStyle::text}));
    EXPECT_EQ(c.pingHost, "1.1.1.1");
    EXPECT_EQ(c.worldClocks, QStringList({"America/New_York", "Europe/London", "Asia/Tokyo"}));
    EXPECT_EQ(c.overviewOrder.size(), 13u);
    ASSERT_EQ(c.rules.size(), 5u);
    EXPECT_EQ(c.rules[2].metric, RuleMetric::batteryLevel);
    EXPECT_EQ(c.rules[2].comparison, RuleComparison::below);
    EXPECT_FALSE(c.rules[4].enabled);
    EXPECT_NE(c.rules[0].id, c.rules[1].id);
    EXPECT_FALSE(c.events.primaryInterface);
    EXPECT_TRUE(c.events.powerSource);
}

TEST(Config, EncodesEveryKeyAndOmitsAbsentOptionals)
{
    Config c;
    QJsonObject json = c.toJson();
    EXPECT_EQ(json.size(), 25);
    EXPECT_FALSE(json.contains("menubarSensorKey"));
    EXPECT_FALSE(json.contains("weatherLocation"));
    c.menubarSensorKey = "coretemp/temp1";
    c.weatherLocation = WeatherLocation{"Oslo", 59.91, 10.75};
    c.hotKeys["toggleCPU"] = HotKey{0x63, 0x1100, "Ctrl+Super+C"};
    json = c.toJson();
    EXPECT_EQ(json.size(), 27);
    EXPECT_EQ(json["modules"].toArray()[1].toObject()["style"].toString(), "graphAndText");
    EXPECT_EQ(json["events"].toObject().size(), 6);
    const Config back = Config::fromJson(json);
    EXPECT_EQ(back, c);
}

TEST(Config, EachBadKeyFallsBackAloneWhileTheRestLoads)
{
    const Config c = decode(R"({
        "updateInterval": "5", "monochrome": true, "temperatureUnit": "rankine", "windUnit": "knots",
        "bandwidthBits": 1, "pingHost": 8.8, "eventDays": 2.5, "showEvents": false, "menubarSensorKey": null,
        "weatherLocation": {"name": "Nowhere", "latitude": 1}, "clockLabel": "abbreviation",
        "worldClocks": ["Europe/Paris", 3], "menubarClocks": ["Asia/Tokyo"], "unknownKey": [1, 2]
    })");
    EXPECT_EQ(c.updateInterval, 2.0);
    EXPECT_TRUE(c.monochrome);
    EXPECT_EQ(c.temperatureUnit, TempUnit::celsius);
    EXPECT_EQ(c.windUnit, WindUnit::knots);
    EXPECT_FALSE(c.bandwidthBits);
    EXPECT_EQ(c.pingHost, "1.1.1.1");
    EXPECT_EQ(c.eventDays, 3);
    EXPECT_FALSE(c.showEvents);
    EXPECT_FALSE(c.menubarSensorKey);
    EXPECT_FALSE(c.weatherLocation);
    EXPECT_EQ(c.clockLabel, ClockLabel::abbreviation);
    EXPECT_EQ(c.worldClocks, Config{}.worldClocks);
    EXPECT_EQ(c.menubarClocks, QStringList{"Asia/Tokyo"});
}

TEST(Config, ListsAndMapsDecodeAllOrNothing)
{
    // One unknown kind: all eleven defaults, not the ten good entries.
    Config c = decode(R"({"modules": [{"kind": "cpu", "enabled": false, "style": "text"},
                                      {"kind": "toaster", "enabled": true, "style": "text"}]})");
    EXPECT_EQ(c.modules, Config::defaultModules());
    c = decode(R"({"modules": [{"kind": "cpu", "enabled": false}]})"); // lacks style
    EXPECT_EQ(c.modules, Config::defaultModules());
    c = decode(R"({"modules": [{"kind": "gpu", "enabled": true, "style": "graph"}]})");
    EXPECT_EQ(c.modules, (std::vector<ModuleConfig>{{ModuleKind::gpu, true, DisplayStyle::graph}}));

    c = decode(R"({"hotKeys": {"a": {"keyCode": 1, "modifiers": 2, "label": "x"}, "b": {"keyCode": -1,
                   "modifiers": 0, "label": "y"}}})");
    EXPECT_TRUE(c.hotKeys.empty());
    c = decode(R"({"hotKeys": {"a": {"keyCode": 4294967295, "modifiers": 256, "label": "x"}}})");
    ASSERT_EQ(c.hotKeys.size(), 1u);
    EXPECT_EQ(c.hotKeys["a"].keyCode, 4294967295u);

    c = decode(R"({"rules": [{"id": "not-a-uuid", "enabled": true, "metric": "cpu", "comparison": "above",
                  "threshold": 1, "duration": 0}]})");
    EXPECT_EQ(c.rules.size(), 5u);
    c = decode(R"({"rules": [{"id": "0f8fad5b-d9cb-469f-a165-70867728950e", "enabled": true, "metric": "ping",
                  "comparison": "below", "threshold": 1, "duration": 0}]})");
    ASSERT_EQ(c.rules.size(), 1u);
    EXPECT_EQ(c.rules[0].metric, RuleMetric::ping);

    c = decode(R"({"overviewHidden": ["cpu", "sideways"], "events": {"powerSource": false}})");
    EXPECT_TRUE(c.overviewHidden.empty());
    EXPECT_TRUE(c.events.powerSource);
}

TEST(Config, OverviewOrderDropsDuplicatesAndAppendsTheRest)
{
    Config c = decode(R"({"overviewOrder": ["cpu", "cpu", "weather"]})");
    const std::vector<OverviewItem> expected{
        OverviewItem::cpu,     OverviewItem::weather, OverviewItem::insight,     OverviewItem::gpu,
        OverviewItem::memory,  OverviewItem::network, OverviewItem::disk,        OverviewItem::sensors,
        OverviewItem::battery, OverviewItem::devices, OverviewItem::keepAwake,   OverviewItem::worldClocks,
        OverviewItem::nextEvent};
    EXPECT_EQ(c.overviewItems(), expected);

    c.overviewHidden = {OverviewItem::gpu, OverviewItem::gpu};
    EXPECT_FALSE(c.showsInOverview(OverviewItem::gpu));
    c.setShowsInOverview(OverviewItem::gpu, true);
    EXPECT_TRUE(c.overviewHidden.empty());
    c.setShowsInOverview(OverviewItem::cpu, false);
    c.setShowsInOverview(OverviewItem::cpu, false);
    EXPECT_EQ(c.overviewHidden, std::vector<OverviewItem>{OverviewItem::cpu});
    c.setShowsInOverview(OverviewItem::devices, false);
    EXPECT_FALSE(c.showDevices);
    EXPECT_FALSE(c.showsInOverview(OverviewItem::devices));
    EXPECT_EQ(c.overviewHidden.size(), 1u);
}

TEST(Preferences, DamagedFilesReadAsDefaultsAndAreReplacedOnTheNextChange)
{
    QTemporaryDir dir;
    const QString path = dir.path() + "/pulsebar/preferences.json";
    const QByteArray damaged[] = {"", "{\"PulsebarConfig.v1\": {\"updateInterval\": 5", "[1,2]", "\x00\xff\xfe", "null",
                                  "{\"PulsebarConfig.v1\": 7}", "{\"PulsebarConfig.v1\": [1]}"};
    for (const QByteArray& contents : damaged) {
        test::writeFile(path, contents);
        Preferences preferences(path);
        AppSettings settings(preferences);
        EXPECT_EQ(settings.config().updateInterval, 2.0) << contents.constData();
        EXPECT_EQ(settings.config().modules, Config::defaultModules());
        Config next = settings.config();
        next.updateInterval = 7;
        settings.setConfig(next);
        EXPECT_EQ(AppSettings::load(Preferences(path)).updateInterval, 7);
    }
    // A missing folder and file are created on the first write, private whatever the umask.
    const QString freshPath = dir.path() + "/new/dir/preferences.json";
    Preferences fresh(freshPath);
    EXPECT_TRUE(fresh.all().isEmpty());
    const mode_t oldMask = ::umask(0);
    EXPECT_TRUE(fresh.setValue("appearance", "dark"));
    ::umask(oldMask);
    EXPECT_EQ(fresh.value("appearance").toString(), "dark");
    EXPECT_EQ(QFileInfo(freshPath).permissions() & 0x0777, QFile::ReadUser | QFile::WriteUser);
    EXPECT_EQ(QFileInfo(QFileInfo(freshPath).path()).permissions() & 0x0777,
              QFile::ReadUser | QFile::WriteUser | QFile::ExeUser);
}

TEST(Preferences, AWriteKeepsTheOtherKeys)
{
    QTemporaryDir dir;
    Preferences preferences(dir.path() + "/preferences.json");
    preferences.setValue("PulsebarSpeedTests.v1", QJsonArray{1, 2});
    AppSettings settings(preferences);
    settings.setAppearance(AppearanceMode::dark);
    Config c = settings.config();
    c.monochrome = true;
    settings.setConfig(c);
    const QJsonObject all = preferences.all();
    EXPECT_EQ(all["PulsebarSpeedTests.v1"].toArray().size(), 2);
    EXPECT_EQ(all["appearance"].toString(), "dark");
    EXPECT_TRUE(all["PulsebarConfig.v1"].toObject()["monochrome"].toBool());
    EXPECT_EQ(settings.appearance(), AppearanceMode::dark);
    preferences.setValue("appearance", "sepia");
    EXPECT_EQ(settings.appearance(), AppearanceMode::system);
}

TEST(AppSettings, ObserversSeeOldAndNewOnceAndNothingForAnIdenticalRecord)
{
    QTemporaryDir dir;
    const QString path = dir.path() + "/preferences.json";
    Preferences preferences(path);
    AppSettings settings(preferences);
    std::vector<std::pair<double, double>> calls;
    std::vector<int> order;
    settings.addObserver([&](const Config& o, const Config& n) {
        calls.emplace_back(o.updateInterval, n.updateInterval);
        order.push_back(1);
    });
    settings.addObserver([&](const Config&, const Config&) { order.push_back(2); });

    settings.setConfig(settings.config());
    EXPECT_TRUE(calls.empty());
    EXPECT_FALSE(QFile::exists(path)); // nothing saved for an identical record

    Config c = settings.config();
    c.updateInterval = 5;
    settings.setConfig(c);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0], std::make_pair(2.0, 5.0));
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
    EXPECT_TRUE(QFile::exists(path));

    settings.setConfig(c);
    EXPECT_EQ(calls.size(), 1u);
}

TEST(Config, SamplingPeriodStaysWithinSaneBounds)
{
    const std::pair<double, int> cases[] = {
        {2.0, 2000}, {1.5, 1500}, {0.1, 250}, {0.25, 250}, {86400, 86400000}, {3e9, 86400000},
        {0, 2000}, {-1, 2000}, {-3e9, 2000}, {std::nan(""), 2000}, {INFINITY, 2000}, {-INFINITY, 2000}};
    for (const auto& [seconds, ms] : cases) {
        Config c;
        c.updateInterval = seconds;
        EXPECT_EQ(c.samplingPeriodMs(), ms) << seconds;
    }
}

// A FIFO at the preferences path would block the app before it starts; a link to /dev/zero would
// fill memory. Both read as no preferences at all.
TEST(Preferences, SpecialFilesReadAsEmpty)
{
    QTemporaryDir dir;
    const QString fifo = dir.path() + "/fifo.json";
    const QString zero = dir.path() + "/zero.json";
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    ASSERT_TRUE(QFile::link("/dev/zero", zero));
    for (const QString& path : {fifo, zero})
        EXPECT_TRUE(Preferences(path).all().isEmpty()) << path.toStdString();
}
