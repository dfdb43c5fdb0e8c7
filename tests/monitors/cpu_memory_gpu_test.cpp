#include "monitors/cpu_monitor.h"
#include "monitors/gpu_monitor.h"
#include "monitors/memory_monitor.h"
#include "platform/linux/linux_cpu_reader.h"
#include "platform/linux/linux_gpu_reader.h"
#include "platform/linux/linux_memory_reader.h"

#include "snapshot_root.h"

#include <cmath>

using namespace pulsebar;
using test::FakeClock;
using test::SnapshotRoot;

namespace {

constexpr double kB = 1024;

} // namespace

TEST(CPUMonitor, FixedFactsThenAFirstSampleThatOnlyRecordsThenDeltasGiveWeightedPercentages)
{
    SnapshotRoot root("sys-basic-1");
    FakeClock clock;
    CPUMonitor cpu(std::make_unique<LinuxCPUReader>(root.sysfs()), clock.function());
    EXPECT_EQ(cpu.brand, "12th Gen Intel(R) Core(TM) i7-1260P");
    EXPECT_EQ(cpu.logicalCount, 4);
    EXPECT_EQ(cpu.physicalCount, 3); // cpu0 and cpu1 are two threads of one core
    EXPECT_EQ(cpu.performanceCount, 2);
    EXPECT_EQ(cpu.efficiencyCount, 2);
    EXPECT_EQ(cpu.bootTime, 1700000000);

    cpu.sample();
    EXPECT_EQ(cpu.previous.size(), 4u);
    EXPECT_TRUE(cpu.cores.empty());
    EXPECT_EQ(cpu.user + cpu.system, 0);
    EXPECT_TRUE(cpu.userHistory.isEmpty());

    root.use("sys-basic-2");
    clock.time += 2;
    cpu.sample();
    ASSERT_EQ(cpu.cores.size(), 4u);
    // cpu0: user 50, system 20 + irq 3 + softirq 2, idle 15 + steal 10 of 100 ticks.
    EXPECT_DOUBLE_EQ(cpu.cores[0].user, 50);
    EXPECT_DOUBLE_EQ(cpu.cores[0].system, 25);
    EXPECT_FALSE(cpu.cores[0].isEfficiency);
    // cpu1: user 10 + nice 10, idle 70 + iowait 10.
    EXPECT_DOUBLE_EQ(cpu.cores[1].user, 20);
    EXPECT_DOUBLE_EQ(cpu.cores[1].system, 0);
    // cpu2 did not move at all.
    EXPECT_EQ(cpu.cores[2].user + cpu.cores[2].system, 0);
    EXPECT_TRUE(cpu.cores[2].isEfficiency);
    // cpu3's user counter wrapped past 2^64: a small positive delta of 96, not a huge one.
    EXPECT_DOUBLE_EQ(cpu.cores[3].user, 96);
    EXPECT_TRUE(cpu.cores[3].isEfficiency);
    // Weighted over all ticks: (50+20+0+96) / 300 and 25 / 300.
    EXPECT_NEAR(cpu.user, 166.0 / 3, 1e-9);
    EXPECT_NEAR(cpu.system, 25.0 / 3, 1e-9);
    EXPECT_EQ(cpu.userHistory.size(), 1);
    EXPECT_NEAR(cpu.totalHistory.last(), 191.0 / 3, 1e-9);
    EXPECT_EQ(cpu.loadAverage, (std::array<double, 3>{1.25, 0.60, 0.35}));
    EXPECT_DOUBLE_EQ(cpu.uptime, clock.time - 1700000000);
}

TEST(CPUMonitor, ACPUGoingOfflineRestartsLikeAFirstSampleAndGarbageKeepsTheLastValues)
{
    SnapshotRoot root("sys-basic-1");
    FakeClock clock;
    CPUMonitor cpu(std::make_unique<LinuxCPUReader>(root.sysfs()), clock.function());
    cpu.sample();
    root.use("sys-basic-2");
    cpu.sample();
    const auto cores = cpu.cores;
    const double user = cpu.user;

    // sys-basic-3 has three CPUs and a load average that does not parse.
    root.use("sys-basic-3");
    cpu.sample();
    EXPECT_EQ(cpu.previous.size(), 3u);
    EXPECT_EQ(cpu.cores, cores);
    EXPECT_EQ(cpu.user, user);
    EXPECT_EQ(cpu.userHistory.size(), 1);

    cpu.sample(); // same three CPUs, same counters: all deltas 0
    ASSERT_EQ(cpu.cores.size(), 3u);
    EXPECT_EQ(cpu.user, 0);
    EXPECT_EQ(cpu.loadAverage, (std::array<double, 3>{1.25, 0.60, 0.35})); // the unreadable file kept them
    EXPECT_EQ(cpu.loadHistory.size(), 2);

    // A missing proc/stat changes nothing.
    root.useScratch();
    cpu.sample();
    EXPECT_EQ(cpu.cores.size(), 3u);
    EXPECT_EQ(cpu.userHistory.size(), 2);
}

TEST(CPUMonitor, CountersThatGoBackwardsNeverGiveNegativeOrNaNPercentages)
{
    SnapshotRoot root("sys-basic-2");
    FakeClock clock;
    CPUMonitor cpu(std::make_unique<LinuxCPUReader>(root.sysfs()), clock.function());
    cpu.sample();
    root.use("sys-basic-1"); // every counter moves back, cpu3's by a near-full wrap
    cpu.sample();
    ASSERT_EQ(cpu.cores.size(), 4u);
    for (const auto& core : cpu.cores) {
        EXPECT_TRUE(std::isfinite(core.user) && core.user >= 0 && core.user <= 100) << core.index;
        EXPECT_TRUE(std::isfinite(core.system) && core.system >= 0 && core.system <= 100) << core.index;
    }
    EXPECT_TRUE(cpu.user >= 0 && cpu.user + cpu.system <= 100);
}

TEST(CPUMonitor, MissingFactsFallBack)
{
    SnapshotRoot root("sys-basic-1");
    root.useScratch();
    test::writeFile(root.scratch("proc/uptime"), "100.5 20.0\n");
    FakeClock clock;
    CPUMonitor cpu(std::make_unique<LinuxCPUReader>(root.sysfs()), clock.function());
    EXPECT_EQ(cpu.brand, "Processor");
    EXPECT_EQ(cpu.logicalCount, 0);
    EXPECT_EQ(cpu.physicalCount, 0);
    EXPECT_EQ(cpu.performanceCount + cpu.efficiencyCount, 0);
    EXPECT_DOUBLE_EQ(cpu.bootTime, clock.time - 100.5);
}

TEST(CPUMonitor, ArmCapacitiesMarkTheSmallerCoresAsEfficiency)
{
    SnapshotRoot root("sys-basic-1");
    root.useScratch();
    test::writeFile(root.scratch("proc/stat"), "cpu0 1 0 1 1\ncpu1 1 0 1 1\ncpu2 1 0 1 1\nbtime 5\n");
    test::writeFile(root.scratch("proc/cpuinfo"), "processor\t: 0\nHardware\t: BCM2835\n");
    for (const auto& [cpu, capacity] : {std::pair{0, "446"}, {1, "446"}, {2, "1024"}})
        test::writeFile(root.scratch(QStringLiteral("sys/devices/system/cpu/cpu%1/cpu_capacity").arg(cpu)), capacity);
    FakeClock clock;
    CPUMonitor cpu(std::make_unique<LinuxCPUReader>(root.sysfs()), clock.function());
    EXPECT_EQ(cpu.brand, "BCM2835");
    EXPECT_EQ(cpu.efficiencyCount, 2);
    EXPECT_EQ(cpu.performanceCount, 1);
    test::writeFile(root.scratch("proc/stat"), "cpu0 2 0 1 1\ncpu1 2 0 1 1\ncpu2 2 0 1 1\nbtime 5\n");
    cpu.sample();
    cpu.sample();
    ASSERT_EQ(cpu.cores.size(), 3u);
    EXPECT_TRUE(cpu.cores[0].isEfficiency);
    EXPECT_FALSE(cpu.cores[2].isEfficiency);
}

TEST(MemoryMonitor, MapsMeminfoOntoTheBreakdown)
{
    SnapshotRoot root("sys-basic-1");
    FakeClock clock;
    MemoryMonitor memory(std::make_unique<LinuxMemoryReader>(root.sysfs()), clock.function());
    EXPECT_EQ(memory.total, 16000000 * kB);
    memory.sample();
    EXPECT_EQ(memory.wired, 300000 * kB);      // SUnreclaim + KernelStack + PageTables
    EXPECT_EQ(memory.compressed, 100000 * kB); // Zswap
    EXPECT_EQ(memory.app, 7600000 * kB);       // total - available - wired - compressed
    EXPECT_EQ(memory.cached, 5000000 * kB);    // Cached + Buffers + SReclaimable - Shmem
    EXPECT_EQ(memory.free, 8000000 * kB);
    EXPECT_EQ(memory.pressure, 50);
    EXPECT_EQ(memory.pressureLevel, MemoryPressureLevel::warning); // some avg10 = 12
    EXPECT_EQ(memory.swapUsed, 500000 * kB);
    EXPECT_EQ(memory.pageInsRate, 0); // first sample: counters only
    EXPECT_DOUBLE_EQ(memory.usedHistory.last(), 50);

    root.use("sys-basic-2");
    clock.time += 4;
    memory.sample();
    EXPECT_EQ(memory.cached, 0); // Shmem larger than the page cache floors at 0
    EXPECT_EQ(memory.pressure, 25);
    EXPECT_EQ(memory.pressureLevel, MemoryPressureLevel::critical); // full avg10 = 15
    EXPECT_EQ(memory.swapUsed, 0);
    EXPECT_DOUBLE_EQ(memory.pageInsRate, 100 * memory.pageSize / 4);
    EXPECT_EQ(memory.pageOutsRate, 0);
    EXPECT_EQ(memory.compressed, 0); // no Zswap line
}

TEST(MemoryMonitor, WithoutPSIThePressureLevelFollowsAvailableMemoryAndBackwardsCountersGiveZero)
{
    SnapshotRoot root("sys-basic-2");
    FakeClock clock;
    MemoryMonitor memory(std::make_unique<LinuxMemoryReader>(root.sysfs()), clock.function());
    memory.sample();
    root.use("sys-basic-3"); // 4 % available, no PSI, swap-ins fell from 1100 to 900
    clock.time += 2;
    memory.sample();
    EXPECT_EQ(memory.pressureLevel, MemoryPressureLevel::critical);
    EXPECT_EQ(memory.pressure, 96);
    EXPECT_EQ(memory.pageInsRate, 0);
    EXPECT_DOUBLE_EQ(memory.pageOutsRate, 500 * memory.pageSize / 2);
    EXPECT_EQ(memory.swapUsed, 0); // SwapFree missing: the previous figure stays
    EXPECT_EQ(memory.swapTotal, 2000000 * kB);

    root.useScratch();
    test::writeFile(root.scratch("proc/meminfo"), "MemTotal: 1000 kB\nMemAvailable: 120 kB\nSUnreclaim: 950 kB\n");
    memory.sample();
    EXPECT_EQ(memory.pressureLevel, MemoryPressureLevel::warning); // 12 % available
    EXPECT_EQ(memory.app, 0);           // wired larger than what is in use: floored, not negative
    EXPECT_EQ(memory.wired, 950 * kB);

    // Unreadable or truncated accounting leaves every value in place.
    const double pressure = memory.pressure;
    const int samples = memory.pressureHistory.size();
    test::writeFile(root.scratch("proc/meminfo"), "MemTotal: 1000 kB\nMemAv");
    memory.sample();
    EXPECT_EQ(memory.pressure, pressure);
    EXPECT_EQ(memory.pressureHistory.size(), samples);

    // More available than there is, or more held than there is, is broken accounting: nothing moves.
    for (const char* broken : {"MemTotal: 1000 kB\nMemAvailable: 5000 kB\n",
                               "MemTotal: 1000 kB\nMemAvailable: 500 kB\nSUnreclaim: 15000 kB\n"}) {
        test::writeFile(root.scratch("proc/meminfo"), broken);
        memory.sample();
        EXPECT_EQ(memory.pressure, pressure) << broken;
        EXPECT_EQ(memory.pressureHistory.size(), samples) << broken;
    }
    test::writeFile(root.scratch("proc/meminfo"), "MemTotal: 1000 kB\nMemAvailable: 0 kB\n");
    memory.sample();
    EXPECT_EQ(memory.pressure, 100);
}

TEST(GPUMonitor, ListsDRMCardsInCardOrderWithNamesFromPciIds)
{
    SnapshotRoot root("sys-basic-1");
    GPUMonitor gpu(std::make_unique<LinuxGPUReader>(root.sysfs(), [] { return NVML::open("libpulsebar-no-such-nvml.so.1"); }));
    EXPECT_EQ(gpu.utilization(), 0);
    gpu.sample();
    ASSERT_EQ(gpu.gpus.size(), 4u);
    EXPECT_EQ(gpu.gpus[0].name, "Radeon RX 6800/6800 XT / 6900 XT");
    EXPECT_EQ(gpu.gpus[0].utilization, 12);
    EXPECT_EQ(gpu.gpus[0].memoryUsed, 1073741824.0);
    EXPECT_EQ(gpu.gpus[1].name, "Iris Xe Graphics");
    EXPECT_EQ(gpu.gpus[1].utilization, 0);
    EXPECT_FALSE(gpu.gpus[1].memoryUsed);
    EXPECT_EQ(gpu.gpus[2].name, "GeForce RTX 3080"); // no NVML: named from pci.ids, load 0
    EXPECT_EQ(gpu.gpus[3].name, "simple-framebuffer"); // card10 after card2; no PCI identity
    EXPECT_EQ(gpu.gpus[3].id, 3);
    EXPECT_EQ(gpu.utilization(), 12);

    root.use("sys-basic-2");
    gpu.sample();
    EXPECT_EQ(gpu.gpus[0].utilization, 37);
    EXPECT_EQ(gpu.gpus[0].history.values(), (std::deque<double>{12, 37}));
    EXPECT_EQ(gpu.utilization(), 37);

    // Without DRM cards there is no GPU.
    root.useScratch();
    gpu.sample();
    EXPECT_TRUE(gpu.gpus.empty());
    EXPECT_EQ(gpu.utilization(), 0);
}

TEST(GPUMonitor, EntriesKeepTheirNameAndTrailByPosition)
{
    SnapshotRoot root("sys-basic-1");
    root.useScratch();
    test::writeFile(root.scratch("sys/class/drm/card0/device/gpu_busy_percent"), "5");
    GPUMonitor gpu(std::make_unique<LinuxGPUReader>(root.sysfs(), nullptr));
    gpu.sample();
    ASSERT_EQ(gpu.gpus.size(), 1u);
    EXPECT_EQ(gpu.gpus[0].name, "GPU"); // neither a PCI identity nor a driver
    test::writeFile(root.scratch("sys/class/drm/card1/device/vendor"), "0x8086");
    gpu.sample();
    ASSERT_EQ(gpu.gpus.size(), 2u);
    EXPECT_EQ(gpu.gpus[0].history.size(), 2);
    EXPECT_EQ(gpu.gpus[1].history.size(), 1);
    EXPECT_EQ(gpu.gpus[1].id, 1);
}

#ifdef FAKE_NVML_LIBRARY
TEST(GPUMonitor, NVIDIACardsReadTheirLoadThroughNVML)
{
    SnapshotRoot root("sys-basic-1");
    GPUMonitor gpu(std::make_unique<LinuxGPUReader>(root.sysfs(), [] { return NVML::open(FAKE_NVML_LIBRARY); }));
    gpu.sample();
    // The fake library reports the card at 0000:01:00 and one more GPU that has no DRM card.
    ASSERT_EQ(gpu.gpus.size(), 5u);
    EXPECT_EQ(gpu.gpus[2].name, "NVIDIA GeForce RTX 3080");
    EXPECT_EQ(gpu.gpus[2].utilization, 55);
    EXPECT_EQ(gpu.gpus[2].memoryUsed, 3.0 * 1024 * 1024 * 1024);
    EXPECT_EQ(gpu.gpus[4].name, "NVIDIA A100");
    EXPECT_EQ(gpu.gpus[4].utilization, 100);
    EXPECT_EQ(gpu.utilization(), 100);
}
#endif
