#include "platform/linux/netlink_socket.h"

#include <cerrno>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

namespace pulsebar::NetlinkSocket {

int openSubscribed(int type, int protocol, uint32_t groups)
{
    const int fd = ::socket(AF_NETLINK, type | SOCK_NONBLOCK | SOCK_CLOEXEC, protocol);
    if (fd < 0)
        return -1;
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = groups;
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

bool drain(int fd, const std::function<void(std::string_view)>& take)
{
    bool complete = true;
    alignas(nlmsghdr) char buffer[8192];
    for (;;) {
        const ssize_t n = ::recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
        if (n > 0) {
            take({buffer, std::size_t(n)});
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && errno == ENOBUFS) {
            complete = false;
            continue;
        }
        return complete;
    }
}

} // namespace pulsebar::NetlinkSocket
