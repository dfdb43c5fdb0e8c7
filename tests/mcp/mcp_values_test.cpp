#include "mcp/mcp_tools.h"
#include "mcp/mcp_values.h"
#include "monitors/machine_facts.h"
#include "platform/linux/machine_reader.h"

#include "../support/test_support.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

#include <cmath>
#include <ctime>

using namespace pulsebar;

namespace {

QByteArray json(const QJsonValue& value)
{
    return QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
}

// Pins the local time zone for the test's lifetime.
class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const char* zone) : m_env("TZ", zone) { tzset(); }
    ~ScopedTimeZone() { tzset(); }

private:
    test::ScopedEnv m_env;
};

} // namespace

TEST(McpValue, RoundedNumbersAreExactOneDecimalJsonNumbers)
{
    EXPECT_EQ(json(McpValue::r(12.34)), "[12.3]");
    EXPECT_EQ(json(McpValue::r(0.1 + 0.2)), "[0.3]");
    // "%.1f" decides ties: 12.25 is exact in binary and goes to the even digit; 12.35 is stored just below.
    EXPECT_EQ(json(McpValue::r(12.25)), "[12.2]");
    EXPECT_EQ(json(McpValue::r(12.35)), "[12.3]");
    EXPECT_EQ(json(McpValue::r(99.96)), "[100]");
    EXPECT_EQ(json(McpValue::r(-3.14159)), "[-3.1]");
    EXPECT_EQ(json(McpValue::r(-0.04)), "[0]");
    EXPECT_EQ(json(McpValue::r(std::nan(""))), "[0]");
    EXPECT_EQ(json(McpValue::r(INFINITY)), "[0]");
    EXPECT_EQ(json(McpValue::r(-INFINITY)), "[0]");
    EXPECT_EQ(json(McpValue::r(123456789.06)), "[123456789.1]");
}

TEST(McpValue, SizesRatesAndHoursMinutesUseTheSharedFormats)
{
    EXPECT_EQ(McpValue::size(1536.0 * 1024 * 1024, 1024), "1.5 GB");
    EXPECT_EQ(McpValue::size(500e9, 1000), "500 GB");
    EXPECT_EQ(McpValue::rate(340 * 1024), "340 KB/s");
    EXPECT_EQ(McpValue::rate(std::nan("")), "0 B/s");
    EXPECT_EQ(McpValue::hoursMinutes(95), "1:35");
    EXPECT_EQ(McpValue::hoursMinutes(5), "0:05");
    EXPECT_EQ(McpValue::hoursMinutes(600), "10:00");
}

TEST(McpValue, TimestampsAreLocalIso8601WithAColonInTheOffset)
{
    {
        ScopedTimeZone zone("Europe/Berlin");
        EXPECT_EQ(McpValue::timestamp(1772716051.9), "2026-03-05T14:07:31+01:00");
        EXPECT_EQ(McpValue::timestamp(1783253251), "2026-07-05T14:07:31+02:00");
    }
    {
        ScopedTimeZone zone("UTC");
        EXPECT_EQ(McpValue::timestamp(0), "1970-01-01T00:00:00+00:00");
        // Times no calendar of four-digit years holds are pinned to its ends, never printed broken.
        EXPECT_EQ(McpValue::timestamp(9.2233720368547758e18), "9999-12-31T00:00:00+00:00");
        EXPECT_EQ(McpValue::timestamp(1e308), "9999-12-31T00:00:00+00:00");
        EXPECT_EQ(McpValue::timestamp(-1e308), "1970-01-01T00:00:00+00:00");
        EXPECT_EQ(McpValue::timestamp(std::nan("")), "1970-01-01T00:00:00+00:00");
    }
    {
        ScopedTimeZone zone("America/St_Johns");
        EXPECT_EQ(McpValue::timestamp(1772716051), "2026-03-05T09:37:31-03:30");
    }
}

TEST(McpHistoryPoints, BucketsHoldCeilOfCountOverPointsSamples)
{
    ScopedTimeZone zone("UTC");
    std::vector<MCPTools::Sample> samples;
    for (int i = 0; i < 100; ++i)
        samples.push_back({1772716000.0 + 10 * i, double(i)});

    const QJsonArray points = MCPTools::historyPoints(samples, 48);
    ASSERT_EQ(points.size(), 34); // ceil(100 / 48) = 3 samples each, the last one alone
    EXPECT_EQ(points[0]["time"].toString(), McpValue::timestamp(1772716000));
    EXPECT_EQ(points[0]["value"].toDouble(), 1.0);
    EXPECT_EQ(points[1]["time"].toString(), McpValue::timestamp(1772716030));
    EXPECT_EQ(points[1]["value"].toDouble(), 4.0);
    EXPECT_EQ(points[33]["value"].toDouble(), 99.0);

    EXPECT_TRUE(MCPTools::historyPoints(samples, 0).isEmpty());
    EXPECT_EQ(MCPTools::historyPoints(samples, 1000).size(), 100); // capped at 200, one sample per point
    EXPECT_EQ(MCPTools::historyPoints(samples, 1).size(), 1);
    EXPECT_EQ(MCPTools::historyPoints(samples, 1).at(0)["value"].toDouble(), 49.5);
}

TEST(McpHistoryPoints, SummaryNamesTheFirstPeakAndTheEnds)
{
    ScopedTimeZone zone("UTC");
    const std::vector<MCPTools::Sample> samples{{100, 10.04}, {110, 50.0}, {120, 2.0}, {130, 50.0}, {140, 2.0}, {150, 7.77}};
    const QJsonObject summary = MCPTools::historySummary(samples, 10);
    EXPECT_EQ(json(summary["average"]), "[20.3]");
    EXPECT_EQ(summary["max"].toDouble(), 50.0);
    EXPECT_EQ(summary["max_at"].toString(), "1970-01-01T00:01:50+00:00");
    EXPECT_EQ(summary["min"].toDouble(), 2.0);
    EXPECT_EQ(summary["min_at"].toString(), "1970-01-01T00:02:00+00:00");
    EXPECT_EQ(json(summary["latest"]), "[7.8]");
    EXPECT_EQ(summary["from"].toString(), "1970-01-01T00:01:40+00:00");
    EXPECT_EQ(summary["to"].toString(), "1970-01-01T00:02:30+00:00");
    EXPECT_EQ(json(summary["point_seconds"]), "[10]");
}

TEST(McpSpeedTests, SavedResultsNewestFirstOrTheNoneYetText)
{
    ScopedTimeZone zone("UTC");
    EXPECT_EQ(MCPTools::speedTests(QJsonValue()).toString(), "None yet. Run one from Pulsebar's Network dropdown.");
    EXPECT_EQ(MCPTools::speedTests(QJsonArray{}).toString(), "None yet. Run one from Pulsebar's Network dropdown.");
    EXPECT_EQ(MCPTools::speedTests(QJsonArray{QJsonObject{{"download", 1.0}}}).toString(),
              "None yet. Run one from Pulsebar's Network dropdown.");

    const QJsonArray saved = QJsonDocument::fromJson(R"([
        {"date": 1000, "download": 12500000, "upload": 2500000, "responsiveness": 600, "baseRTT": 18.5},
        {"date": "1970-01-01T01:00:00Z", "download": 1024, "upload": 512, "interface": "wlan0"},
        "garbage"
    ])").array();
    const QJsonArray list = MCPTools::speedTests(saved).toArray();
    ASSERT_EQ(list.size(), 2);
    EXPECT_EQ(list[0].toObject(), (QJsonObject{{"time", "1970-01-01T01:00:00+00:00"}, {"download", "1.0 KB/s"},
                                               {"upload", "512 B/s"}}));
    EXPECT_EQ(list[1].toObject(), (QJsonObject{{"time", "1970-01-01T00:16:40+00:00"}, {"download", "11.9 MB/s"},
                                               {"upload", "2.4 MB/s"}, {"responsiveness_rpm", 600},
                                               {"latency_under_load_ms", 100}}));
}

TEST(ThermalState, TheHottestZoneWithTripPointsAgainstItsOwnTrips)
{
    const std::vector<ThermalTrip> trips{{"critical", 105}, {"hot", 95}, {"passive", 85}, {"active", 60}};
    auto state = [&](double celsius) { return thermalState({{celsius, trips}}); };
    EXPECT_EQ(state(70), ThermalState::nominal); // an active (fan) trip is not a thermal limit
    EXPECT_EQ(state(85), ThermalState::fair);
    EXPECT_EQ(state(94.9), ThermalState::fair);
    EXPECT_EQ(state(95), ThermalState::serious);
    EXPECT_EQ(state(105), ThermalState::critical);
    EXPECT_EQ(thermalState({}), std::nullopt);
    EXPECT_EQ(thermalState({{120, {}}}), std::nullopt);
    // A hotter zone without trip points does not count; the hottest zone with trips decides.
    EXPECT_EQ(thermalState({{120, {}}, {50, trips}, {90, trips}}), ThermalState::fair);
    EXPECT_EQ(enumName(ThermalState::serious), "serious");
}

TEST(LinuxMachineReader, ReadsModelOsAndThermalZonesFromTheSysroot)
{
    LinuxMachineReader reader(RootedFileReader(test::fixture("mcp/sysroot").toStdString()));
    EXPECT_EQ(reader.readModel(), "Fixture Book 14");
    EXPECT_EQ(reader.readOSVersion(), "Debian GNU/Linux 12 (bookworm) (6.1.0-fixture-amd64)");
    const auto zones = reader.readThermalZones();
    ASSERT_EQ(zones.size(), 3u);
    EXPECT_TRUE(zones[0].trips.empty()); // a trip at 0 m°C is unused
    EXPECT_EQ(zones[1].celsius, 87.5);
    EXPECT_EQ(zones[1].trips.size(), 3u);
    EXPECT_EQ(thermalState(zones), ThermalState::fair);

    LinuxMachineReader empty(RootedFileReader(test::fixture("no-such-tree").toStdString()));
    EXPECT_EQ(empty.readModel(), std::nullopt);
    EXPECT_EQ(empty.readOSVersion(), std::nullopt);
    EXPECT_TRUE(empty.readThermalZones().empty());
}

TEST(LinuxMachineReader, OsReleaseValuesAreUnquoted)
{
    const char* text = "NAME=Fedora\nPRETTY_NAME='Fedora Linux 39 (Workstation)'\nX=\"a \\\"b\\\"\"\nEMPTY=\"\"\n";
    EXPECT_EQ(LinuxMachineReader::osReleaseValue(text, "NAME"), "Fedora");
    EXPECT_EQ(LinuxMachineReader::osReleaseValue(text, "PRETTY_NAME"), "Fedora Linux 39 (Workstation)");
    EXPECT_EQ(LinuxMachineReader::osReleaseValue(text, "X"), "a \"b\"");
    EXPECT_EQ(LinuxMachineReader::osReleaseValue(text, "EMPTY"), std::nullopt);
    EXPECT_EQ(LinuxMachineReader::osReleaseValue(text, "PRETTY"), std::nullopt);
}
