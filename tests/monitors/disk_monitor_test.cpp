#include "hub/hub.h"
#include "monitors/disk_monitor.h"
#include "platform/linux/linux_disk_reader.h"

#include "snapshot_root.h"

#include <QTemporaryDir>

#include <map>

using namespace pulsebar;
using test::FakeClock;
using test::SnapshotRoot;

namespace {

constexpr double GB = 1e9;

// statvfs stand-in: the capacities of the fixture's mount points, and a log of what was asked.
struct FakeCapacities {
    std::map<std::string, VolumeCapacity> byMountPoint{
        {"/", {uint64_t(100 * GB), uint64_t(40 * GB)}},
        {"/home", {uint64_t(500 * GB), uint64_t(100 * GB)}},
        {"/media/user/STICK", {uint64_t(16 * GB), uint64_t(8 * GB)}},
        {"/media/user/Passport", {uint64_t(2000 * GB), uint64_t(1000 * GB)}},
        {"/mnt/share", {uint64_t(1000 * GB), uint64_t(500 * GB)}},
        {"/snap/recovery", {uint64_t(1 * GB), 0}},
        {"/mnt/Backup", {uint64_t(1000 * GB), uint64_t(10 * GB)}},
        {"/mnt/empty", {0, 0}},
        {"/mnt/Archive Disk", {uint64_t(300 * GB), uint64_t(30 * GB)}},
    };
    std::vector<std::string> asked;

    LinuxDiskReader::CapacityProbe probe()
    {
        return [this](const std::string& mountPoint, bool) -> std::optional<VolumeCapacity> {
            asked.push_back(mountPoint);
            const auto found = byMountPoint.find(mountPoint);
            return found == byMountPoint.end() ? std::nullopt : std::optional(found->second);
        };
    }
};

QStringList names(const std::vector<Volume>& volumes)
{
    QStringList out;
    for (const auto& v : volumes)
        out << v.name;
    return out;
}

} // namespace

TEST(DiskMonitor, ActivitySumsPhysicalDisksAndADetachedDiskGivesZero)
{
    SnapshotRoot root("sys-basic-1");
    FakeClock clock;
    FakeCapacities capacities;
    DiskMonitor disks(std::make_unique<LinuxDiskReader>(root.sysfs(), capacities.probe()), clock.function());
    disks.sampleActivity();
    // sda, nvme0n1 and sdb; not the partition sda1, nor loop0 or dm-0.
    ASSERT_TRUE(disks.lastBytes);
    EXPECT_EQ(disks.lastBytes->read, (2000u + 4000 + 1000) * 512);
    EXPECT_EQ(disks.lastBytes->write, (1000u + 8000) * 512);
    EXPECT_EQ(disks.readRate, 0);
    EXPECT_TRUE(disks.readHistory.isEmpty());

    // sdb was unplugged: the read sum falls, the write sum rises by 400 sectors in 2 s.
    root.use("sys-basic-2");
    clock.time += 2;
    disks.sampleActivity();
    EXPECT_EQ(disks.readRate, 0);
    EXPECT_DOUBLE_EQ(disks.writeRate, 400 * 512 / 2.0);
    EXPECT_EQ(disks.readHistory.values(), std::deque<double>{0});
    EXPECT_EQ(disks.writeHistory.size(), 1);

    // A truncated file loses the disks it no longer lists; the rate is 0, never negative.
    root.use("sys-basic-3");
    clock.time += 2;
    disks.sampleActivity();
    EXPECT_EQ(disks.readRate, 0);
    EXPECT_EQ(disks.writeRate, 0);

    // No time passed: the rates and trails stay as they are.
    root.use("sys-basic-2");
    disks.sampleActivity();
    EXPECT_EQ(disks.readHistory.size(), 2);
}

TEST(DiskMonitor, VolumeListingRules)
{
    SnapshotRoot root("sys-basic-1");
    FakeClock clock;
    FakeCapacities capacities;
    DiskMonitor disks(std::make_unique<LinuxDiskReader>(root.sysfs(), capacities.probe()), clock.function());
    EXPECT_FALSE(disks.startupVolume());

    disks.scanVolumes(true, true);
    EXPECT_EQ(disks.lastVolumeScan, clock.time);
    // Root first, then by name with upper case before lower case. Hidden: proc, sysfs, tmpfs,
    // cgroup2, overlay and squashfs mounts; the bind mount of the root's disk; the file mounted over
    // /etc/hosts; the read-only recovery volume; the volume of capacity 0.
    EXPECT_EQ(names(disks.volumes),
              (QStringList{"/", "Archive Disk", "Backup", "Home Space", "Passport", "STICK", "share"}));
    const auto startup = disks.startupVolume();
    ASSERT_TRUE(startup);
    EXPECT_EQ(startup->url, "/");
    EXPECT_TRUE(startup->isRoot); // read-only, but it is the root
    EXPECT_EQ(startup->total, 100 * GB);
    EXPECT_EQ(startup->available, 40 * GB);
    EXPECT_EQ(startup->availableImportant, 40 * GB);

    const auto volume = [&](const QString& name) {
        for (const auto& v : disks.volumes)
            if (v.name == name)
                return v;
        ADD_FAILURE() << name.toStdString();
        return Volume{};
    };
    EXPECT_TRUE(volume("STICK").isRemovable);    // the removable flag
    EXPECT_TRUE(volume("Passport").isRemovable); // a fixed disk on USB
    EXPECT_FALSE(volume("Home Space").isRemovable);
    EXPECT_EQ(volume("Home Space").url, "/home");
    EXPECT_FALSE(volume("share").isLocal);
    EXPECT_EQ(volume("Archive Disk").url, "/mnt/Archive Disk");
    EXPECT_TRUE(std::find(capacities.asked.begin(), capacities.asked.end(), "/etc/hosts") == capacities.asked.end());

    disks.scanVolumes(false, true);
    EXPECT_EQ(names(disks.volumes), (QStringList{"/", "Archive Disk", "Backup", "Home Space", "Passport", "STICK"}));
    capacities.asked.clear();
    disks.scanVolumes(false, false);
    EXPECT_EQ(names(disks.volumes), (QStringList{"/", "Archive Disk", "Backup", "Home Space"}));
    // A network server that is not listed is never asked for its capacity.
    EXPECT_TRUE(std::find(capacities.asked.begin(), capacities.asked.end(), "/mnt/share") == capacities.asked.end());
    disks.scanVolumes(true, false);
    EXPECT_EQ(names(disks.volumes), (QStringList{"/", "Archive Disk", "Backup", "Home Space", "share"}));

    // A torn mountinfo keeps what it can read and never crashes.
    root.use("sys-basic-3");
    disks.scanVolumes(true, true);
    EXPECT_EQ(names(disks.volumes), (QStringList{"/"}));
    root.useScratch();
    disks.scanVolumes(true, true);
    EXPECT_TRUE(disks.volumes.empty());
    EXPECT_FALSE(disks.startupVolume());
}

TEST(DiskMonitor, WithoutARootTheFirstVolumeIsTheStartupVolume)
{
    class Reader : public DiskReader {
    public:
        DiskBytes readBytes() override { return {}; }
        std::vector<VolumeInfo> volumes(bool) override
        {
            VolumeInfo a;
            a.mountPoint = "/data/zeta";
            a.total = 10;
            a.available = 5;
            a.availableImportant = 3; // smaller than available: available wins
            VolumeInfo b = a;
            b.mountPoint = "/data/alpha/";
            b.availableImportant = 8;
            VolumeInfo hidden = a;
            hidden.isBrowsable = false;
            return {a, b, hidden};
        }
    };
    DiskMonitor disks(std::make_unique<Reader>());
    disks.scanVolumes(true, true);
    EXPECT_EQ(names(disks.volumes), (QStringList{"alpha", "zeta"}));
    EXPECT_EQ(disks.startupVolume()->name, "alpha");
    EXPECT_EQ(disks.volumes[0].availableImportant, 8);
    EXPECT_EQ(disks.volumes[1].availableImportant, 5);
}

TEST(Hub, SamplesTheMonitorsAndRescansVolumesAtMostEveryTenSeconds)
{
    SnapshotRoot root("sys-basic-1");
    test::ScopedEnv sysroot("PULSEBAR_SYSROOT", root.path());
    QTemporaryDir dir;
    Preferences preferences(dir.path() + "/preferences.json");
    AppSettings settings(preferences);
    Config config = settings.config();
    config.showNetworkDisks = false;
    settings.setConfig(config);
    Hub hub(settings);
    settings.addObserver([&](const Config& o, const Config& n) { hub.configChanged(o, n); });
    double time = 5000;
    hub.now = [&] { return time; };

    hub.tick();
    EXPECT_EQ(hub.cpu.previous.size(), 4u);
    EXPECT_EQ(hub.memory.total, 16000000.0 * 1024);
    EXPECT_EQ(hub.processes.processes.size(), 5u);
    EXPECT_EQ(hub.gpu.gpus.size(), 4u);
    EXPECT_EQ(hub.disks.lastSample, 5000);
    EXPECT_EQ(hub.disks.lastVolumeScan, 5000);
    ASSERT_FALSE(hub.disks.volumes.empty());
    EXPECT_TRUE(hub.disks.volumes.front().isRoot);
    const auto hasVolume = [&](const QString& name) {
        return std::any_of(hub.disks.volumes.begin(), hub.disks.volumes.end(), [&](const Volume& v) { return v.name == name; });
    };
    EXPECT_TRUE(hasVolume("STICK"));
    EXPECT_FALSE(hasVolume("share"));

    root.use("sys-basic-2");
    time = 5002;
    hub.tick();
    EXPECT_EQ(hub.cpu.cores.size(), 4u);
    EXPECT_NEAR(hub.cpu.user, 166.0 / 3, 1e-9);
    EXPECT_EQ(hub.disks.writeRate, 400 * 512 / 2.0);
    EXPECT_EQ(hub.disks.lastVolumeScan, 5000); // too soon for a rescan
    EXPECT_TRUE(hasVolume("STICK"));           // still the old list

    time = 5010; // exactly 10 s: not yet
    hub.tick();
    EXPECT_EQ(hub.disks.lastVolumeScan, 5000);
    time = 5010.5;
    hub.tick();
    EXPECT_EQ(hub.disks.lastVolumeScan, 5010.5);
    EXPECT_FALSE(hasVolume("STICK")); // unplugged in the second snapshot

    // Turning removable disks off rescans at once.
    root.use("sys-basic-1");
    time = 5011;
    config.showNetworkDisks = false;
    config.showRemovableDisks = false;
    settings.setConfig(config);
    EXPECT_EQ(hub.disks.lastVolumeScan, 5011);
    EXPECT_FALSE(hasVolume("STICK"));
    EXPECT_FALSE(hasVolume("Passport"));
    // A change of anything else does not.
    time = 5012;
    config.monochrome = !config.monochrome;
    settings.setConfig(config);
    EXPECT_EQ(hub.disks.lastVolumeScan, 5011);
}
