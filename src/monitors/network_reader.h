#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>

namespace pulsebar {

// Cumulative byte counters of one interface, as the kernel keeps them since the link appeared.
struct InterfaceCounters {
    uint64_t rx = 0;
    uint64_t tx = 0;
    // Backed by a physical device (Ethernet, Wi-Fi, mobile broadband). Only these count in the totals,
    // so traffic that also crosses a tunnel, bridge or veth is not counted twice.
    bool hardware = false;
    bool operator==(const InterfaceCounters&) const = default;
};

// Addresses of one interface, from the address listing.
struct Addresses {
    QStringList v4;
    QStringList v6;
    std::optional<QString> mac; // lower-case hex pairs joined by ':'
    bool operator==(const Addresses&) const = default;
};

// The routing state the whole machine shares.
struct GlobalNetworkState {
    std::optional<QString> primaryInterface;
    std::optional<QString> router;
    QStringList dns;
    bool operator==(const GlobalNetworkState&) const = default;
};

// The facts of a Wi-Fi link that the monitor turns into texts; `unknown` is a value the platform
// did not report or that has no text.
enum class WiFiBand { unknown, ghz2_4, ghz5, ghz6 };
enum class WiFiChannelWidth { unknown, mhz20, mhz40, mhz80, mhz160 };
enum class WiFiPHYMode { none, a, b, g, n, ac, ax, be };

// The Wi-Fi link in the platform's own terms; security is a WiFiSecurityCode.
struct WiFiReading {
    QString interfaceName;
    bool powerOn = false;
    std::optional<QString> ssid;
    std::optional<QString> bssid;
    int rssi = 0;
    int noise = 0;
    std::optional<int> channel;
    WiFiBand band = WiFiBand::unknown;
    WiFiChannelWidth width = WiFiChannelWidth::unknown;
    double transmitRate = 0; // Mbit/s
    WiFiPHYMode phyMode = WiFiPHYMode::none;
    std::optional<int> security; // absent when the link's security cannot be told
    std::optional<QString> countryCode;
    bool operator==(const WiFiReading&) const = default;
};

// Security codes of a Wi-Fi link.
namespace WiFiSecurityCode {
constexpr int none = 0, wep = 1, wpaPersonal = 2, wpaPersonalMixed = 3, wpa2Personal = 4, personal = 5,
              dynamicWEP = 6, wpaEnterprise = 7, wpaEnterpriseMixed = 8, wpa2Enterprise = 9, enterprise = 10,
              wpa3Personal = 11, wpa3Enterprise = 12, wpa3Transition = 13, owe = 14, oweTransition = 15;
}

// The platform's ping program asked for one echo request: what to start, with which arguments. Its
// standard output holds "time=<ms>" when an answer came.
struct PingCommand {
    QString program;
    QStringList arguments;
    bool operator==(const PingCommand&) const = default;
};

// The raw network readings of one platform. Every read fails softly: an empty map, nullopt or an
// empty list, never an exception.
class NetworkReader {
public:
    virtual ~NetworkReader() = default;

    virtual std::map<QString, InterfaceCounters> readCounters() = 0;
    virtual std::map<QString, Addresses> readAddresses() = 0;
    virtual GlobalNetworkState readGlobalState() = 0;
    // Absent when the machine has no Wi-Fi interface.
    virtual std::optional<WiFiReading> readWiFi() = 0;
    // User-visible names of the interfaces the system knows ("Wi-Fi", "Ethernet 2").
    virtual std::map<QString, QString> readDisplayNames() = 0;
    // Factory link-layer addresses of the physical interfaces.
    virtual std::map<QString, QString> readHardwareAddresses() = 0;
    virtual bool isBridge(const QString& bsdName) = 0;
    // One echo request to `host`, given up `timeoutSeconds` after it was sent.
    virtual PingCommand pingCommand(const QString& host, int timeoutSeconds) const = 0;
    // The same echo request sent by the platform itself, without starting a program: `done` is later
    // called once on this thread with the round trip in milliseconds, or with nothing when no answer
    // came in time. False when the platform cannot (the command is run instead); nothing is called then.
    virtual bool sendEchoRequest(const QString& host, int timeoutSeconds,
                                 std::function<void(std::optional<double>)> done)
    {
        return false;
    }
};

} // namespace pulsebar
