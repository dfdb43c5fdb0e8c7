#pragma once

#include "platform/linux/rooted_file_reader.h"

#include <string>
#include <string_view>
#include <vector>

namespace pulsebar {

namespace Uevent {
// True when one datagram of the kernel's device events adds, removes or renames a device of the
// subsystem ("power_supply", "drm"). A datagram is "ACTION@DEVPATH" then KEY=VALUE fields, each ended
// by a NUL byte; a change of a device's attributes is not a device coming or going.
bool addsOrRemoves(std::string_view datagram, std::string_view subsystem);
} // namespace Uevent

// The entries of a device class folder (sys/class/power_supply, sys/class/drm), which change only when
// a device comes or goes. On the live system the kernel's device events say when to list the folder
// again, and it is listed at least every `samplesBetweenListings` readings in case an event went
// astray (a container whose network namespace is not sent them); on a fixture tree, and where the
// events cannot be received, it is listed at every reading.
class DeviceClassListing {
public:
    static constexpr int samplesBetweenListings = 30;

    DeviceClassListing(RootedFileReader sysfs, std::string classFolder);
    ~DeviceClassListing();
    DeviceClassListing(const DeviceClassListing&) = delete;
    DeviceClassListing& operator=(const DeviceClassListing&) = delete;

    // The folder's entries, sorted; listed again when due.
    const std::vector<std::string>& entries();

private:
    bool deviceCameOrWent();

    RootedFileReader m_sysfs;
    std::string m_folder;
    std::string m_subsystem;
    int m_events = -1; // the device event socket, where the events describe this tree
    int m_samplesSinceListing = 0;
    bool m_listed = false;
    std::vector<std::string> m_entries;
};

} // namespace pulsebar
