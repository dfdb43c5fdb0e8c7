#pragma once

#include "monitors/network_reader.h"

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <memory>
#include <optional>

struct nl_sock;

namespace pulsebar {

// The generation of the last transmit rate, from the rate record's MCS attributes.
enum class WirelessRateKind { none, legacy, ht, vht, he, eht };

// Facts about one wireless interface's link, as the kernel's nl80211 interface reports them.
struct WirelessLink {
    bool associated = false;
    std::optional<QString> ssid;
    std::optional<QString> bssid;
    std::optional<int> frequency;    // MHz of the operating channel
    std::optional<int> channelWidth; // an nl80211_chan_width value
    std::optional<int> signal;       // dBm
    std::optional<int> noise;        // dBm
    double txBitrate = 0;            // Mbit/s
    WirelessRateKind rateKind = WirelessRateKind::none;
    std::optional<int> security;     // a WiFiSecurityCode
    std::optional<QString> countryCode;
    bool operator==(const WirelessLink&) const = default;
};

// Pure conversions of nl80211 facts into the values the monitor maps to texts.
namespace WirelessFacts {
std::optional<int> channel(int frequencyMHz);
WiFiBand band(int frequencyMHz);
WiFiChannelWidth width(int nl80211Width);
WiFiPHYMode phyMode(WirelessRateKind kind, std::optional<int> frequencyMHz, double bitrateMbps);
// Security of a BSS from its information elements (RSN, WPA and OWE-transition elements) and whether
// its capability field asks for privacy.
int securityCode(const QByteArray& informationElements, bool privacy);
// The SSID element (id 0) of an information-element list; absent when missing or hidden (empty).
std::optional<QString> ssid(const QByteArray& informationElements);
QString macText(const unsigned char* bytes, int length);
} // namespace WirelessFacts

// A cached generic-netlink socket to nl80211. query() asks the kernel a handful of questions that it
// answers at once from its own state (no scan is started). The socket has a short receive time-out,
// so a misbehaving driver cannot stall the caller.
class Nl80211 {
public:
    Nl80211();
    ~Nl80211();
    Nl80211(const Nl80211&) = delete;
    Nl80211& operator=(const Nl80211&) = delete;

    std::optional<WirelessLink> query(const QString& interfaceName);

private:
    bool connect();
    void disconnect();

    nl_sock* m_socket = nullptr;
    int m_family = -1;
    // The BSS-level facts change only when the access point does; they are read again on a new BSSID.
    std::optional<QString> m_cachedBssid;
    std::optional<int> m_cachedSecurity;
    std::optional<QString> m_cachedCountry;
    std::optional<QString> m_cachedSsid;
};

} // namespace pulsebar
