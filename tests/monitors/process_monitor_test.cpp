#include "monitors/process_actions.h"
#include "monitors/process_monitor.h"
#include "platform/linux/linux_process_reader.h"

#include "snapshot_root.h"

#include <csignal>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace pulsebar;
using test::FakeClock;
using test::SnapshotRoot;

namespace {

const ProcessSample* find(const ProcessMonitor& monitor, int32_t pid)
{
    for (const auto& p : monitor.processes)
        if (p.pid == pid)
            return &p;
    return nullptr;
}

// A child that waits until it is killed.
pid_t startSleepingChild()
{
    const pid_t child = ::fork();
    if (child == 0) {
        ::pause();
        ::_exit(0);
    }
    return child;
}

void endChild(pid_t child)
{
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
}

std::vector<int32_t> pids(const std::vector<ProcessSample>& list)
{
    std::vector<int32_t> out;
    for (const auto& p : list)
        out.push_back(p.pid);
    return out;
}

} // namespace

TEST(ProcessMonitor, RatesNeedTwoSamplesAndAFourThreadProcessShowsAbout400)
{
    SnapshotRoot root("sys-basic-1");
    FakeClock clock;
    ProcessMonitor monitor(std::make_unique<LinuxProcessReader>(root.sysfs()), clock.function());
    ASSERT_GT(monitor.ticksToNanos, 0);
    monitor.sample();
    // pid 500 belongs to another user (its io file cannot be read): listed all the same.
    EXPECT_EQ(pids(monitor.processes), (std::vector<int32_t>{1, 100, 300, 400, 500, 600}));
    for (const auto& p : monitor.processes)
        EXPECT_EQ(p.cpu + p.diskTotal(), 0);
    const long page = ::sysconf(_SC_PAGESIZE);
    EXPECT_EQ(find(monitor, 100)->memory, 25600.0 * double(page));

    root.use("sys-basic-2");
    clock.time += 2;
    monitor.sample();
    EXPECT_EQ(pids(monitor.processes), (std::vector<int32_t>{1, 100, 200, 400, 600}));
    const ProcessSample* render = find(monitor, 100);
    ASSERT_TRUE(render);
    // 800 more ticks of CPU time in 2 s: four cores' worth.
    EXPECT_NEAR(render->cpu, 800 * monitor.ticksToNanos / 2e9 * 100, 1e-6);
    if (::sysconf(_SC_CLK_TCK) == 100)
        EXPECT_NEAR(render->cpu, 400, 1e-6);
    EXPECT_DOUBLE_EQ(render->diskRead, 1000000);
    EXPECT_DOUBLE_EQ(render->diskTotal(), 1002048);
    // A process that appeared between the samples shows no activity yet, however large its counters.
    const ProcessSample* newcomer = find(monitor, 200);
    ASSERT_TRUE(newcomer);
    EXPECT_EQ(newcomer->cpu + newcomer->diskTotal(), 0);
    EXPECT_EQ(find(monitor, 1)->cpu, 0);

    // The ended process is gone from the counters and from the name cache.
    EXPECT_FALSE(monitor.remembers(300));

    // Counters that go backwards give zero, not huge rates.
    root.use("sys-basic-1");
    clock.time += 2;
    monitor.sample();
    EXPECT_EQ(find(monitor, 100)->cpu + find(monitor, 100)->diskTotal(), 0);
    root.use("sys-basic-2"); // and no time passed: no rates at all
    monitor.sample();
    EXPECT_EQ(find(monitor, 100)->cpu, 0);
}

TEST(ProcessMonitor, NamesComeFromCommOrTheCommandLineAndAreCached)
{
    SnapshotRoot root("sys-basic-1");
    FakeClock clock;
    ProcessMonitor monitor(std::make_unique<LinuxProcessReader>(root.sysfs()), clock.function());
    monitor.sample();
    EXPECT_EQ(find(monitor, 1)->name, "systemd");
    EXPECT_EQ(find(monitor, 100)->name, "render (pool) 1");
    // comm is cut at 15 characters; the command line has the whole name.
    EXPECT_EQ(find(monitor, 400)->name, "gnome-control-center");
    // No name at all.
    EXPECT_EQ(find(monitor, 600)->name, "pid 600");
    EXPECT_EQ(monitor.name(424242), "pid 424242");

    // The cache answers even after the files are gone.
    root.useScratch();
    EXPECT_EQ(monitor.name(100), "render (pool) 1");
}

TEST(ProcessMonitor, ListingFailuresAndVanishingProcessesKeepTheLastList)
{
    SnapshotRoot root("sys-basic-1");
    FakeClock clock;
    ProcessMonitor monitor(std::make_unique<LinuxProcessReader>(root.sysfs()), clock.function());
    monitor.sample();
    const auto before = pids(monitor.processes);

    root.useScratch(); // no proc/ at all
    clock.time += 2;
    monitor.sample();
    EXPECT_EQ(pids(monitor.processes), before);

    // A pid whose files vanished between the listing and the read, and one with garbage counters.
    test::writeFile(root.scratch("proc/77/comm"), "ghost\n");
    test::writeFile(root.scratch("proc/78/io"), "read_bytes: 1\nwrite_bytes: 2\n");
    test::writeFile(root.scratch("proc/78/stat"), "78 (broken) S 1 2 3");
    test::writeFile(root.scratch("proc/79/io"), "read_bytes: 10\nwrite_bytes: 20\n");
    test::writeFile(root.scratch("proc/79/stat"), "79 (ok) R 1 79 79 0 -1 0 0 0 0 0 7 3 0 0 20 0 1 0 1 1 -5\n");
    test::writeFile(root.scratch("proc/not-a-pid/io"), "");
    monitor.sample();
    EXPECT_EQ(pids(monitor.processes), (std::vector<int32_t>{79}));
    EXPECT_EQ(monitor.processes[0].memory, 0); // a negative resident set reads as 0
}

// stat's resident set lags the exact figure that ps and statm show; the reader corrects it by statm
// and keeps following stat between its exact readings. A process without io shows no disk activity.
TEST(ProcessMonitor, ResidentSetsAreExactAndProcessesWithoutIoAreListed)
{
    SnapshotRoot root("sys-basic-1");
    root.useScratch();
    const auto stat = [&](int pid, int rssPages, int ticks) {
        test::writeFile(root.scratch(QString("proc/%1/stat").arg(pid)),
                        QString("%1 (p) S 1 1 1 0 -1 0 0 0 0 0 %2 0 0 0 20 0 1 0 1 1 %3 18446744073709551615 1 1\n").arg(pid).arg(ticks).arg(rssPages).toUtf8());
    };
    const auto statm = [&](int pid, int rssPages) {
        test::writeFile(root.scratch(QString("proc/%1/statm").arg(pid)), QString("9000 %1 50 1 0 80 0\n").arg(rssPages).toUtf8());
    };
    stat(10, 1000, 0);
    statm(10, 1010);
    test::writeFile(root.scratch("proc/10/io"), "read_bytes: 0\nwrite_bytes: 0\n");
    stat(20, 100, 0); // another user's: no io
    FakeClock clock;
    ProcessMonitor monitor(std::make_unique<LinuxProcessReader>(root.sysfs()), clock.function());
    const double page = double(::sysconf(_SC_PAGESIZE));
    for (int step = 0; step < int(LinuxProcessReader::residentRefreshSamples) + 1; ++step) {
        stat(10, 1000 + 100 * step, step);
        statm(10, 1010 + 100 * step);
        stat(20, 100, 100 * step);
        monitor.sample();
        clock.time += 1;
        ASSERT_EQ(pids(monitor.processes), (std::vector<int32_t>{10, 20}));
        EXPECT_EQ(find(monitor, 10)->memory, (1010 + 100 * step) * page) << step;
        EXPECT_EQ(find(monitor, 20)->memory, 100 * page);
        EXPECT_EQ(find(monitor, 20)->diskTotal(), 0);
        if (step > 0)
            EXPECT_GT(find(monitor, 20)->cpu, 0);
    }
}

TEST(ProcessMonitor, TopSortsDescendingAndKeepsListingOrderForTies)
{
    SnapshotRoot root("sys-basic-1");
    FakeClock clock;
    ProcessMonitor monitor(std::make_unique<LinuxProcessReader>(root.sysfs()), clock.function());
    const auto sample = [](int32_t pid, double cpu, double memory, double read, double write) {
        ProcessSample s;
        s.pid = pid;
        s.cpu = cpu;
        s.memory = memory;
        s.diskRead = read;
        s.diskWrite = write;
        return s;
    };
    monitor.processes = {sample(1, 5, 10, 0, 0), sample(2, 50, 30, 0, 9), sample(3, 50, 20, 5, 5),
                         sample(4, 70, 40, 1, 0), sample(5, 0, 50, 0, 0)};
    EXPECT_EQ(pids(monitor.top(ProcessSortKey::cpu, 5)), (std::vector<int32_t>{4, 2, 3, 1, 5}));
    EXPECT_EQ(pids(monitor.top(ProcessSortKey::cpu, 2)), (std::vector<int32_t>{4, 2}));
    EXPECT_EQ(pids(monitor.top(ProcessSortKey::memory, 3)), (std::vector<int32_t>{5, 4, 2}));
    EXPECT_EQ(pids(monitor.top(ProcessSortKey::diskTotal, 2)), (std::vector<int32_t>{3, 2}));
    EXPECT_EQ(pids(monitor.top(ProcessSortKey::diskRead, 100)).size(), 5u);
    EXPECT_TRUE(monitor.top(ProcessSortKey::cpu, 0).empty());
}

TEST(ProcessActions, LocationAndForceQuitEligibility)
{
    EXPECT_EQ(ProcessActions::locationFromExecutable("/Applications/Foo.app/Contents/MacOS/Foo"),
              QString("/Applications/Foo.app"));
    EXPECT_EQ(ProcessActions::locationFromExecutable("/usr/bin/htop"), QString("/usr/bin/htop"));
    EXPECT_FALSE(ProcessActions::locationFromExecutable(""));

    test::ScopedEnv sysroot("PULSEBAR_SYSROOT", test::fixture("monitors/sys-basic-1"));
    EXPECT_EQ(ProcessActions::location(100), QString("/opt/Render.app"));
    EXPECT_EQ(ProcessActions::location(400), QString("/usr/bin/gnome-control-center")); // replaced binary
    EXPECT_FALSE(ProcessActions::location(300)); // no exe link
    EXPECT_FALSE(ProcessActions::location(987654));

    for (const char* name : {"WindowServer", "launchd", "loginwindow", "kernel_task", "systemd", "init", "Xorg",
                             "Xwayland", "gnome-shell", "kwin_wayland", "kwin_x11", "plasmashell"})
        EXPECT_FALSE(ProcessActions::canForceQuit(4242, name)) << name;
    EXPECT_FALSE(ProcessActions::canForceQuit(int32_t(::getpid()), "test_monitors"));
    EXPECT_TRUE(ProcessActions::canForceQuit(4242, "firefox"));
    EXPECT_TRUE(ProcessActions::canForceQuit(4242, "systemd-journald"));

    EXPECT_EQ(ProcessActions::forceQuitMessage("Render"), QString::fromUtf8("Force quit \u201CRender\u201D?"));
}

TEST(ProcessActions, ForceTerminateKillsAChildProcess)
{
    const pid_t child = startSleepingChild();
    ASSERT_GT(child, 0);
    EXPECT_TRUE(ProcessActions::forceTerminate(child));
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
    EXPECT_FALSE(ProcessActions::forceTerminate(0)); // never the whole process group
}

// The descriptor limit is raised once for the process; a limit lowered since (by the app's user or a
// library) is not overridden by the next reader.
TEST(ProcessMonitor, TheDescriptorLimitIsRaisedOnlyOnce)
{
    LinuxProcessReader first(RootedFileReader("/"));
    struct rlimit limit {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const struct rlimit before = limit;
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 512);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    LinuxProcessReader second(RootedFileReader("/"));
    EXPECT_TRUE(ProcessActions::location(int32_t(::getpid())));
    struct rlimit after {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &after), 0);
    EXPECT_EQ(after.rlim_cur, limit.rlim_cur);
    ::setrlimit(RLIMIT_NOFILE, &before);
}

// On the live machine: a process that ends between two samples is gone from the second, and one
// started after a sample is in the next, whether or not the sample lists proc/ again.
TEST(ProcessMonitor, LiveProcessesComeAndGoBetweenSamples)
{
    ProcessMonitor monitor(std::make_unique<LinuxProcessReader>(RootedFileReader("/")));
    const pid_t early = startSleepingChild();
    ASSERT_GT(early, 0);
    monitor.sample();
    ASSERT_NE(find(monitor, early), nullptr);
    endChild(early);
    monitor.sample();
    EXPECT_EQ(find(monitor, early), nullptr);
    monitor.sample();
    const pid_t late = startSleepingChild();
    ASSERT_GT(late, 0);
    monitor.sample();
    EXPECT_NE(find(monitor, late), nullptr);
    endChild(late);
    monitor.sample();
    EXPECT_EQ(find(monitor, late), nullptr);
    EXPECT_NE(find(monitor, int32_t(::getpid())), nullptr);
}
