#include "insight/insight_engine.h"

#include "../support/recording_notifier.h"

#include <gtest/gtest.h>

using namespace pulsebar;

namespace {

ProcessSample process(int32_t pid, const QString& name, double cpu, double memory = 0)
{
    ProcessSample p;
    p.pid = pid;
    p.name = name;
    p.cpu = cpu;
    p.memory = memory;
    return p;
}

// Drives one engine through a sequence of states at chosen times.
struct InsightRun {
    test::HubFixture fixture;
    test::RecordingNotifier notifier;
    InsightEngine engine{fixture.hub, notifier};
    Config config;

    const Insight& at(double now, const HubSnapshot& state)
    {
        engine.evaluate(state, config, now);
        return engine.current();
    }
    // The same state on every tick from `from` to `to`, `step` seconds apart; returns the last insight.
    const Insight& hold(double from, double to, const HubSnapshot& state, double step = 1)
    {
        for (double t = from; t <= to; t += step)
            engine.evaluate(state, config, t);
        return engine.current();
    }
};

HubSnapshot busyProcess(double cpu = 85)
{
    HubSnapshot s;
    s.cpuUser = 30;
    s.processes = {process(10, "idle", 1), process(42, "ffmpeg", cpu), process(11, "shell", 2)};
    return s;
}

HubSnapshot memoryPressure(MemoryPressureLevel level = MemoryPressureLevel::warning)
{
    HubSnapshot s;
    s.memoryPressureLevel = level;
    s.processes = {process(1, "small", 0, 100e6), process(7, "browser", 0, 3.5 * 1024 * 1024 * 1024),
                   process(8, "same", 0, 3.5 * 1024 * 1024 * 1024)};
    return s;
}

HubSnapshot fullDisk(HubSnapshot s = {})
{
    s.startupVolume = LiveVolume{500e9, 20e9}; // 96 % used
    return s;
}

} // namespace

TEST(InsightEngine, MinutesWording)
{
    EXPECT_EQ(InsightEngine::minutes(0), "1 min");
    EXPECT_EQ(InsightEngine::minutes(119), "1 min");
    EXPECT_EQ(InsightEngine::minutes(120), "2 min");
    EXPECT_EQ(InsightEngine::minutes(59 * 60 + 59), "59 min");
    EXPECT_EQ(InsightEngine::minutes(60 * 60), "1 h 0 min");
    EXPECT_EQ(InsightEngine::minutes(119 * 60), "1 h 59 min");
    EXPECT_EQ(InsightEngine::minutes(150 * 60), "2 h");
    EXPECT_EQ(InsightEngine::minutes(600 * 60), "10 h");
}

TEST(InsightEngine, StartsQuietAndABusyProcessNeedsTwoFullMinutes)
{
    InsightRun run;
    EXPECT_EQ(run.engine.current(), Insight::quiet());
    EXPECT_EQ(run.engine.current().text, "All quiet.");

    EXPECT_EQ(run.hold(0, 119, busyProcess()).kind, Insight::Kind::quiet);
    const Insight& insight = run.at(120, busyProcess());
    EXPECT_EQ(insight.kind, Insight::Kind::cpu);
    EXPECT_EQ(insight.text, "ffmpeg has used 85% CPU for 2 min.");
    EXPECT_EQ(insight.severity, Insight::Severity::warning);
    EXPECT_EQ(insight.module, ModuleKind::cpu);
    EXPECT_EQ(insight.pid, 42);

    // The text follows the process's current CPU and the time it has held.
    EXPECT_EQ(run.hold(121, 7141, busyProcess(180), 60).text, "ffmpeg has used 180% CPU for 1 h 59 min.");
}

TEST(InsightEngine, HighTotalCPUNamesTheBusiestProcessWithTheTotalsDuration)
{
    InsightRun run;
    HubSnapshot s;
    s.cpuUser = 60;
    s.cpuSystem = 15;
    s.processes = {process(1, "make", 40), process(2, "cc1plus", 75), process(3, "ld", 75)};
    EXPECT_EQ(run.hold(0, 119, s).kind, Insight::Kind::quiet);
    const Insight& insight = run.hold(120, 180, s);
    EXPECT_EQ(insight.text, "cc1plus has used 75% CPU for 3 min."); // the first of equals
    EXPECT_EQ(insight.pid, 2);

    // Once that process has its own running episode, its own (shorter) duration is quoted.
    s.processes[1].cpu = 90;
    run.hold(181, 300, s);
    EXPECT_EQ(run.engine.current().text, "cc1plus has used 90% CPU for 1 min.");
}

TEST(InsightEngine, TheLongestRunningBusyProcessWinsAndMustStillBeRunning)
{
    InsightRun run;
    HubSnapshot s;
    s.processes = {process(5, "early", 95)};
    run.hold(0, 59, s);
    s.processes = {process(9, "late", 99), process(5, "early", 95)};
    EXPECT_EQ(run.hold(60, 200, s).text, "early has used 95% CPU for 3 min.");

    // The longest one has just exited: its entry is still running (a dip), but it cannot be named,
    // and the total alone has not been high.
    s.processes = {process(9, "late", 99)};
    EXPECT_EQ(run.at(201, s).kind, Insight::Kind::quiet);
}

TEST(InsightEngine, FanAndHeatSuffixes)
{
    InsightRun run;
    HubSnapshot s = busyProcess();
    s.fans = {Fan{0, 2000, 1000, 6000}, Fan{0, 3000, 1000, 6000}}; // 20 % and 40 %
    s.cpuTemperature = 95;
    EXPECT_EQ(run.hold(0, 120, s).text, "ffmpeg has used 85% CPU for 2 min — fans are up.");

    s.fans = {Fan{0, 2900, 1000, 6000}, Fan{0, 9000, 6000, 6000}}; // 38 %; a fan without range counts 0
    EXPECT_EQ(run.at(121, s).text, "ffmpeg has used 85% CPU for 2 min — running hot.");

    s.cpuTemperature = 89.9;
    EXPECT_EQ(run.at(122, s).text, "ffmpeg has used 85% CPU for 2 min.");
}

TEST(InsightEngine, ADipOfThreeTicksKeepsTheStartAndTheFourthEndsIt)
{
    const HubSnapshot calm;
    {
        InsightRun run;
        run.hold(0, 20, memoryPressure(), 2);
        run.hold(22, 26, calm, 2); // three misses
        EXPECT_EQ(run.hold(28, 30, memoryPressure(), 2).kind, Insight::Kind::memory);
    }
    {
        InsightRun run;
        run.hold(0, 20, memoryPressure(), 2);
        run.hold(22, 28, calm, 2); // four misses end it
        EXPECT_EQ(run.at(30, memoryPressure()).kind, Insight::Kind::quiet);
        EXPECT_EQ(run.hold(31, 59, memoryPressure()).kind, Insight::Kind::quiet);
        EXPECT_EQ(run.at(60, memoryPressure()).kind, Insight::Kind::memory);
    }
    {
        // A busy process that pauses for three ticks keeps its clock too.
        InsightRun run;
        HubSnapshot paused = busyProcess(10);
        run.hold(0, 100, busyProcess());
        run.hold(101, 103, paused);
        EXPECT_EQ(run.hold(104, 120, busyProcess()).text, "ffmpeg has used 85% CPU for 2 min.");
    }
}

TEST(InsightEngine, MemoryInsightNamesTheLargestProcess)
{
    InsightRun run;
    const Insight& high = run.hold(0, 30, memoryPressure(MemoryPressureLevel::warning));
    EXPECT_EQ(high.text, "Memory pressure is high — browser is using 3.5 GB.");
    EXPECT_EQ(high.severity, Insight::Severity::warning);
    EXPECT_EQ(high.module, ModuleKind::memory);
    EXPECT_EQ(high.pid, 7);

    const Insight& critical = run.at(31, memoryPressure(MemoryPressureLevel::critical));
    EXPECT_EQ(critical.text, "Memory pressure is critical — browser is using 3.5 GB.");
    EXPECT_EQ(critical.severity, Insight::Severity::critical);

    // Without a process list there is nobody to name.
    HubSnapshot empty = memoryPressure();
    empty.processes.clear();
    EXPECT_EQ(run.at(32, empty).kind, Insight::Kind::quiet);
}

TEST(InsightEngine, StorageOutranksActivityButNotMemoryOrCPU)
{
    InsightRun run;
    HubSnapshot s = fullDisk(memoryPressure());
    s.diskWriteRate = 60e6;
    const Insight& storage = run.hold(0, 10, s);
    EXPECT_EQ(storage.kind, Insight::Kind::storage);
    EXPECT_EQ(storage.text, "Startup disk is almost full — 20.0 GB free.");
    EXPECT_EQ(storage.severity, Insight::Severity::critical);
    EXPECT_EQ(storage.module, ModuleKind::disks);
    EXPECT_FALSE(storage.pid);

    EXPECT_EQ(run.hold(11, 30, s).kind, Insight::Kind::memory);

    InsightRun cpu;
    EXPECT_EQ(cpu.hold(0, 60, fullDisk(busyProcess())).kind, Insight::Kind::storage);
    EXPECT_EQ(cpu.hold(61, 120, fullDisk(busyProcess())).kind, Insight::Kind::cpu);

    // 95 % is full enough; just below is not; an empty volume never is.
    InsightRun edge;
    HubSnapshot s95;
    s95.startupVolume = LiveVolume{100e9, 5e9};
    EXPECT_EQ(edge.at(0, s95).kind, Insight::Kind::storage);
    s95.startupVolume = LiveVolume{100e9, 5.1e9};
    EXPECT_EQ(edge.at(1, s95).kind, Insight::Kind::quiet);
    s95.startupVolume = LiveVolume{0, 0};
    EXPECT_EQ(edge.at(2, s95).kind, Insight::Kind::quiet);
}

TEST(InsightEngine, BusyDiskNamesTheDirectionAndItsTopProcess)
{
    InsightRun run;
    HubSnapshot s;
    s.diskReadRate = 20e6;
    s.diskWriteRate = 40 * 1024 * 1024;
    ProcessSample writer = process(3, "rsync", 5);
    writer.diskWrite = 30e6;
    ProcessSample reader = process(4, "tar", 5);
    reader.diskRead = 90e6;
    s.processes = {reader, writer};
    EXPECT_EQ(run.hold(0, 29, s).kind, Insight::Kind::quiet);
    const Insight& writing = run.at(30, s);
    EXPECT_EQ(writing.text, "Disk is busy — rsync is writing 40.0 MB/s.");
    EXPECT_EQ(writing.severity, Insight::Severity::info);
    EXPECT_EQ(writing.pid, 3);

    s.diskReadRate = 60e6;
    s.processes.clear();
    const Insight& reading = run.at(31, s);
    EXPECT_EQ(reading.text, "Disk is busy — reading 57.2 MB/s.");
    EXPECT_FALSE(reading.pid);
}

TEST(InsightEngine, BatteryDrainTexts)
{
    InsightRun run;
    HubSnapshot s;
    s.batteryPresent = true;
    s.batteryVoltage = 12.0;
    s.batteryAmperage = -2.0;
    s.minutesRemaining = 65;
    EXPECT_EQ(run.hold(0, 119, s).kind, Insight::Kind::quiet);
    const Insight& drain = run.at(120, s);
    EXPECT_EQ(drain.text, "Battery is draining fast at 24.0 W — about 1:05 left.");
    EXPECT_EQ(drain.severity, Insight::Severity::warning);
    EXPECT_EQ(drain.module, ModuleKind::battery);

    s.minutesRemaining.reset();
    EXPECT_EQ(run.at(121, s).text, "Battery is draining fast at 24.0 W.");

    // Readings gone for a tick: the condition survives the dip, the figures are left out.
    s.batteryVoltage.reset();
    EXPECT_EQ(run.at(122, s).text, "Battery is draining fast.");

    // On the charger it is not a drain, however large the figure.
    InsightRun charging;
    HubSnapshot ac = s;
    ac.onAC = true;
    ac.batteryVoltage = 12.0;
    EXPECT_EQ(charging.hold(0, 200, ac).kind, Insight::Kind::quiet);
}

TEST(InsightEngine, BusyNetworkUsesTheChosenUnit)
{
    InsightRun run;
    HubSnapshot s;
    s.download = 12.5e6;
    s.upload = 1e6;
    EXPECT_EQ(run.hold(0, 59, s).kind, Insight::Kind::quiet);
    EXPECT_EQ(run.at(60, s).text, "Network is busy — downloading 11.9 MB/s.");
    run.config.bandwidthBits = true;
    s.upload = 20e6;
    const Insight& up = run.at(61, s);
    EXPECT_EQ(up.text, "Network is busy — uploading 160 Mb/s.");
    EXPECT_EQ(up.module, ModuleKind::network);
    EXPECT_EQ(up.severity, Insight::Severity::info);
}

TEST(InsightEngine, NotifiesOnAChangeOfKindAtMostOncePerKindEveryHalfHour)
{
    InsightRun run;
    run.config.insightNotifications = true;
    run.hold(0, 30, memoryPressure());
    ASSERT_EQ(run.notifier.posts.size(), 1u);
    EXPECT_EQ(run.notifier.posts[0], (Notification{"Pulsebar", "Memory pressure is high — browser is using 3.5 GB."}));

    // Still memory (even at a new severity): no change of kind, no post.
    run.at(31, memoryPressure(MemoryPressureLevel::critical));
    EXPECT_EQ(run.notifier.posts.size(), 1u);

    // Memory to CPU posts; back to memory within 30 minutes does not.
    HubSnapshot calm = busyProcess();
    run.hold(32, 44, calm);    // memory pressure ends after four misses
    run.hold(45, 200, calm);   // the process has held for 120 s at 152
    ASSERT_EQ(run.notifier.posts.size(), 2u);
    EXPECT_EQ(run.notifier.posts[1].body, "ffmpeg has used 85% CPU for 2 min.");
    run.hold(201, 240, memoryPressure());
    EXPECT_EQ(run.engine.current().kind, Insight::Kind::memory);
    EXPECT_EQ(run.notifier.posts.size(), 2u);

    // Half an hour after the first memory post, the next change to memory posts again.
    run.hold(241, 400, calm);
    EXPECT_EQ(run.engine.current().kind, Insight::Kind::cpu);
    run.hold(1799, 1829, memoryPressure());
    EXPECT_EQ(run.notifier.posts.size(), 2u); // 1829 − 30 < 1800
    run.hold(1830, 1835, calm); // memory pressure ends: quiet
    EXPECT_EQ(run.engine.current().kind, Insight::Kind::quiet);
    run.hold(1836, 1866, memoryPressure());
    EXPECT_EQ(run.notifier.posts.size(), 3u);
}

TEST(InsightEngine, InfoInsightsAndTheSwitchOffNeverNotify)
{
    InsightRun run;
    run.config.insightNotifications = true;
    HubSnapshot s;
    s.download = 20e6;
    s.diskWriteRate = 60e6;
    run.hold(0, 60, s);
    EXPECT_EQ(run.engine.current().kind, Insight::Kind::disk);
    s.diskWriteRate = 0;
    run.hold(61, 70, s);
    EXPECT_EQ(run.engine.current().kind, Insight::Kind::network);
    EXPECT_TRUE(run.notifier.posts.empty());

    InsightRun off;
    off.hold(0, 200, fullDisk(busyProcess()));
    EXPECT_EQ(off.engine.current().kind, Insight::Kind::cpu);
    EXPECT_TRUE(off.notifier.posts.empty());
}
