#include "platform/linux/linux_network_reader.h"

#include <QHostAddress>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netpacket/packet.h>
#include <sys/stat.h>

#include <limits>

namespace pulsebar {

namespace NetText {

namespace {

// Calls fn(line) for every line of a text.
template <typename Fn>
void forEachLine(std::string_view text, Fn fn)
{
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        fn(text.substr(0, end));
        if (end == std::string_view::npos)
            break;
        text.remove_prefix(end + 1);
    }
}

std::vector<std::string_view> words(std::string_view line)
{
    std::vector<std::string_view> out;
    std::size_t pos = 0;
    while (pos < line.size()) {
        while (pos < line.size() && (line[pos] == ' ' || line[pos] == '\t'))
            ++pos;
        std::size_t end = pos;
        while (end < line.size() && line[end] != ' ' && line[end] != '\t')
            ++end;
        if (end > pos)
            out.push_back(line.substr(pos, end - pos));
        pos = end;
    }
    return out;
}

std::optional<uint32_t> hex32(std::string_view text)
{
    if (text.empty() || text.size() > 8)
        return std::nullopt;
    uint32_t value = 0;
    for (char c : text) {
        int digit;
        if (c >= '0' && c <= '9')
            digit = c - '0';
        else if (c >= 'a' && c <= 'f')
            digit = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            digit = c - 'A' + 10;
        else
            return std::nullopt;
        value = value << 4 | uint32_t(digit);
    }
    return value;
}

// A level column of proc/net/wireless: "-52." (dBm) with the driver's trailing dot.
std::optional<int> level(std::string_view text)
{
    if (!text.empty() && text.back() == '.')
        text.remove_suffix(1);
    const auto value = SysText::toInt(text);
    return value ? std::optional<int>(int(*value)) : std::nullopt;
}

} // namespace

DefaultRoute defaultRoute(std::string_view table)
{
    constexpr uint32_t routeUp = 0x1, routeGateway = 0x2;
    DefaultRoute best;
    uint64_t bestMetric = std::numeric_limits<uint64_t>::max();
    bool header = true;
    forEachLine(table, [&](std::string_view line) {
        if (std::exchange(header, false))
            return;
        const auto w = words(line);
        // Iface Destination Gateway Flags RefCnt Use Metric Mask ...
        if (w.size() < 8)
            return;
        const auto destination = hex32(w[1]), gateway = hex32(w[2]), flags = hex32(w[3]), mask = hex32(w[7]);
        const auto metric = SysText::toUnsigned(w[6]);
        if (!destination || !gateway || !flags || !mask || !metric)
            return;
        if (*destination != 0 || *mask != 0 || !(*flags & routeUp) || *metric >= bestMetric)
            return;
        bestMetric = *metric;
        best.interface = QString::fromUtf8(w[0].data(), qsizetype(w[0].size()));
        best.gateway.reset();
        if ((*flags & routeGateway) && *gateway != 0) {
            in_addr address{*gateway}; // the table holds the address in network byte order
            char text[INET_ADDRSTRLEN];
            if (inet_ntop(AF_INET, &address, text, sizeof text))
                best.gateway = QString::fromLatin1(text);
        }
    });
    return best;
}

QStringList nameservers(std::string_view conf)
{
    QStringList out;
    forEachLine(conf, [&](std::string_view line) {
        const auto w = words(line);
        if (w.size() < 2 || w[0] != "nameserver")
            return;
        const QString address = QString::fromUtf8(w[1].data(), qsizetype(w[1].size()));
        if (!QHostAddress(address).isNull() && !out.contains(address))
            out.append(address);
    });
    return out;
}

std::optional<WirelessLevels> wirelessLevels(std::string_view text, std::string_view name)
{
    std::optional<WirelessLevels> out;
    forEachLine(text, [&](std::string_view line) {
        const std::size_t colon = line.find(':');
        if (out || colon == std::string_view::npos || SysText::trim(line.substr(0, colon)) != name)
            return;
        // name: status quality level noise ...
        const auto w = words(line.substr(colon + 1));
        if (w.size() < 4)
            return;
        const auto signal = level(w[2]);
        if (!signal)
            return;
        WirelessLevels levels{*signal, level(w[3])};
        // -256 is the kernel's "no noise figure"; anything at or above 0 dBm is not a noise floor either.
        if (levels.noise && (*levels.noise <= -256 || *levels.noise >= 0))
            levels.noise.reset();
        out = levels;
    });
    return out;
}

} // namespace NetText


LinuxNetworkReader::LinuxNetworkReader(RootedFileReader sysfs, WirelessLinkSource links)
    : m_sysfs(std::move(sysfs)), m_links(std::move(links))
{
    if (!m_links) {
        m_nl80211 = std::make_unique<Nl80211>();
        m_links = [nl = m_nl80211.get()](const QString& name) { return nl->query(name); };
    }
    // The kernel's notifications describe the running system; a fixture tree is read afresh each time.
    if (m_sysfs.isRunningSystem()) {
        m_watch = std::make_unique<RtnetlinkWatch>();
        if (!m_watch->isOpen())
            m_watch.reset();
    }
}

LinuxNetworkReader::~LinuxNetworkReader() = default;

void LinuxNetworkReader::takeChanges()
{
    const NetworkChanges changes = m_watch ? m_watch->take() : NetworkChanges::everything();
    // An interface that comes or goes takes its addresses and routes with it.
    m_linksChanged = m_linksChanged || changes.links;
    m_addressesChanged = m_addressesChanged || changes.links || changes.addresses;
    m_routesChanged = m_routesChanged || changes.links || changes.addresses || changes.routes;
}

const std::vector<LinuxNetworkReader::Link>& LinuxNetworkReader::links()
{
    takeChanges();
    if (!std::exchange(m_linksChanged, false))
        return m_linkList;
    m_linkList.clear();
    m_bridges.clear();
    for (const std::string& name : m_sysfs.list("sys/class/net")) {
        Link link{name, QString::fromStdString(name), m_sysfs.exists(netPath(name, "device")), isWireless(name), {}, {}};
        // Held open only where notifications say when the interface goes (its files then fail).
        if (m_watch) {
            link.rx = m_sysfs.open(netPath(name, "statistics/rx_bytes"));
            link.tx = m_sysfs.open(netPath(name, "statistics/tx_bytes"));
        }
        m_linkList.push_back(std::move(link));
    }
    return m_linkList;
}

std::optional<uint64_t> LinuxNetworkReader::readCounter(const Link& link, const RootedFileReader::OpenFile& held,
                                                        std::string_view file) const
{
    if (!held.isOpen())
        return m_sysfs.readUnsigned(netPath(link.name, file));
    char buffer[64];
    const long n = held.readRecord(buffer, sizeof buffer);
    return n < 0 ? std::nullopt : SysText::toUnsigned({buffer, std::size_t(n)});
}

std::optional<LinuxNetworkReader::FileStamp> LinuxNetworkReader::stamp(std::string_view relative) const
{
    struct stat st;
    if (::stat(m_sysfs.path(relative).c_str(), &st) != 0)
        return std::nullopt;
    return FileStamp{st.st_dev, st.st_ino, st.st_size, st.st_mtim.tv_sec, st.st_mtim.tv_nsec, st.st_ctim.tv_nsec};
}

std::optional<std::string> LinuxNetworkReader::readUnlessUnchanged(std::string_view relative, StampedText& cache)
{
    // A file is read again when it was replaced or written since; without notifications, always.
    if (m_watch) {
        const std::optional<FileStamp> now = stamp(relative);
        if (cache.valid && now == cache.stamp)
            return cache.text;
        cache.stamp = now;
    }
    cache.text = m_sysfs.readText(relative);
    cache.valid = m_watch != nullptr;
    return cache.text;
}

std::string LinuxNetworkReader::netPath(const std::string& name, std::string_view file) const
{
    std::string path = "sys/class/net/" + name;
    if (!file.empty()) {
        path += '/';
        path += file;
    }
    return path;
}

bool LinuxNetworkReader::isWireless(const std::string& name) const
{
    return m_sysfs.exists(netPath(name, "wireless")) || m_sysfs.exists(netPath(name, "phy80211"));
}

std::map<QString, InterfaceCounters> LinuxNetworkReader::readCounters()
{
    std::map<QString, InterfaceCounters> out;
    for (const Link& link : links()) {
        const auto rx = readCounter(link, link.rx, "statistics/rx_bytes");
        const auto tx = readCounter(link, link.tx, "statistics/tx_bytes");
        if (!rx || !tx)
            continue; // gone between the listing and the read
        out.emplace_hint(out.end(), link.qName, InterfaceCounters{*rx, *tx, link.hardware});
    }
    return out;
}

std::map<QString, Addresses> LinuxNetworkReader::readAddresses()
{
    takeChanges();
    if (std::exchange(m_addressesChanged, false) || !m_watch)
        m_addresses = listAddresses();
    return m_addresses;
}

std::map<QString, Addresses> LinuxNetworkReader::listAddresses()
{
    std::map<QString, Addresses> out;
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0)
        return out;
    for (const ifaddrs* entry = list; entry; entry = entry->ifa_next) {
        if (!entry->ifa_name || !entry->ifa_addr)
            continue;
        Addresses& addresses = out[QString::fromLocal8Bit(entry->ifa_name)];
        const int family = entry->ifa_addr->sa_family;
        if (family == AF_PACKET) {
            const auto* link = reinterpret_cast<const sockaddr_ll*>(entry->ifa_addr);
            if (link->sll_halen == 6)
                addresses.mac = WirelessFacts::macText(link->sll_addr, 6);
        } else if (family == AF_INET || family == AF_INET6) {
            char host[NI_MAXHOST];
            const socklen_t length = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
            if (getnameinfo(entry->ifa_addr, length, host, sizeof host, nullptr, 0, NI_NUMERICHOST) != 0)
                continue;
            (family == AF_INET ? addresses.v4 : addresses.v6).append(QString::fromLatin1(host));
        }
    }
    freeifaddrs(list);
    return out;
}

GlobalNetworkState LinuxNetworkReader::readGlobalState()
{
    takeChanges();
    if (std::exchange(m_routesChanged, false) || !m_watch) {
        m_route = {};
        if (const auto table = m_sysfs.readText("proc/net/route"))
            m_route = NetText::defaultRoute(*table);
    }
    GlobalNetworkState state;
    state.primaryInterface = m_route.interface;
    state.router = m_route.gateway;
    if (const auto conf = readUnlessUnchanged("etc/resolv.conf", m_resolvConf))
        state.dns = NetText::nameservers(*conf);
    // A resolv.conf that names only systemd-resolved's stub hides the real servers; resolved keeps
    // the upstream list in a file of its own.
    if (state.dns == QStringList{QStringLiteral("127.0.0.53")}) {
        if (const auto upstream = readUnlessUnchanged("run/systemd/resolve/resolv.conf", m_resolvedConf)) {
            const QStringList servers = NetText::nameservers(*upstream);
            if (!servers.isEmpty())
                state.dns = servers;
        }
    }
    return state;
}

std::optional<WiFiReading> LinuxNetworkReader::readWiFi()
{
    std::string name;
    for (const Link& link : links())
        if (link.wireless) {
            name = link.name;
            break;
        }
    if (name.empty())
        return std::nullopt;

    WiFiReading reading;
    reading.interfaceName = QString::fromStdString(name);
    const auto flags = m_sysfs.readLine(netPath(name, "flags"));
    reading.powerOn = flags && (QString::fromStdString(*flags).toUInt(nullptr, 0) & IFF_UP);
    if (!reading.powerOn)
        return reading;

    std::optional<NetText::WirelessLevels> levels;
    if (const auto text = m_sysfs.readText("proc/net/wireless"))
        levels = NetText::wirelessLevels(*text, name);
    const std::optional<WirelessLink> link = m_links(reading.interfaceName);

    const auto signal = link && link->signal ? link->signal : levels ? std::optional(levels->signal) : std::nullopt;
    const auto noise = link && link->noise ? link->noise : levels ? levels->noise : std::nullopt;
    reading.rssi = signal.value_or(0);
    reading.noise = noise.value_or(0);
    if (!link || !link->associated)
        return reading;
    reading.ssid = link->ssid;
    reading.bssid = link->bssid;
    if (link->frequency) {
        reading.channel = WirelessFacts::channel(*link->frequency);
        reading.band = WirelessFacts::band(*link->frequency);
    }
    if (link->channelWidth)
        reading.width = WirelessFacts::width(*link->channelWidth);
    reading.transmitRate = link->txBitrate;
    reading.phyMode = WirelessFacts::phyMode(link->rateKind, link->frequency, link->txBitrate);
    reading.security = link->security;
    reading.countryCode = link->countryCode;
    return reading;
}

std::map<QString, QString> LinuxNetworkReader::readDisplayNames()
{
    std::map<QString, QString> out;
    std::map<QString, int> seen;
    for (const std::string& name : m_sysfs.list("sys/class/net")) {
        QString base;
        if (isWireless(name)) {
            base = QStringLiteral("Wi-Fi");
        } else if (m_sysfs.exists(netPath(name, "device"))) {
            const std::string uevent = m_sysfs.readText(netPath(name, "uevent")).value_or(std::string());
            if (uevent.find("DEVTYPE=wwan") != std::string::npos || name.rfind("wwan", 0) == 0)
                base = QStringLiteral("Mobile Broadband");
            else if (m_sysfs.readInt(netPath(name, "type")) == 1) // ARPHRD_ETHER
                base = QStringLiteral("Ethernet");
        }
        if (base.isEmpty())
            continue;
        const int n = ++seen[base];
        out[QString::fromStdString(name)] = n == 1 ? base : base + QLatin1Char(' ') + QString::number(n);
    }
    return out;
}

std::map<QString, QString> LinuxNetworkReader::readHardwareAddresses()
{
    std::map<QString, QString> out;
    for (const std::string& name : m_sysfs.list("sys/class/net")) {
        // addr_assign_type 0: the address the hardware came with, not a random or user-set one.
        if (!m_sysfs.exists(netPath(name, "device")) || m_sysfs.readInt(netPath(name, "addr_assign_type")) != 0)
            continue;
        const auto address = m_sysfs.readLine(netPath(name, "address"));
        if (address && address->size() == 17 && *address != "00:00:00:00:00:00")
            out[QString::fromStdString(name)] = QString::fromStdString(*address).toLower();
    }
    return out;
}

bool LinuxNetworkReader::isBridge(const QString& bsdName)
{
    links(); // forgets what it knew when the interfaces changed
    const auto known = m_bridges.find(bsdName);
    if (known != m_bridges.end())
        return known->second;
    const bool bridge = m_sysfs.isDirectory(netPath(bsdName.toStdString(), "bridge"));
    if (m_watch)
        m_bridges.emplace(bsdName, bridge);
    return bridge;
}

PingCommand LinuxNetworkReader::pingCommand(const QString& host, int timeoutSeconds) const
{
    return iputilsPing(QStringLiteral("/bin/ping"), host, timeoutSeconds);
}

bool LinuxNetworkReader::sendEchoRequest(const QString& host, int timeoutSeconds,
                                         std::function<void(std::optional<double>)> done)
{
    // Names are left to the ping program, which looks them up itself.
    const QHostAddress address(host);
    if (address.isNull() || m_echoRefused)
        return false;
    m_echo = IcmpEchoRequest::send(address, timeoutSeconds * 1000, std::move(done));
    // Refused once (no group of ours may open the socket), refused for the life of the process.
    m_echoRefused = !m_echo;
    return m_echo != nullptr;
}

PingCommand LinuxNetworkReader::iputilsPing(const QString& program, const QString& host, int timeoutSeconds)
{
    // "--" keeps a host that starts with '-' from being read as an option.
    return {program, {QStringLiteral("-c"), QStringLiteral("1"), QStringLiteral("-W"), QString::number(timeoutSeconds),
                      QStringLiteral("--"), host}};
}

} // namespace pulsebar
