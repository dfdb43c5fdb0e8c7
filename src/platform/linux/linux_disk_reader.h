#pragma once

#include "monitors/disk_monitor.h"
#include "platform/linux/proc_parse.h"
#include "platform/linux/rooted_file_reader.h"

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

namespace pulsebar {

struct VolumeCapacity {
    uint64_t total = 0;     // bytes
    uint64_t available = 0; // bytes free for an ordinary user
    uint64_t reserved = 0;  // bytes free only for root: neither used nor available, as df counts them
};

// Disk throughput from proc/diskstats over the physical disks; volumes from proc/self/mountinfo with
// capacities from statvfs.
class LinuxDiskReader : public DiskReader {
public:
    // Capacity of a mounted file system by mount point; tests replace the statvfs call.
    using CapacityProbe = std::function<std::optional<VolumeCapacity>(const std::string& mountPoint, bool isNetwork)>;

    explicit LinuxDiskReader(RootedFileReader sysfs, CapacityProbe probe = {});

    DiskBytes readBytes() override;
    std::vector<VolumeInfo> volumes(bool includeNetwork) override;

    // Pseudo and system file systems that are never shown as volumes.
    static bool isHiddenType(std::string_view fsType);
    static bool isNetworkType(std::string_view fsType);
    // Mounts a user would call volumes: no pseudo file systems and each device once (a bind mount
    // of a folder repeats its device; the mount at "/" or of the device's top wins).
    static std::vector<ProcParse::MountEntry> visibleMounts(const std::vector<ProcParse::MountEntry>& mounts);

private:
    struct NetworkCheck;
    // The figures of the last finished check of a network file system; starts the next check unless
    // one is still out. Never waits: a server that does not answer can block statvfs for minutes.
    std::optional<VolumeCapacity> networkCapacity(const std::string& mountPoint);
    bool isPhysicalDisk(std::string_view name);
    std::unordered_map<std::string, QString> labels() const;

    RootedFileReader m_sysfs;
    CapacityProbe m_probe;
    RootedFileReader::RepeatedFile m_diskstats;
    std::string m_buffer; // proc/diskstats text, reused
    std::unordered_map<std::string, bool> m_physical; // by device name, forgotten when it disappears
    std::unordered_map<std::string, std::shared_ptr<NetworkCheck>> m_networkChecks; // by mount point
};

} // namespace pulsebar
