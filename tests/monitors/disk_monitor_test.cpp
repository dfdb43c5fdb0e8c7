#include "hub/hub.h"
#include "monitors/disk_monitor.h"
#include "platform/linux/linux_disk_reader.h"

#include "snapshot_root.h"

#include <QTemporaryDir>

#include <atomic>
#include <future>
#include <map>
#include <mutex>
#include <thread>

using namespace pulsebar;
using test::FakeClock;
using test::SnapshotRoot;

namespace {

constexpr double GB = 1e9;

// statvfs stand-in: the capacities of the fixture's mount points, and a log of what was asked. Network
// volumes are asked from a thread of their own, which may outlive the test: it shares the state.
struct FakeCapacities {
    struct State {
        std::map<std::string, VolumeCapacity> byMountPoint{
            {"/", {uint64_t(100 * GB), uint64_t(40 * GB), uint64_t(10 * GB)}},
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
        std::mutex mutex;
    };
    std::shared_ptr<State> state = std::make_shared<State>();

    bool wasAsked(const std::string& mountPoint) const
    {
        const std::lock_guard lock(state->mutex);
        return std::find(state->asked.begin(), state->asked.end(), mountPoint) != state->asked.end();
    }

    LinuxDiskReader::CapacityProbe probe() const
    {
        return [state = state](const std::string& mountPoint, bool) -> std::optional<VolumeCapacity> {
            const std::lock_guard lock(state->mutex);
            state->asked.push_back(mountPoint);
            const auto found = state->byMountPoint.find(mountPoint);
            return found == state->byMountPoint.end() ? std::nullopt : std::optional(found->second);
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

// Scans until the named volume is listed, or gives up after five seconds: a network volume's figures
// come from a check on a thread of its own, so the scan that starts it lists it without them.
bool scanUntilListed(DiskMonitor& disks, bool includeNetwork, bool includeRemovable, const QString& name)
{
    for (int i = 0; i < 500; ++i) {
        disks.scanVolumes(includeNetwork, includeRemovable);
        if (names(disks.volumes).contains(name))
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
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

    ASSERT_TRUE(scanUntilListed(disks, true, true, "share"));
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
    EXPECT_EQ(startup->reserved, 10 * GB);
    EXPECT_EQ(startup->used(), 50 * GB);
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
    EXPECT_FALSE(capacities.wasAsked("/etc/hosts"));

    disks.scanVolumes(false, true);
    EXPECT_EQ(names(disks.volumes), (QStringList{"/", "Archive Disk", "Backup", "Home Space", "Passport", "STICK"}));
    disks.scanVolumes(false, false);
    EXPECT_EQ(names(disks.volumes), (QStringList{"/", "Archive Disk", "Backup", "Home Space"}));
    // A network server that is not listed is never asked for its capacity (asked of a reader of its own:
    // this one may still be finishing a question of its last scan with network volumes).
    FakeCapacities unlisted;
    DiskMonitor local(std::make_unique<LinuxDiskReader>(root.sysfs(), unlisted.probe()), clock.function());
    local.scanVolumes(false, true);
    EXPECT_FALSE(local.volumes.empty());
    EXPECT_FALSE(unlisted.wasAsked("/mnt/share"));
    ASSERT_TRUE(scanUntilListed(disks, true, false, "share"));
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

// A network server that stops answering holds one check at a time, and no scan waits for it.
TEST(DiskMonitor, AHungNetworkVolumeNeverStallsAScan)
{
    // Shared with the checking thread, which may outlive a failed test.
    struct Server {
        std::promise<void> answer;
        std::shared_future<void> answered = answer.get_future().share();
        std::atomic<int> checks = 0;
    };
    const auto server = std::make_shared<Server>();
    const auto probe = [server](const std::string& mountPoint, bool network) -> std::optional<VolumeCapacity> {
        if (!network)
            return VolumeCapacity{uint64_t(10 * GB), uint64_t(5 * GB)};
        ++server->checks;
        server->answered.wait_for(std::chrono::seconds(5));
        return mountPoint == "/mnt/share" ? std::optional(VolumeCapacity{uint64_t(8 * GB), uint64_t(2 * GB)}) : std::nullopt;
    };
    SnapshotRoot root("sys-basic-1");
    DiskMonitor disks(std::make_unique<LinuxDiskReader>(root.sysfs(), probe));
    disks.scanVolumes(true, true);
    ASSERT_TRUE(test::waitUntil([&] { return server->checks == 1; }, 5000));
    const auto started = std::chrono::steady_clock::now();
    for (int scan = 0; scan < 3; ++scan)
        disks.scanVolumes(true, true);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(1));
    EXPECT_EQ(server->checks, 1);
    EXPECT_FALSE(names(disks.volumes).contains("share")); // no figures yet
    server->answer.set_value();
    ASSERT_TRUE(scanUntilListed(disks, true, true, "share"));
    // Later scans show the last figures while the next check runs.
    disks.scanVolumes(true, true);
    EXPECT_TRUE(names(disks.volumes).contains("share"));
}

TEST(DiskMonitor, UsedPercentFollowsDf)
{
    struct Case {
        double total, available, reserved, percent;
    };
    for (const Case& c : std::vector<Case>{{100, 40, 10, 50.0 / 90 * 100},
                                           {100, 40, 0, 60},
                                           {100, 0, 5, 100},   // the user's part is full
                                           {100, 0, 100, 100}, // all of it reserved
                                           {100, 100, 0, 0},
                                           {0, 0, 0, 0},
                                           {-5, 3, 0, 0}}) {
        EXPECT_DOUBLE_EQ(diskUsedPercent(c.total, c.available, c.reserved), c.percent)
            << c.total << " " << c.available << " " << c.reserved;
    }
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
    Hub hub(settings, systemReaders());
    settings.addObserver([&](const Config& o, const Config& n) { hub.configChanged(o, n); });
    double time = 5000;
    hub.now = [&] { return time; };

    hub.tick();
    EXPECT_EQ(hub.cpu.previous.size(), 4u);
    EXPECT_EQ(hub.memory.total, 16000000.0 * 1024);
    EXPECT_EQ(hub.processes.processes.size(), 6u);
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
