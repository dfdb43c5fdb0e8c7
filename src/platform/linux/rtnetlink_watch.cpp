#include "platform/linux/rtnetlink_watch.h"

#include <cerrno>
#include <cstring>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

namespace pulsebar {

NetworkChanges& NetworkChanges::operator|=(const NetworkChanges& other)
{
    links = links || other.links;
    addresses = addresses || other.addresses;
    routes = routes || other.routes;
    return *this;
}

namespace Rtnetlink {

NetworkChanges changes(std::string_view datagram)
{
    NetworkChanges out;
    std::size_t at = 0;
    while (datagram.size() - at >= sizeof(nlmsghdr)) {
        nlmsghdr header;
        std::memcpy(&header, datagram.data() + at, sizeof header);
        if (header.nlmsg_len < sizeof header || header.nlmsg_len > datagram.size() - at)
            break;
        switch (header.nlmsg_type) {
        case RTM_NEWLINK:
        case RTM_DELLINK: out.links = true; break;
        case RTM_NEWADDR:
        case RTM_DELADDR: out.addresses = true; break;
        case RTM_NEWROUTE:
        case RTM_DELROUTE: out.routes = true; break;
        default: break;
        }
        at += NLMSG_ALIGN(header.nlmsg_len);
    }
    return out;
}

} // namespace Rtnetlink

RtnetlinkWatch::RtnetlinkWatch()
{
    m_fd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (m_fd < 0)
        return;
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE;
    if (::bind(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}

RtnetlinkWatch::~RtnetlinkWatch()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

NetworkChanges RtnetlinkWatch::take()
{
    NetworkChanges out;
    if (std::exchange(m_first, false) || m_fd < 0)
        out = NetworkChanges::everything();
    if (m_fd < 0)
        return out;
    alignas(nlmsghdr) char buffer[8192];
    for (;;) {
        const ssize_t n = ::recv(m_fd, buffer, sizeof buffer, MSG_DONTWAIT);
        if (n > 0) {
            out |= Rtnetlink::changes({buffer, std::size_t(n)});
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        // ENOBUFS: the queue overflowed and notifications were lost, so anything may have changed.
        if (n < 0 && errno == ENOBUFS) {
            out = NetworkChanges::everything();
            continue;
        }
        return out;
    }
}

} // namespace pulsebar
