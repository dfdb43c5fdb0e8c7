#pragma once

#include "hub/hub_snapshot.h"
#include "alerts/notifier.h"
#include "core/config.h"

#include <optional>
#include <vector>

namespace pulsebar {

// What the system events are compared on from one tick to the next.
struct EventState {
    bool onAC = false;
    bool charged = false;
    bool batteryPresent = false;
    std::optional<QString> ssid;
    bool wifiAssociated = false;
    std::optional<QString> publicIP;
    std::optional<bool> internet; // reachable, unreachable, or unknown
    std::optional<QString> primaryInterface;

    bool operator==(const EventState&) const = default;

    // Charged is the system's own verdict, or a full battery on the charger.
    static EventState from(const HubSnapshot& state);
};

// The announcements for the change from `before` to `now`, in a fixed order, only for the events
// switched on in `toggles`. `state` supplies the figures quoted in the bodies.
std::vector<Notification> eventAnnouncements(const EventState& before, const EventState& now, const HubSnapshot& state,
                                             const EventToggles& toggles, const QString& pingHost);

} // namespace pulsebar
