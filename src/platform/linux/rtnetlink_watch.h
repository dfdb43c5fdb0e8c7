#pragma once

#include <string_view>

namespace pulsebar {

// What the kernel's routing-netlink notifications said changed.
struct NetworkChanges {
    bool links = false;     // an interface appeared, went, was renamed, went up or down, changed its MAC
    bool addresses = false; // an address was added or removed (or an IPv6 lifetime renewed)
    bool routes = false;    // an IPv4 route was added or removed
    NetworkChanges& operator|=(const NetworkChanges& other);
    bool operator==(const NetworkChanges&) const = default;
    static NetworkChanges everything() { return {true, true, true}; }
};

namespace Rtnetlink {
// The changes one datagram of notifications (netlink messages one after another) reports; anything
// that is not a link, address or route message is left out, and a truncated message ends the walk.
NetworkChanges changes(std::string_view datagram);
} // namespace Rtnetlink

// A routing-netlink socket subscribed to link, address and IPv4 route notifications, so the network
// reader can keep what it read from the kernel until the kernel says it changed. Reading never waits.
class RtnetlinkWatch {
public:
    RtnetlinkWatch();
    ~RtnetlinkWatch();
    RtnetlinkWatch(const RtnetlinkWatch&) = delete;
    RtnetlinkWatch& operator=(const RtnetlinkWatch&) = delete;

    bool isOpen() const { return m_fd >= 0; }
    // What changed since the last call. Everything at the first call, when the socket could not be
    // opened, and when the kernel dropped notifications because too many came at once.
    NetworkChanges take();

private:
    int m_fd = -1;
    bool m_first = true;
};

} // namespace pulsebar
