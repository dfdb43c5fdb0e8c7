#include "platform/linux/rtnetlink_watch.h"

#include "platform/linux/netlink_socket.h"

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
    : m_fd(NetlinkSocket::openSubscribed(SOCK_RAW, NETLINK_ROUTE,
                                         RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE))
{
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
    const bool complete =
        NetlinkSocket::drain(m_fd, [&](std::string_view datagram) { out |= Rtnetlink::changes(datagram); });
    return complete ? out : NetworkChanges::everything();
}

} // namespace pulsebar
