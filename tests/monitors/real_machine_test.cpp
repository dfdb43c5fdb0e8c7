// Cross-checks the monitors, reading the live system, against the system's own tools.
#include "hub/hub.h"
#include "platform/linux/linux_process_reader.h"

#include "../support/test_support.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

using namespace pulsebar;

namespace {

QString run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(10000) || process.exitCode() != 0)
        return {};
    return QString::fromLocal8Bit(process.readAllStandardOutput());
}

} // namespace

TEST(RealMachine, MonitorsAgreeWithNprocMeminfoAndDf)
{
    test::ScopedEnv sysroot("PULSEBAR_SYSROOT", "/");
    QTemporaryDir dir;
    Preferences preferences(dir.path() + "/preferences.json");
    AppSettings settings(preferences);
    Hub hub(settings, systemReaders());
    hub.tick();
    hub.tick();

    // Logical CPUs: every online CPU; nproc counts those this process may run on, never more.
    const int online = run("getconf", {"_NPROCESSORS_ONLN"}).trimmed().toInt();
    const int nproc = run("nproc", {}).trimmed().toInt();
    ASSERT_GT(nproc, 0);
    EXPECT_EQ(hub.cpu.logicalCount, online);
    EXPECT_GE(hub.cpu.logicalCount, nproc);
    EXPECT_EQ(int(hub.cpu.cores.size()), hub.cpu.logicalCount);
    EXPECT_GT(hub.cpu.bootTime, 1e9);
    EXPECT_GE(hub.cpu.user + hub.cpu.system, 0);
    EXPECT_LE(hub.cpu.user + hub.cpu.system, 100.0001);

    QFile meminfo("/proc/meminfo");
    ASSERT_TRUE(meminfo.open(QIODevice::ReadOnly));
    const QString memTotal = QString::fromLatin1(meminfo.readAll()).section('\n', 0, 0);
    ASSERT_TRUE(memTotal.startsWith("MemTotal:"));
    EXPECT_EQ(hub.memory.total, memTotal.split(' ', Qt::SkipEmptyParts).at(1).toDouble() * 1024);
    EXPECT_GT(hub.memory.app + hub.memory.wired, 0);

    // df -B1 /, size column only, so a long device name cannot wrap the line.
    const QStringList df = run("df", {"-B1", "--output=size", "/"}).split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(df.size(), 2);
    const double rootTotal = df.at(1).trimmed().toDouble();
    ASSERT_GT(rootTotal, 0);
    const auto startup = hub.disks.startupVolume();
    ASSERT_TRUE(startup);
    EXPECT_TRUE(startup->isRoot);
    EXPECT_EQ(startup->url, "/");
    EXPECT_EQ(startup->total, rootTotal);
    // Used percent as df works it out, leaving the root reserve aside (df rounds up; other builds may
    // write in between, hence the margin).
    const QStringList usage = run("df", {"-B1", "--output=used,avail", "/"}).split('\n', Qt::SkipEmptyParts);
    ASSERT_EQ(usage.size(), 2);
    const QStringList figures = usage.at(1).split(' ', Qt::SkipEmptyParts);
    const double used = figures.at(0).toDouble(), avail = figures.at(1).toDouble();
    EXPECT_NEAR(startup->usedPercent(), used / (used + avail) * 100, 1.0);

    // PID 1 is listed whoever owns it, with its resident memory as ps shows it.
    const auto init = std::find_if(hub.processes.processes.begin(), hub.processes.processes.end(),
                                   [](const ProcessSample& p) { return p.pid == 1; });
    ASSERT_NE(init, hub.processes.processes.end());
    const double psResident = run("ps", {"-o", "rss=", "-p", "1"}).trimmed().toDouble() * 1024;
    ASSERT_GT(psResident, 0);
    EXPECT_NEAR(init->memory, psResident, psResident * 0.01);

    // This test's own process is in the list, under its own name.
    const auto self = std::find_if(hub.processes.processes.begin(), hub.processes.processes.end(),
                                   [](const ProcessSample& p) { return p.pid == int32_t(::getpid()); });
    ASSERT_NE(self, hub.processes.processes.end());
    EXPECT_EQ(self->name, "test_monitors");
    EXPECT_GT(self->memory, 0);
}

TEST(RealMachine, AProcessThatEndsLeavesTheListAndLetsGoOfItsFiles)
{
    auto owned = std::make_unique<LinuxProcessReader>(RootedFileReader("/"));
    LinuxProcessReader* reader = owned.get();
    double time = 1.7e9;
    ProcessMonitor monitor(std::move(owned), [&] { return time; });

    const pid_t child = ::fork();
    if (child == 0) {
        ::pause();
        ::_exit(0);
    }
    ASSERT_GT(child, 0);
    const auto listed = [&] {
        return std::any_of(monitor.processes.begin(), monitor.processes.end(),
                           [&](const ProcessSample& p) { return p.pid == child; });
    };
    monitor.sample();
    time += 1;
    monitor.sample();
    EXPECT_TRUE(listed());
    EXPECT_TRUE(reader->isHoldingFiles(child));
    EXPECT_EQ(monitor.previous.count(child), 1u);

    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    time += 1;
    monitor.sample();
    EXPECT_FALSE(listed());
    EXPECT_EQ(monitor.previous.count(child), 0u);
    EXPECT_EQ(monitor.names.count(child), 0u);
    EXPECT_FALSE(reader->isHoldingFiles(child));
    // Our own counters still read through the held files, sample after sample.
    const auto self = std::find_if(monitor.processes.begin(), monitor.processes.end(),
                                   [](const ProcessSample& p) { return p.pid == int32_t(::getpid()); });
    ASSERT_NE(self, monitor.processes.end());
    EXPECT_GT(self->memory, 0);
}
