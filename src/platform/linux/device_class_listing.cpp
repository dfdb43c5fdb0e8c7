#include "platform/linux/device_class_listing.h"

#include "platform/linux/netlink_socket.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

namespace pulsebar {

namespace Uevent {

bool addsOrRemoves(std::string_view datagram, std::string_view subsystem)
{
    bool comesOrGoes = false;
    bool inSubsystem = false;
    std::size_t at = datagram.find('\0'); // past the "ACTION@DEVPATH" summary
    while (at != std::string_view::npos && at < datagram.size()) {
        const std::size_t end = datagram.find('\0', at + 1);
        const std::string_view field = datagram.substr(at + 1, end == std::string_view::npos ? end : end - at - 1);
        if (field == "ACTION=add" || field == "ACTION=remove" || field == "ACTION=move")
            comesOrGoes = true;
        else if (field.substr(0, 10) == "SUBSYSTEM=")
            inSubsystem = field.substr(10) == subsystem;
        at = end;
    }
    return comesOrGoes && inSubsystem;
}

} // namespace Uevent

// Kernel device events: the multicast group the kernel itself sends to (udev's rebroadcast is group 2).
constexpr uint32_t kernelEventGroup = 1;

DeviceClassListing::DeviceClassListing(RootedFileReader sysfs, std::string classFolder)
    : m_sysfs(std::move(sysfs)), m_folder(std::move(classFolder))
{
    m_subsystem = m_folder.substr(m_folder.rfind('/') + 1);
    if (m_sysfs.isRunningSystem())
        m_events = NetlinkSocket::openSubscribed(SOCK_DGRAM, NETLINK_KOBJECT_UEVENT, kernelEventGroup);
}

DeviceClassListing::~DeviceClassListing()
{
    if (m_events >= 0)
        ::close(m_events);
}

bool DeviceClassListing::deviceCameOrWent()
{
    bool cameOrWent = false;
    const bool complete = NetlinkSocket::drain(m_events, [&](std::string_view datagram) {
        cameOrWent = cameOrWent || Uevent::addsOrRemoves(datagram, m_subsystem);
    });
    return cameOrWent || !complete;
}

const std::vector<std::string>& DeviceClassListing::entries()
{
    // The socket is drained on every reading, so a backlog of other devices' events never builds up.
    const bool changed = m_events < 0 || deviceCameOrWent();
    if (changed || !m_listed || ++m_samplesSinceListing >= samplesBetweenListings) {
        m_entries = m_sysfs.list(m_folder);
        m_listed = true;
        m_samplesSinceListing = 0;
    }
    return m_entries;
}

} // namespace pulsebar
