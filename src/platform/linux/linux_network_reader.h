#pragma once

#include "monitors/network_reader.h"
#include "platform/linux/nl80211.h"
#include "platform/linux/rooted_file_reader.h"

#include <functional>
#include <string_view>

namespace pulsebar {

// Pure parsing of the network files of /proc and /etc.
namespace NetText {
struct DefaultRoute {
    std::optional<QString> interface;
    std::optional<QString> gateway;
    bool operator==(const DefaultRoute&) const = default;
};
// The default route with the lowest metric in a proc/net/route table; malformed lines are skipped.
DefaultRoute defaultRoute(std::string_view routeTable);
// The valid "nameserver" addresses of a resolv.conf, in order.
QStringList nameservers(std::string_view resolvConf);
// Signal and noise level (dBm) of one interface in proc/net/wireless; noise is absent when the driver
// does not report it.
struct WirelessLevels {
    int signal = 0;
    std::optional<int> noise;
};
std::optional<WirelessLevels> wirelessLevels(std::string_view procNetWireless, std::string_view interfaceName);
} // namespace NetText

// Network readings of a Linux machine: sysfs counters and interface kinds, getifaddrs, the routing
// table, resolv.conf, and the Wi-Fi link from nl80211 with proc/net/wireless for the levels.
class LinuxNetworkReader : public NetworkReader {
public:
    using WirelessLinkSource = std::function<std::optional<WirelessLink>(const QString& interfaceName)>;

    // Without a link source the kernel's nl80211 interface is asked.
    explicit LinuxNetworkReader(RootedFileReader sysfs, WirelessLinkSource links = {});

    std::map<QString, InterfaceCounters> readCounters() override;
    std::map<QString, Addresses> readAddresses() override;
    GlobalNetworkState readGlobalState() override;
    std::optional<WiFiReading> readWiFi() override;
    std::map<QString, QString> readDisplayNames() override;
    std::map<QString, QString> readHardwareAddresses() override;
    bool isBridge(const QString& bsdName) override;

private:
    std::string netPath(const std::string& name, std::string_view file = {}) const;
    bool isWireless(const std::string& name) const;

    RootedFileReader m_sysfs;
    WirelessLinkSource m_links;
    std::unique_ptr<Nl80211> m_nl80211;
};

} // namespace pulsebar
