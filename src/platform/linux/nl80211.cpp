#include "platform/linux/nl80211.h"

#include "monitors/network_reader.h"

#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>

#include <linux/nl80211.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <functional>
#include <set>

namespace pulsebar {

namespace WirelessFacts {

std::optional<int> channel(int f)
{
    if (f == 2484)
        return 14;
    if (f >= 2412 && f <= 2472)
        return (f - 2407) / 5;
    if (f == 5935)
        return 2;
    if (f >= 5955 && f <= 7115)
        return (f - 5950) / 5;
    if (f >= 4910 && f <= 5895)
        return (f - 5000) / 5;
    return std::nullopt;
}

WiFiBand band(int f)
{
    if (f >= 2400 && f < 2500)
        return WiFiBand::ghz2_4;
    if (f >= 4900 && f < 5925)
        return WiFiBand::ghz5;
    if (f >= 5925 && f <= 7125)
        return WiFiBand::ghz6;
    return WiFiBand::unknown;
}

WiFiChannelWidth width(int width)
{
    switch (width) {
    case NL80211_CHAN_WIDTH_20_NOHT:
    case NL80211_CHAN_WIDTH_20:
        return WiFiChannelWidth::mhz20;
    case NL80211_CHAN_WIDTH_40:
        return WiFiChannelWidth::mhz40;
    case NL80211_CHAN_WIDTH_80:
        return WiFiChannelWidth::mhz80;
    case NL80211_CHAN_WIDTH_80P80:
    case NL80211_CHAN_WIDTH_160:
        return WiFiChannelWidth::mhz160;
    default:
        return WiFiChannelWidth::unknown;
    }
}

WiFiPHYMode phyMode(WirelessRateKind kind, std::optional<int> frequency, double bitrate)
{
    switch (kind) {
    case WirelessRateKind::none:
        return WiFiPHYMode::none;
    case WirelessRateKind::eht:
        return WiFiPHYMode::be;
    case WirelessRateKind::he:
        return WiFiPHYMode::ax;
    case WirelessRateKind::vht:
        return WiFiPHYMode::ac;
    case WirelessRateKind::ht:
        return WiFiPHYMode::n;
    case WirelessRateKind::legacy:
        break;
    }
    // Legacy rates: OFDM on 5 GHz is 802.11a; on 2.4 GHz only 802.11b has rates of 11 Mbit/s and below.
    if (frequency && band(*frequency) != WiFiBand::ghz2_4)
        return WiFiPHYMode::a;
    return bitrate > 0 && bitrate <= 11 ? WiFiPHYMode::b : WiFiPHYMode::g;
}

namespace {

struct Element {
    unsigned char id;
    QByteArray body;
};

std::vector<Element> elements(const QByteArray& ies)
{
    std::vector<Element> out;
    int pos = 0;
    while (pos + 2 <= ies.size()) {
        const int length = static_cast<unsigned char>(ies[pos + 1]);
        if (pos + 2 + length > ies.size())
            break; // a truncated element ends the list
        out.push_back({static_cast<unsigned char>(ies[pos]), ies.mid(pos + 2, length)});
        pos += 2 + length;
    }
    return out;
}

// The authentication (AKM) suite types of an RSN or WPA body that starts with version and group cipher.
// Suites from another organisation than `oui` are ignored.
std::set<int> akmSuites(const QByteArray& body, const char* oui)
{
    std::set<int> out;
    int pos = 2 + 4; // version, group cipher
    const auto count = [&](int at) {
        return at + 2 <= body.size() ? int(static_cast<unsigned char>(body[at]))
                                           | int(static_cast<unsigned char>(body[at + 1])) << 8
                                     : -1;
    };
    const int pairwise = count(pos);
    if (pairwise < 0)
        return out;
    pos += 2 + 4 * pairwise;
    const int akms = count(pos);
    if (akms < 0)
        return out;
    pos += 2;
    for (int i = 0; i < akms && pos + 4 <= body.size(); ++i, pos += 4)
        if (body.mid(pos, 3) == QByteArray(oui, 3))
            out.insert(static_cast<unsigned char>(body[pos + 3]));
    return out;
}

bool hasAny(const std::set<int>& suites, std::initializer_list<int> wanted)
{
    for (int w : wanted)
        if (suites.count(w))
            return true;
    return false;
}

} // namespace

int securityCode(const QByteArray& ies, bool privacy)
{
    static const char ieee[] = "\x00\x0f\xac";
    static const char microsoft[] = "\x00\x50\xf2";
    static const char wifiAlliance[] = "\x50\x6f\x9a";
    std::optional<std::set<int>> rsn;
    std::optional<std::set<int>> wpa;
    bool oweTransition = false;
    for (const Element& e : elements(ies)) {
        if (e.id == 48)
            rsn = akmSuites(e.body, ieee);
        else if (e.id == 221 && e.body.size() >= 4 && e.body.left(3) == QByteArray(microsoft, 3) && e.body[3] == 1)
            wpa = akmSuites(e.body.mid(4), microsoft);
        else if (e.id == 221 && e.body.size() >= 4 && e.body.left(3) == QByteArray(wifiAlliance, 3)
                 && e.body[3] == 0x1c)
            oweTransition = true;
    }
    using namespace WiFiSecurityCode;
    if (!rsn && !wpa) {
        if (oweTransition)
            return pulsebar::WiFiSecurityCode::oweTransition;
        return privacy ? wep : none;
    }
    const std::set<int> r = rsn.value_or(std::set<int>{});
    const std::set<int> w = wpa.value_or(std::set<int>{});
    if (r.count(18))
        return owe;
    const bool sae = hasAny(r, {8, 9, 24, 25});
    const bool rsnPsk = hasAny(r, {2, 4, 6, 19, 20});
    if (sae)
        return rsnPsk ? wpa3Transition : wpa3Personal;
    if (hasAny(r, {11, 12, 13}))
        return wpa3Enterprise;
    const bool rsnEnterprise = hasAny(r, {1, 3, 5});
    const bool wpaEnterprise1 = w.count(1) > 0;
    if (rsnEnterprise || wpaEnterprise1) {
        if (rsnEnterprise && wpaEnterprise1)
            return wpaEnterpriseMixed;
        return rsnEnterprise ? wpa2Enterprise : wpaEnterprise;
    }
    const bool wpaPsk = w.count(2) > 0;
    if (rsnPsk && wpaPsk)
        return wpaPersonalMixed;
    if (rsnPsk)
        return wpa2Personal;
    if (wpaPsk)
        return wpaPersonal;
    return personal;
}

std::optional<QString> ssid(const QByteArray& ies)
{
    for (const Element& e : elements(ies))
        if (e.id == 0)
            return e.body.isEmpty() || e.body.count('\0') == e.body.size() ? std::nullopt
                                                                            : std::optional(QString::fromUtf8(e.body));
    return std::nullopt;
}

QString macText(const unsigned char* bytes, int length)
{
    QString out;
    for (int i = 0; i < length; ++i) {
        if (i)
            out += QLatin1Char(':');
        out += QStringLiteral("%1").arg(bytes[i], 2, 16, QLatin1Char('0'));
    }
    return out;
}

} // namespace WirelessFacts

namespace {

using AttributeHandler = std::function<void(nlattr**)>;

struct RequestState {
    int status = 1; // 1 while waiting, 0 when done, a negative errno on failure
    const AttributeHandler* handler = nullptr;
};

int onValid(nl_msg* msg, void* arg)
{
    auto* state = static_cast<RequestState*>(arg);
    auto* header = static_cast<genlmsghdr*>(nlmsg_data(nlmsg_hdr(msg)));
    nlattr* attributes[NL80211_ATTR_MAX + 1];
    if (nla_parse(attributes, NL80211_ATTR_MAX, genlmsg_attrdata(header, 0), genlmsg_attrlen(header, 0), nullptr) == 0)
        (*state->handler)(attributes);
    return NL_OK;
}

int onFinish(nl_msg*, void* arg)
{
    static_cast<RequestState*>(arg)->status = 0;
    return NL_SKIP;
}

int onAck(nl_msg*, void* arg)
{
    static_cast<RequestState*>(arg)->status = 0;
    return NL_STOP;
}

int onError(sockaddr_nl*, nlmsgerr* error, void* arg)
{
    static_cast<RequestState*>(arg)->status = error->error < 0 ? error->error : -1;
    return NL_STOP;
}

std::optional<QByteArray> bytes(nlattr* attribute)
{
    if (!attribute)
        return std::nullopt;
    return QByteArray(static_cast<const char*>(nla_data(attribute)), nla_len(attribute));
}

WirelessRateKind rateKind(nlattr* rate)
{
    nlattr* info[NL80211_RATE_INFO_MAX + 1];
    if (!rate || nla_parse_nested(info, NL80211_RATE_INFO_MAX, rate, nullptr) != 0)
        return WirelessRateKind::none;
    if (info[NL80211_RATE_INFO_EHT_MCS])
        return WirelessRateKind::eht;
    if (info[NL80211_RATE_INFO_HE_MCS])
        return WirelessRateKind::he;
    if (info[NL80211_RATE_INFO_VHT_MCS])
        return WirelessRateKind::vht;
    if (info[NL80211_RATE_INFO_MCS])
        return WirelessRateKind::ht;
    return WirelessRateKind::legacy;
}

double bitrate(nlattr* rate)
{
    nlattr* info[NL80211_RATE_INFO_MAX + 1];
    if (!rate || nla_parse_nested(info, NL80211_RATE_INFO_MAX, rate, nullptr) != 0)
        return 0;
    if (info[NL80211_RATE_INFO_BITRATE32])
        return nla_get_u32(info[NL80211_RATE_INFO_BITRATE32]) / 10.0; // units of 100 kbit/s
    if (info[NL80211_RATE_INFO_BITRATE])
        return nla_get_u16(info[NL80211_RATE_INFO_BITRATE]) / 10.0;
    return 0;
}

} // namespace

Nl80211::Nl80211() = default;

Nl80211::~Nl80211()
{
    disconnect();
}

bool Nl80211::connect()
{
    if (m_socket)
        return true;
    m_socket = nl_socket_alloc();
    if (!m_socket)
        return false;
    if (genl_connect(m_socket) != 0) {
        disconnect();
        return false;
    }
    const timeval timeout{0, 200 * 1000};
    setsockopt(nl_socket_get_fd(m_socket), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    m_family = genl_ctrl_resolve(m_socket, "nl80211");
    if (m_family < 0) {
        disconnect();
        return false;
    }
    return true;
}

void Nl80211::disconnect()
{
    if (m_socket)
        nl_socket_free(m_socket);
    m_socket = nullptr;
    m_family = -1;
}

std::optional<WirelessLink> Nl80211::query(const QString& interfaceName)
{
    const unsigned ifindex = if_nametoindex(interfaceName.toLocal8Bit().constData());
    if (ifindex == 0 || !connect())
        return std::nullopt;

    // Sends one request and feeds every answer to the handler; false when the kernel refused it or
    // did not answer in time (the socket is then reopened, so no stale answer is read later).
    const auto request = [this, ifindex](int command, bool dump, const AttributeHandler& handler) {
        if (!m_socket) // closed by an earlier failure of this query
            return false;
        nl_msg* msg = nlmsg_alloc();
        if (!msg)
            return false;
        genlmsg_put(msg, NL_AUTO_PORT, NL_AUTO_SEQ, m_family, 0, dump ? NLM_F_DUMP : 0, uint8_t(command), 0);
        if (command != NL80211_CMD_GET_REG)
            nla_put_u32(msg, NL80211_ATTR_IFINDEX, ifindex);
        RequestState state;
        state.handler = &handler;
        nl_cb* cb = nl_cb_alloc(NL_CB_DEFAULT);
        if (!cb) {
            nlmsg_free(msg);
            return false;
        }
        nl_cb_set(cb, NL_CB_VALID, NL_CB_CUSTOM, onValid, &state);
        nl_cb_set(cb, NL_CB_FINISH, NL_CB_CUSTOM, onFinish, &state);
        nl_cb_set(cb, NL_CB_ACK, NL_CB_CUSTOM, onAck, &state);
        nl_cb_err(cb, NL_CB_CUSTOM, onError, &state);
        const int sent = nl_send_auto(m_socket, msg);
        nlmsg_free(msg);
        if (sent >= 0) {
            while (state.status > 0)
                if (nl_recvmsgs(m_socket, cb) < 0 && state.status > 0)
                    state.status = -1;
        } else {
            state.status = -1;
        }
        nl_cb_put(cb);
        if (state.status < 0 && state.status != -ENOENT && state.status != -ENODEV && state.status != -EOPNOTSUPP)
            disconnect();
        return state.status == 0;
    };

    WirelessLink link;
    const bool isWireless = request(NL80211_CMD_GET_INTERFACE, false, [&](nlattr** a) {
        if (a[NL80211_ATTR_WIPHY_FREQ])
            link.frequency = int(nla_get_u32(a[NL80211_ATTR_WIPHY_FREQ]));
        if (a[NL80211_ATTR_CHANNEL_WIDTH])
            link.channelWidth = int(nla_get_u32(a[NL80211_ATTR_CHANNEL_WIDTH]));
        if (auto ssid = bytes(a[NL80211_ATTR_SSID]); ssid && !ssid->isEmpty())
            link.ssid = QString::fromUtf8(*ssid);
    });
    if (!isWireless || !m_socket)
        return std::nullopt;

    request(NL80211_CMD_GET_STATION, true, [&](nlattr** a) {
        if (link.associated || !a[NL80211_ATTR_MAC] || !a[NL80211_ATTR_STA_INFO])
            return;
        nlattr* info[NL80211_STA_INFO_MAX + 1];
        if (nla_parse_nested(info, NL80211_STA_INFO_MAX, a[NL80211_ATTR_STA_INFO], nullptr) != 0)
            return;
        link.associated = true;
        link.bssid = WirelessFacts::macText(static_cast<const unsigned char*>(nla_data(a[NL80211_ATTR_MAC])),
                                            std::min(nla_len(a[NL80211_ATTR_MAC]), 6));
        if (info[NL80211_STA_INFO_SIGNAL])
            link.signal = int(int8_t(nla_get_u8(info[NL80211_STA_INFO_SIGNAL])));
        link.txBitrate = bitrate(info[NL80211_STA_INFO_TX_BITRATE]);
        link.rateKind = rateKind(info[NL80211_STA_INFO_TX_BITRATE]);
    });
    if (!link.associated)
        return link;

    request(NL80211_CMD_GET_SURVEY, true, [&](nlattr** a) {
        nlattr* info[NL80211_SURVEY_INFO_MAX + 1];
        if (!a[NL80211_ATTR_SURVEY_INFO]
            || nla_parse_nested(info, NL80211_SURVEY_INFO_MAX, a[NL80211_ATTR_SURVEY_INFO], nullptr) != 0)
            return;
        if (info[NL80211_SURVEY_INFO_IN_USE] && info[NL80211_SURVEY_INFO_NOISE])
            link.noise = int(int8_t(nla_get_u8(info[NL80211_SURVEY_INFO_NOISE])));
    });

    if (link.bssid != m_cachedBssid) {
        m_cachedSecurity.reset();
        m_cachedSsid.reset();
        m_cachedCountry.reset();
        const bool scanned = request(NL80211_CMD_GET_SCAN, true, [&](nlattr** a) {
            nlattr* bss[NL80211_BSS_MAX + 1];
            if (!a[NL80211_ATTR_BSS] || nla_parse_nested(bss, NL80211_BSS_MAX, a[NL80211_ATTR_BSS], nullptr) != 0
                || !bss[NL80211_BSS_BSSID])
                return;
            const QString bssid = WirelessFacts::macText(
                static_cast<const unsigned char*>(nla_data(bss[NL80211_BSS_BSSID])),
                std::min(nla_len(bss[NL80211_BSS_BSSID]), 6));
            if (bssid != link.bssid)
                return;
            const QByteArray ies = bytes(bss[NL80211_BSS_INFORMATION_ELEMENTS]).value_or(QByteArray());
            const bool privacy = bss[NL80211_BSS_CAPABILITY] && (nla_get_u16(bss[NL80211_BSS_CAPABILITY]) & 0x10);
            m_cachedSecurity = WirelessFacts::securityCode(ies, privacy);
            m_cachedSsid = WirelessFacts::ssid(ies);
        });
        // Only a successful read is cached; a failed one is tried again on the next sample.
        m_cachedBssid = scanned ? link.bssid : std::nullopt;
        request(NL80211_CMD_GET_REG, false, [&](nlattr** a) {
            if (!a[NL80211_ATTR_REG_ALPHA2])
                return;
            const QString alpha2 = QString::fromLatin1(nla_get_string(a[NL80211_ATTR_REG_ALPHA2])).left(2);
            if (alpha2 != QLatin1String("00") && alpha2.size() == 2) // "00" is the world domain, no country
                m_cachedCountry = alpha2;
        });
    }
    link.security = m_cachedSecurity;
    link.countryCode = m_cachedCountry;
    if (!link.ssid)
        link.ssid = m_cachedSsid;
    return link;
}

} // namespace pulsebar
