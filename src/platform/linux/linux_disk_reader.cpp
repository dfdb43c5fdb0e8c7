#include "platform/linux/linux_disk_reader.h"

#include <map>
#include <mutex>
#include <set>
#include <system_error>
#include <thread>

#include <sys/statvfs.h>

namespace pulsebar {

namespace {

constexpr uint64_t sectorBytes = 512; // diskstats counts 512-byte sectors whatever the device's size

std::optional<VolumeCapacity> statNow(const std::string& path)
{
    struct statvfs st;
    if (::statvfs(path.c_str(), &st) != 0)
        return std::nullopt;
    const uint64_t unit = st.f_frsize ? st.f_frsize : st.f_bsize;
    const uint64_t available = std::min(st.f_bavail, st.f_bfree);
    return VolumeCapacity{uint64_t(st.f_blocks) * unit, uint64_t(available) * unit,
                          uint64_t(st.f_bfree - available) * unit};
}

std::string_view baseName(std::string_view path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string deviceLink(int major, int minor)
{
    return "sys/dev/block/" + std::to_string(major) + ":" + std::to_string(minor);
}

} // namespace

LinuxDiskReader::LinuxDiskReader(RootedFileReader sysfs, CapacityProbe probe)
    : m_sysfs(std::move(sysfs)), m_probe(std::move(probe)), m_diskstats(m_sysfs, "proc/diskstats")
{
    if (!m_probe) {
        m_probe = [root = m_sysfs](const std::string& mountPoint, bool) { return statNow(root.path(mountPoint)); };
    }
}

bool LinuxDiskReader::isHiddenType(std::string_view type)
{
    static const std::set<std::string_view> hidden{
        "proc", "sysfs", "tmpfs", "devtmpfs", "devpts", "cgroup", "cgroup2", "overlay", "squashfs", "autofs",
        "debugfs", "tracefs", "securityfs", "pstore", "bpf", "mqueue", "hugetlbfs", "configfs", "fusectl",
        "binfmt_misc", "efivarfs", "ramfs", "rpc_pipefs", "nsfs", "selinuxfs", "nfsd", "fuse.gvfsd-fuse",
        "fuse.portal", "fuse.lxcfs", "fuse.snapfuse", "fuse.xdg-document-portal", "zram", "aufs", "devfs"};
    return hidden.count(type) > 0;
}

bool LinuxDiskReader::isNetworkType(std::string_view type)
{
    static const std::set<std::string_view> network{
        "nfs", "nfs4", "cifs", "smb3", "smbfs", "fuse.sshfs", "sshfs", "davfs", "fuse.davfs2", "afs", "ncpfs",
        "9p", "ceph", "glusterfs", "fuse.glusterfs", "lustre", "fuse.rclone", "fuse.s3fs", "gfs2", "ocfs2"};
    return network.count(type) > 0;
}

std::vector<ProcParse::MountEntry> LinuxDiskReader::visibleMounts(const std::vector<ProcParse::MountEntry>& mounts)
{
    // Per device, the mount that represents it: "/" first, else the first mount of the device's top
    // folder, else its first mount.
    const auto rank = [](const ProcParse::MountEntry& m) { return m.mountPoint == "/" ? 0 : m.root == "/" ? 1 : 2; };
    // A later mount at the same place covers the earlier one (the initial rootfs under "/", for one).
    std::map<std::string_view, std::size_t> topmost;
    for (std::size_t i = 0; i < mounts.size(); ++i)
        topmost[mounts[i].mountPoint] = i;
    std::map<std::pair<int, int>, std::size_t> chosen;
    for (std::size_t i = 0; i < mounts.size(); ++i) {
        const auto& m = mounts[i];
        if (topmost[m.mountPoint] != i || (m.mountPoint != "/" && isHiddenType(m.fsType)))
            continue;
        const auto key = std::make_pair(m.major, m.minor);
        const auto found = chosen.find(key);
        if (found == chosen.end())
            chosen.emplace(key, i);
        else if (rank(m) < rank(mounts[found->second]))
            found->second = i;
    }
    std::vector<ProcParse::MountEntry> visible;
    for (std::size_t i = 0; i < mounts.size(); ++i) {
        const auto found = chosen.find({mounts[i].major, mounts[i].minor});
        if (found != chosen.end() && found->second == i)
            visible.push_back(mounts[i]);
    }
    return visible;
}

bool LinuxDiskReader::isPhysicalDisk(std::string_view name)
{
    const auto found = m_physical.find(std::string(name));
    if (found != m_physical.end())
        return found->second;
    // Whole disks backed by hardware have a device link; partitions, loop, ram, zram, dm and md
    // devices do not, so no byte is counted twice.
    const bool physical = m_sysfs.exists("sys/block/" + std::string(name) + "/device");
    m_physical.emplace(std::string(name), physical);
    return physical;
}

struct LinuxDiskReader::NetworkCheck {
    std::mutex mutex;
    bool running = false;
    std::optional<VolumeCapacity> last;
};

std::optional<VolumeCapacity> LinuxDiskReader::networkCapacity(const std::string& mountPoint)
{
    std::shared_ptr<NetworkCheck>& check = m_networkChecks[mountPoint];
    if (!check)
        check = std::make_shared<NetworkCheck>();
    const std::lock_guard lock(check->mutex);
    if (!check->running) {
        // A hung server holds this one thread; later scans find it running and start no other.
        try {
            std::thread([check, probe = m_probe, mountPoint] {
                auto capacity = probe(mountPoint, true);
                const std::lock_guard lock(check->mutex);
                check->last = capacity;
                check->running = false;
            }).detach();
            check->running = true;
        } catch (const std::system_error&) {
            // No thread to spare: the figures stay as they were until a later scan.
        }
    }
    return check->last;
}

DiskBytes LinuxDiskReader::readBytes()
{
    DiskBytes bytes;
    if (!m_diskstats.readText(m_buffer))
        return bytes;
    std::size_t seen = 0;
    ProcParse::diskStats(m_buffer, [&](std::string_view name, uint64_t sectorsRead, uint64_t sectorsWritten) {
        ++seen;
        if (!isPhysicalDisk(name))
            return;
        bytes.read += sectorsRead * sectorBytes;
        bytes.write += sectorsWritten * sectorBytes;
    });
    // A device list that changed may reuse a name for another kind of device: look them up again.
    if (m_physical.size() > seen)
        m_physical.clear();
    return bytes;
}

std::unordered_map<std::string, QString> LinuxDiskReader::labels() const
{
    std::unordered_map<std::string, QString> byDevice;
    m_sysfs.forEachEntry("dev/disk/by-label", [&](std::string_view entry) {
        const auto target = m_sysfs.readLink("dev/disk/by-label/" + std::string(entry));
        if (target)
            byDevice.emplace(std::string(baseName(*target)), ProcParse::unescapeLabel(entry));
    });
    return byDevice;
}

std::vector<VolumeInfo> LinuxDiskReader::volumes(bool includeNetwork)
{
    std::vector<VolumeInfo> out;
    const auto text = m_sysfs.readText("proc/self/mountinfo");
    if (!text)
        return out;
    const auto labelByDevice = labels();
    std::set<std::string> networkMounts;
    for (const ProcParse::MountEntry& mount : visibleMounts(ProcParse::mountInfo(*text))) {
        const bool network = isNetworkType(mount.fsType);
        VolumeInfo info;
        info.mountPoint = QString::fromStdString(mount.mountPoint);
        info.isLocal = !network;
        info.isRootFileSystem = mount.mountPoint == "/";
        info.isReadOnly = mount.readOnly;
        // Never touch a network mount the scan will skip: its server may be gone.
        if (network && !includeNetwork) {
            out.push_back(std::move(info));
            continue;
        }
        // A file bind-mounted over another (containers do it for /etc/hosts) is not a volume.
        if (!network && !m_sysfs.isDirectory(mount.mountPoint))
            continue;
        if (network)
            networkMounts.insert(mount.mountPoint);
        if (const auto capacity = network ? networkCapacity(mount.mountPoint) : m_probe(mount.mountPoint, false)) {
            info.total = capacity->total;
            info.available = capacity->available;
            info.reserved = capacity->reserved;
        }
        info.isRemovable = false;
        info.isEjectable = false;
        if (const auto link = m_sysfs.readLink(deviceLink(mount.major, mount.minor))) {
            const std::string_view path = *link;
            if (const auto label = labelByDevice.find(std::string(baseName(path))); label != labelByDevice.end())
                info.name = label->second;
            const std::size_t block = path.find("/block/");
            if (block != std::string_view::npos) {
                std::string_view disk = path.substr(block + 7);
                disk = disk.substr(0, disk.find('/'));
                info.isRemovable = m_sysfs.readInt("sys/block/" + std::string(disk) + "/removable") == 1;
            }
            info.isEjectable = path.find("/usb") != std::string_view::npos;
        }
        out.push_back(std::move(info));
    }
    std::erase_if(m_networkChecks, [&](const auto& entry) { return networkMounts.count(entry.first) == 0; });
    return out;
}

} // namespace pulsebar
