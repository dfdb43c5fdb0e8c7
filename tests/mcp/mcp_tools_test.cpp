// Each tool's keys on known live state: the hub's monitors hold exact values, so every rounding, size,
// rate and timestamp text can be asserted.

#include "core/hub.h"
#include "mcp/mcp_tools.h"
#include "mcp/tool_error.h"
#include "platform/linux/machine_reader.h"

#include "../support/test_support.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

#include <ctime>

using namespace pulsebar;

namespace {

QJsonObject parse(const char* json)
{
    QJsonParseError error{};
    const QJsonObject object = QJsonDocument::fromJson(json, &error).object();
    EXPECT_EQ(error.error, QJsonParseError::NoError) << json;
    return object;
}

QString pretty(const QJsonObject& object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Indented));
}

#define EXPECT_JSON_EQ(actual, expected) EXPECT_EQ(pretty(actual), pretty(expected))

class McpTools : public ::testing::Test {
protected:
    McpTools()
        : sysroot("PULSEBAR_SYSROOT", test::fixture("mcp/sysroot")), timeZone("TZ", "UTC"),
          dataHome("XDG_DATA_HOME", home.path() + "/data"),
          preferences(home.path() + "/preferences.json"), settings(preferences)
    {
        tzset();
        hub = std::make_unique<Hub>(settings);
        hub->now = [] { return 1772716051.0; }; // 2026-03-05T13:07:31Z
        tools = std::make_unique<MCPTools>(
            *hub, std::make_unique<LinuxMachineReader>(SysFs(test::fixture("mcp/sysroot").toStdString())));
    }
    ~McpTools() override { tzset(); }

    QTemporaryDir home;
    test::ScopedEnv sysroot;
    test::ScopedEnv timeZone;
    test::ScopedEnv dataHome;
    Preferences preferences;
    AppSettings settings;
    std::unique_ptr<Hub> hub;
    std::unique_ptr<MCPTools> tools;
};

} // namespace

TEST_F(McpTools, NetworkReportsRatesAddressesWifiAndSpeedTests)
{
    NetworkMonitor& n = hub->network;
    n.download = 1536.0 * 1024;
    n.upload = 800;
    n.internetReachable = true;
    n.dns = {"192.168.1.1", "fd00::1"};
    n.vpnInterfaces = {"wg0"};
    n.primaryInterface = "wlp2s0";
    n.router = "192.168.1.1";
    n.publicIP = "203.0.113.7";
    n.pingMs = 12.345;
    InterfaceInfo wifi;
    wifi.bsdName = "wlp2s0";
    wifi.displayName = "Wi-Fi";
    wifi.ipv4 = {"192.168.1.20"};
    wifi.download = 1536.0 * 1024;
    wifi.upload = 800;
    InterfaceInfo vpn;
    vpn.bsdName = "wg0";
    vpn.displayName = "VPN (wg0)";
    vpn.ipv4 = {"10.0.0.2"};
    n.interfaces = {wifi, vpn};
    WiFiInfo link;
    link.interfaceName = "wlp2s0";
    link.ssid = "Home/5G";
    link.bssid = "aa:bb:cc:dd:ee:ff";
    link.rssi = -54;
    link.noise = -92;
    link.channel = 36;
    link.band = "5 GHz";
    link.transmitRate = 866.66;
    link.phyMode = "802.11ac (Wi-Fi 5)";
    link.security = "WPA2 Personal";
    n.wifi = link;

    EXPECT_JSON_EQ(tools->getNetwork(), parse(R"json({
        "download_per_second": "1.5 MB/s", "upload_per_second": "800 B/s", "internet": "connected",
        "dns": ["192.168.1.1", "fd00::1"], "vpn_interfaces": ["wg0"], "primary_interface": "wlp2s0",
        "router": "192.168.1.1", "public_ip": "203.0.113.7", "ping_ms": 12.3,
        "interfaces": [
            {"name": "Wi-Fi", "bsd_name": "wlp2s0", "ipv4": ["192.168.1.20"],
             "download_per_second": "1.5 MB/s", "upload_per_second": "800 B/s"},
            {"name": "VPN (wg0)", "bsd_name": "wg0", "ipv4": ["10.0.0.2"],
             "download_per_second": "0 B/s", "upload_per_second": "0 B/s"}],
        "wifi": {"network": "Home/5G", "signal_dbm": -54, "noise_dbm": -92, "channel": 36, "band": "5 GHz",
                 "tx_rate_mbps": 866.7, "standard": "802.11ac (Wi-Fi 5)", "security": "WPA2 Personal"},
        "speed_tests": "None yet. Run one from Pulsebar's Network dropdown."
    })json"));

    // Unknown values are left out; a withheld network name is said so; offline once a ping failed.
    n.publicIP.reset();
    n.pingMs.reset();
    n.router.reset();
    n.primaryInterface.reset();
    n.internetReachable = false;
    n.wifi->ssid.reset();
    n.wifi->channel.reset();
    n.wifi->band.reset();
    QJsonObject result = tools->getNetwork();
    for (const char* key : {"public_ip", "ping_ms", "router", "primary_interface"})
        EXPECT_FALSE(result.contains(key)) << key;
    EXPECT_EQ(result["internet"].toString(), "offline");
    EXPECT_JSON_EQ(result["wifi"].toObject(), parse(R"json({
        "network": "(hidden: Location permission needed)", "signal_dbm": -54, "noise_dbm": -92,
        "tx_rate_mbps": 866.7, "standard": "802.11ac (Wi-Fi 5)", "security": "WPA2 Personal"})json"));

    // A radio that is on but not associated is no Wi-Fi link; no ping yet reads "checking".
    n.wifi->bssid.reset();
    n.internetReachable.reset();
    result = tools->getNetwork();
    EXPECT_FALSE(result.contains("wifi"));
    EXPECT_EQ(result["internet"].toString(), "checking");

    // Saved speed tests come from the preferences file.
    preferences.setValue("PulsebarSpeedTests.v1", QJsonDocument::fromJson(R"json([
        {"date": 1772716000, "download": 12500000, "upload": 2500000, "responsiveness": 1200}])json").array());
    EXPECT_JSON_EQ(tools->getNetwork()["speed_tests"].toArray().at(0).toObject(), parse(R"json({
        "time": "2026-03-05T13:06:40+00:00", "download": "11.9 MB/s", "upload": "2.4 MB/s",
        "responsiveness_rpm": 1200, "latency_under_load_ms": 50})json"));
}
