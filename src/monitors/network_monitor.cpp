#include "monitors/network_monitor.h"

#include "core/clock.h"
#include "core/paths.h"
#include "monitors/counters.h"

#include <QHostAddress>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QProcess>
#include <QTimer>

#include <algorithm>
#include <cctype>
#include <cmath>

namespace pulsebar {

namespace {

constexpr double publicIPMaxAge = 600; // seconds
// A ping that has not ended this long after its own time-out (a host name whose lookup hangs) is killed.
constexpr int pingGraceMs = 10000;

bool startsWithAny(const QString& name, std::initializer_list<const char*> prefixes)
{
    for (const char* prefix : prefixes)
        if (name.startsWith(QLatin1String(prefix)))
            return true;
    return false;
}

bool isVPNName(const QString& name)
{
    return startsWithAny(name, {"utun", "tun", "tap", "wg", "ppp", "ipsec", "tailscale"});
}

// Peer-to-peer links carry addresses but no traffic anyone wants listed.
bool isPeerToPeerName(const QString& name)
{
    return startsWithAny(name, {"awdl", "llw", "p2p-"});
}

} // namespace

NetworkMonitor::NetworkMonitor(std::unique_ptr<NetworkReader> reader, QObject* parent)
    : QObject(parent),
      now(systemClock()),
      publicIPURL(Paths::env("PULSEBAR_IPIFY_URL", QStringLiteral("https://api.ipify.org"))),
      m_reader(std::move(reader))
{
}

NetworkMonitor::~NetworkMonitor()
{
    // An open request is aborted by its manager; a running ping is ended here, where it cannot hang.
    if (m_ping) {
        m_ping->disconnect(this);
        m_ping->kill();
        m_ping->waitForFinished(1000);
    }
    if (m_publicIPReply)
        m_publicIPReply->disconnect(this);
}

std::map<QString, InterfaceCounters> NetworkMonitor::readCounters()
{
    return m_reader->readCounters();
}

std::map<QString, Addresses> NetworkMonitor::readAddresses()
{
    return m_reader->readAddresses();
}

void NetworkMonitor::sample()
{
    ++m_tick;
    std::map<QString, InterfaceCounters> counters = readCounters();
    const std::map<QString, Addresses> addresses = readAddresses();
    const double time = now();
    const double dt = m_lastSample ? std::max(0.0, time - *m_lastSample) : 0.0;
    if (m_tick == 1)
        refreshDisplayNames(); // names from the first sample on, not only after 30 of them

    double totalUp = 0, totalDown = 0;
    interfaces.clear();
    for (const auto& [name, current] : counters) {
        if (name.startsWith(QLatin1String("lo")))
            continue;
        double up = 0, down = 0;
        const auto last = m_lastCounters.find(name);
        if (last != m_lastCounters.end() && dt > 0) {
            up = counterRate(current.tx, last->second.tx, dt);
            down = counterRate(current.rx, last->second.rx, dt);
        }
        if (current.hardware) {
            totalUp += up;
            totalDown += down;
            if (dt > 0) {
                sessionUp += uint64_t(up * dt + 0.5);
                sessionDown += uint64_t(down * dt + 0.5);
            }
        }

        const auto found = addresses.find(name);
        if (found == addresses.end() || isPeerToPeerName(name))
            continue;
        InterfaceInfo info;
        info.bsdName = name;
        info.ipv4 = found->second.v4;
        for (const QString& v6 : found->second.v6)
            if (!v6.startsWith(QLatin1String("fe80"), Qt::CaseInsensitive))
                info.ipv6.append(v6);
        if (info.ipv4.isEmpty() && info.ipv6.isEmpty())
            continue;
        const auto displayName = m_displayNames.find(name);
        info.displayName = displayName != m_displayNames.end() ? displayName->second
                                                             : fallbackName(name, m_reader->isBridge(name));
        if (const auto factory = m_hardwareAddresses.find(name); factory != m_hardwareAddresses.end())
            info.mac = factory->second;
        else if (found->second.mac != QLatin1String("02:00:00:00:00:00"))
            info.mac = found->second.mac;
        info.upload = up;
        info.download = down;
        info.totalUp = current.tx;
        info.totalDown = current.rx;
        interfaces.push_back(std::move(info));
    }

    m_lastCounters = std::move(counters);
    m_lastSample = time;
    upload = totalUp;
    download = totalDown;
    uploadHistory.add(upload);
    downloadHistory.add(download);

    readGlobalState();
    // The counter map is ordered by name already; a stable partition brings the primary to the front.
    std::stable_partition(interfaces.begin(), interfaces.end(),
                          [&](const InterfaceInfo& i) { return primaryInterface && i.bsdName == *primaryInterface; });

    vpnInterfaces.clear();
    for (const InterfaceInfo& i : interfaces)
        if (isVPNName(i.bsdName) && !i.ipv4.isEmpty())
            vpnInterfaces.append(i.bsdName);

    readWiFi();

    if (m_tick % 5 == 1)
        runPing();

    const QString key = publicIPKey(primaryInterface, interfaces);
    if (key != m_lastPublicIPKey || time - m_lastPublicIPFetch > publicIPMaxAge) {
        m_lastPublicIPKey = key;
        fetchPublicIP();
    }

    if (m_tick % 30 == 0)
        refreshDisplayNames();
}

void NetworkMonitor::readGlobalState()
{
    const GlobalNetworkState state = m_reader->readGlobalState();
    primaryInterface = state.primaryInterface;
    router = state.router;
    dns = state.dns;
}

void NetworkMonitor::readWiFi()
{
    const std::optional<WiFiReading> reading = m_reader->readWiFi();
    if (!reading || !reading->powerOn)
        wifi.reset();
    else
        wifi = wifiInfo(*reading);
}

void NetworkMonitor::refreshDisplayNames()
{
    m_displayNames = m_reader->readDisplayNames();
    m_hardwareAddresses = m_reader->readHardwareAddresses();
}

QString NetworkMonitor::fallbackName(const QString& bsdName, bool isBridge)
{
    if (isVPNName(bsdName))
        return QStringLiteral("VPN (%1)").arg(bsdName);
    if (isBridge || bsdName.startsWith(QLatin1String("bridge")))
        return QStringLiteral("Bridge (%1)").arg(bsdName);
    return bsdName;
}

QString NetworkMonitor::publicIPKey(const std::optional<QString>& primary, const std::vector<InterfaceInfo>& list)
{
    QString address;
    if (primary) {
        const auto it = std::find_if(list.begin(), list.end(), [&](const InterfaceInfo& i) { return i.bsdName == *primary; });
        if (it != list.end() && !it->ipv4.isEmpty())
            address = it->ipv4.front();
    }
    return primary.value_or(QString()) + QLatin1Char('|') + address;
}

WiFiInfo NetworkMonitor::wifiInfo(const WiFiReading& r)
{
    // Indexed by the enumerations' cases; an empty text is no text.
    static const char* const bands[] = {"", "2.4 GHz", "5 GHz", "6 GHz"};
    static const char* const widths[] = {"", "20 MHz", "40 MHz", "80 MHz", "160 MHz"};
    static const char* const phyModes[] = {"—", "802.11a", "802.11b", "802.11g", "802.11n (Wi-Fi 4)",
                                           "802.11ac (Wi-Fi 5)", "802.11ax (Wi-Fi 6)", "802.11be (Wi-Fi 7)"};
    // Indexed by the security code 0…15.
    static const char* const securities[] = {
        "None", "WEP", "WPA Personal", "WPA Personal", "WPA2 Personal", "Personal", "WEP", "Enterprise",
        "Enterprise", "Enterprise", "Enterprise", "WPA3 Personal", "Enterprise", "WPA2/WPA3 Personal",
        "Enhanced Open", "Enhanced Open"};

    WiFiInfo info;
    info.interfaceName = r.interfaceName;
    info.ssid = r.ssid;
    info.bssid = r.bssid;
    info.rssi = r.rssi;
    info.noise = r.noise;
    info.channel = r.channel;
    if (r.band != WiFiBand::unknown)
        info.band = QString::fromUtf8(bands[int(r.band)]);
    if (r.width != WiFiChannelWidth::unknown)
        info.width = QString::fromUtf8(widths[int(r.width)]);
    info.transmitRate = r.transmitRate;
    info.phyMode = QString::fromUtf8(phyModes[int(r.phyMode)]);
    if (!r.security)
        info.security = QStringLiteral("—");
    else if (*r.security >= 0 && *r.security <= 15)
        info.security = QString::fromUtf8(securities[*r.security]);
    else
        info.security = QStringLiteral("Secured");
    info.countryCode = r.countryCode;
    return info;
}

std::optional<double> NetworkMonitor::parsePingTime(const QByteArray& output)
{
    const qsizetype at = output.indexOf("time=");
    if (at < 0)
        return std::nullopt;
    qsizetype end = at + 5;
    while (end < output.size() && (std::isdigit(static_cast<unsigned char>(output[end])) || output[end] == '.'))
        ++end;
    bool ok = false;
    const double ms = output.mid(at + 5, end - at - 5).toDouble(&ok);
    return ok && std::isfinite(ms) ? std::optional(ms) : std::nullopt;
}

void NetworkMonitor::runPing()
{
    if (m_pingInFlight)
        return;
    m_pingInFlight = true;
    const QString host = pingHost.trimmed();
    QPointer<NetworkMonitor> self(this);
    if (m_reader->sendEchoRequest(host, pingTimeoutSeconds, [self](std::optional<double> ms) {
            if (self)
                self->publishPing(ms);
        }))
        return;
    auto* process = new QProcess(this);
    m_ping = process;
    const PingCommand command = m_reader->pingCommand(host, pingTimeoutSeconds);
    process->setProgram(command.program);
    process->setArguments(command.arguments);
    process->setStandardErrorFile(QProcess::nullDevice());
    process->setStandardInputFile(QProcess::nullDevice());
    connect(process, &QProcess::finished, this, &NetworkMonitor::pingEnded);
    connect(process, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            pingEnded();
    });
    QTimer::singleShot(pingTimeoutSeconds * 1000 + pingGraceMs, process, [process] { process->kill(); });
    process->start();
}

void NetworkMonitor::pingEnded()
{
    QProcess* process = m_ping;
    if (!process)
        return;
    m_ping = nullptr;
    const QByteArray output = process->readAllStandardOutput();
    process->disconnect(this);
    process->deleteLater();
    publishPing(parsePingTime(output));
}

void NetworkMonitor::publishPing(std::optional<double> milliseconds)
{
    m_pingInFlight = false;
    pingMs = milliseconds;
    internetReachable = pingMs.has_value();
    if (pingMs)
        pingHistory.add(*pingMs);
    Q_EMIT pingFinished();
}

void NetworkMonitor::fetchPublicIP()
{
    m_lastPublicIPFetch = now();
    // A newer request replaces an older one, whose answer may describe the previous network.
    if (m_publicIPReply) {
        m_publicIPReply->disconnect(this);
        m_publicIPReply->abort();
        m_publicIPReply->deleteLater();
    }
    if (!m_network)
        m_network = new QNetworkAccessManager(this);
    QNetworkRequest request{QUrl(publicIPURL)};
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    QNetworkReply* reply = m_network->get(request);
    m_publicIPReply = reply;
    connect(reply, &QNetworkReply::finished, this, [this, reply] { publicIPReplied(reply); });
    // A whole-request limit: a server that trickles bytes must not keep the request open either.
    QTimer::singleShot(publicIPTimeoutMs, reply, [reply] { reply->abort(); });
}

void NetworkMonitor::publicIPReplied(QNetworkReply* reply)
{
    reply->deleteLater();
    if (m_publicIPReply == reply)
        m_publicIPReply = nullptr;
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (reply->error() == QNetworkReply::NoError && status >= 200 && status < 300) {
        const QString body = QString::fromUtf8(reply->read(256)).trimmed();
        // Only an address is taken: a captive portal's page or an error text keeps the last address.
        if (!QHostAddress(body).isNull())
            publicIP = body;
    }
    Q_EMIT publicIPFinished();
}

} // namespace pulsebar
