#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

namespace pulsebar::NetlinkSocket {

// A non-blocking netlink socket of the protocol, subscribed to the multicast groups; -1 when it cannot
// be opened.
int openSubscribed(int type, int protocol, uint32_t groups);

// Hands every datagram waiting on the socket to `take`, without waiting for more. False when the kernel
// dropped some because too many came at once (ENOBUFS): anything they said may have happened.
bool drain(int fd, const std::function<void(std::string_view)>& take);

} // namespace pulsebar::NetlinkSocket
