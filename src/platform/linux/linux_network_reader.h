#pragma once

#include "monitors/network_reader.h"
#include "platform/linux/icmp_echo.h"
#include "platform/linux/nl80211.h"
#include "platform/linux/rooted_file_reader.h"
#include "platform/linux/rtnetlink_watch.h"

#include <sys/types.h>

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
    ~LinuxNetworkReader() override;
    LinuxNetworkReader(LinuxNetworkReader&&) = default;

    std::map<QString, InterfaceCounters> readCounters() override;
    std::map<QString, Addresses> readAddresses() override;
    GlobalNetworkState readGlobalState() override;
    std::optional<WiFiReading> readWiFi() override;
    std::map<QString, QString> readDisplayNames() override;
    std::map<QString, QString> readHardwareAddresses() override;
    bool isBridge(const QString& bsdName) override;
    PingCommand pingCommand(const QString& host, int timeoutSeconds) const override;
    // Over an unprivileged ICMP datagram socket, for a host given as an address.
    bool sendEchoRequest(const QString& host, int timeoutSeconds,
                         std::function<void(std::optional<double>)> done) override;
    // The iputils ping command line, run as `program`.
    static PingCommand iputilsPing(const QString& program, const QString& host, int timeoutSeconds);

private:
    // An interface as listed, with what cannot change while it exists.
    struct Link {
        std::string name;
        QString qName;
        bool hardware = false; // backed by a device
        bool wireless = false;
        RootedFileReader::OpenFile rx, tx; // its byte counters, held open on the running system
    };
    // Identifies one version of a file.
    struct FileStamp {
        dev_t device;
        ino_t inode;
        off_t size;
        time_t modified;
        long modifiedNanoseconds;
        long changedNanoseconds;
        bool operator==(const FileStamp&) const = default;
    };
    struct StampedText {
        bool valid = false;
        std::optional<FileStamp> stamp;
        std::optional<std::string> text;
    };

    std::string netPath(const std::string& name, std::string_view file = {}) const;
    bool isWireless(const std::string& name) const;
    // Folds what the kernel reported since the last call into the flags below.
    void takeChanges();
    // The interfaces, listed again only when they changed (always on a fixture tree).
    const std::vector<Link>& links();
    std::optional<uint64_t> readCounter(const Link& link, const RootedFileReader::OpenFile& held,
                                        std::string_view file) const;
    std::map<QString, Addresses> listAddresses();
    std::optional<FileStamp> stamp(std::string_view relative) const;
    // The file's text, read again only when its stamp changed (always on a fixture tree).
    std::optional<std::string> readUnlessUnchanged(std::string_view relative, StampedText& cache);

    RootedFileReader m_sysfs;
    WirelessLinkSource m_links;
    std::unique_ptr<Nl80211> m_nl80211;
    // Link, address and route notifications of the running system; absent on a fixture tree, where
    // everything is read on every call.
    std::unique_ptr<RtnetlinkWatch> m_watch;
    bool m_linksChanged = true;
    bool m_addressesChanged = true;
    bool m_routesChanged = true;
    std::vector<Link> m_linkList;
    std::map<QString, bool> m_bridges;
    std::map<QString, Addresses> m_addresses;
    NetText::DefaultRoute m_route;
    StampedText m_resolvConf;
    StampedText m_resolvedConf;
    std::unique_ptr<IcmpEchoRequest> m_echo; // the last one sent
    bool m_echoRefused = false;
};

} // namespace pulsebar
