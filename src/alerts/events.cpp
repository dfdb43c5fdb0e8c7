#include "alerts/events.h"

#include "core/fmt.h"

namespace pulsebar {

namespace {

constexpr double chargedPercent = 99.5;

bool isKnown(const std::optional<QString>& text)
{
    return text && !text->isEmpty();
}

} // namespace

EventState EventState::from(const HubSnapshot& state)
{
    EventState s;
    s.batteryPresent = state.batteryPresent;
    s.onAC = state.onAC;
    s.charged = state.batteryCharged || (state.onAC && state.batteryPercent >= chargedPercent);
    s.ssid = state.wifiSSID;
    s.wifiAssociated = state.wifiAssociated;
    s.publicIP = state.publicIP;
    s.internet = state.internetReachable;
    s.primaryInterface = state.primaryInterface;
    return s;
}

std::vector<Notification> eventAnnouncements(const EventState& before, const EventState& now, const HubSnapshot& state,
                                             const EventToggles& toggles, const QString& pingHost)
{
    std::vector<Notification> out;
    const QString batteryBody = "Battery at " + Fmt::percent(state.batteryPercent) + ".";

    if (toggles.powerSource && now.batteryPresent && now.onAC != before.onAC)
        out.push_back({now.onAC ? QStringLiteral("Charger connected") : QStringLiteral("Charger disconnected"),
                       batteryBody});

    if (toggles.batteryCharged && now.batteryPresent && now.charged && !before.charged)
        out.push_back({QStringLiteral("Battery is now charged"), batteryBody});

    // Joining a network is news even after having none; a first public address is not (below).
    if (toggles.wifiChanged && now.wifiAssociated && isKnown(now.ssid) && (!isKnown(before.ssid) || *before.ssid != *now.ssid))
        out.push_back({QStringLiteral("Wi-Fi connected"), "Connected to '" + *now.ssid + "'."});

    if (toggles.publicIPChanged && now.publicIP && before.publicIP && *now.publicIP != *before.publicIP)
        out.push_back({QStringLiteral("New public IP address"), *now.publicIP});

    if (toggles.internetStatus && now.internet && before.internet && *now.internet != *before.internet) {
        if (*now.internet)
            out.push_back({QStringLiteral("Connected to internet"), QStringLiteral("Internet connectivity restored.")});
        else
            out.push_back({QStringLiteral("No internet connection"), "Ping to " + pingHost + " is failing."});
    }

    if (toggles.primaryInterface && now.primaryInterface != before.primaryInterface)
        out.push_back({QStringLiteral("Primary network interface changed"),
                       now.primaryInterface.value_or(QStringLiteral("None"))});

    return out;
}

} // namespace pulsebar
