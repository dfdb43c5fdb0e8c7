#pragma once

#include "history/history.h"
#include "monitors/network_reader.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

class QNetworkAccessManager;
class QNetworkReply;
class QProcess;

namespace pulsebar {

// One interface that carries at least one address. Rates are bytes per second, totals bytes.
struct InterfaceInfo {
    QString bsdName; // the kernel's interface name, e.g. "eth0", "wlp2s0"
    QString displayName;
    QStringList ipv4;
    QStringList ipv6; // link-local (fe80…) addresses left out
    std::optional<QString> mac; // lower-case hex pairs joined by ':'
    double upload = 0;
    double download = 0;
    uint64_t totalUp = 0;   // the interface's cumulative counters
    uint64_t totalDown = 0;
    bool operator==(const InterfaceInfo&) const = default;
};

struct WiFiInfo {
    QString interfaceName;
    std::optional<QString> ssid;
    std::optional<QString> bssid;
    int rssi = 0;  // dBm
    int noise = 0; // dBm
    std::optional<int> channel;
    std::optional<QString> band;  // "2.4 GHz", "5 GHz", "6 GHz"
    std::optional<QString> width; // "20 MHz" … "160 MHz"
    double transmitRate = 0;      // Mbit/s
    QString phyMode;              // "802.11ax (Wi-Fi 6)", "—" when unknown
    QString security;             // "WPA2 Personal", "None", "—" when unknown
    std::optional<QString> countryCode;
    // Joined to a network: a link that names neither a network nor an access point is not.
    bool isAssociated() const { return ssid.has_value() || bssid.has_value(); }
    bool operator==(const WiFiInfo&) const = default;
};

// Throughput per interface and in total, the interfaces with addresses, the routing state, the Wi-Fi
// link, VPN interfaces, a periodic ping and the public address. sample() runs on the main thread in
// the hub's tick and never waits: the ping and the public-address request run in the background and
// publish their results on the main thread a little later.
class NetworkMonitor : public QObject {
    Q_OBJECT
public:
    explicit NetworkMonitor(std::unique_ptr<NetworkReader> reader, QObject* parent = nullptr);
    ~NetworkMonitor() override;

    void sample();

    // --- live state (read by the panels, history, insights and the agent tools) ---
    double upload = 0;   // bytes/s sent over the counted interfaces
    double download = 0; // bytes/s received over the counted interfaces
    History uploadHistory;
    History downloadHistory;
    uint64_t sessionUp = 0;   // bytes since the program started, counted interfaces only
    uint64_t sessionDown = 0;
    std::vector<InterfaceInfo> interfaces; // primary first, then by name
    std::optional<QString> primaryInterface;
    std::optional<QString> router;
    QStringList dns;
    std::optional<WiFiInfo> wifi; // absent without a Wi-Fi interface or when it is down
    QStringList vpnInterfaces;
    std::optional<QString> publicIP;
    std::optional<double> pingMs;
    History pingHistory; // successful ping times, ms
    std::optional<bool> internetReachable; // absent until the first ping has finished
    QString pingHost = QStringLiteral("1.1.1.1");
    // True from a ping's start until its result is published; another is not started meanwhile.
    bool isPinging() const { return m_pingInFlight; }

    // --- injectable for tests ---
    std::function<double()> now;   // seconds since 1970
    int pingTimeoutSeconds = 3;
    int publicIPTimeoutMs = 10000;
    QString publicIPURL;           // PULSEBAR_IPIFY_URL, else https://api.ipify.org

    // --- the steps of sample(), each usable on its own ---
    std::map<QString, InterfaceCounters> readCounters();
    std::map<QString, Addresses> readAddresses();
    void readGlobalState();
    void readWiFi();
    void runPing();
    void fetchPublicIP();
    void refreshDisplayNames();
    static QString fallbackName(const QString& bsdName, bool isBridge = false);

    // Pure pieces of the algorithm.
    static std::optional<double> parsePingTime(const QByteArray& output);
    static WiFiInfo wifiInfo(const WiFiReading& reading);
    static QString publicIPKey(const std::optional<QString>& primaryInterface,
                               const std::vector<InterfaceInfo>& interfaces);

Q_SIGNALS:
    // Emitted on the main thread when a ping or a public-address request has finished.
    void pingFinished();
    void publicIPFinished();

private:
    void pingEnded();
    void publishPing(std::optional<double> milliseconds);
    void publicIPReplied(QNetworkReply* reply);

    std::unique_ptr<NetworkReader> m_reader;
    std::map<QString, InterfaceCounters> m_lastCounters;
    std::optional<double> m_lastSample;
    std::map<QString, QString> m_displayNames;
    std::map<QString, QString> m_hardwareAddresses;
    int m_tick = 0;
    bool m_pingInFlight = false;
    double m_lastPublicIPFetch = 0;
    std::optional<QString> m_lastPublicIPKey;
    QPointer<QProcess> m_ping;
    QNetworkAccessManager* m_network = nullptr; // child; created on the first fetch
    QPointer<QNetworkReply> m_publicIPReply;
};

} // namespace pulsebar
