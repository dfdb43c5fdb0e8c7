// The cost of one sample of each monitor, reading the live /proc and /sys of this machine.
#include "monitors/cpu_monitor.h"
#include "monitors/disk_monitor.h"
#include "monitors/gpu_monitor.h"
#include "monitors/memory_monitor.h"
#include "monitors/process_monitor.h"
#include "platform/linux/linux_cpu_reader.h"
#include "platform/linux/linux_disk_reader.h"
#include "platform/linux/linux_gpu_reader.h"
#include "platform/linux/linux_memory_reader.h"
#include "platform/linux/linux_process_reader.h"

#include <benchmark/benchmark.h>

#include <cctype>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

using namespace pulsebar;

namespace {

RootedFileReader live() { return RootedFileReader("/"); }

// The clock moves a second per call, so every sample after the first computes rates.
std::function<double()> steppingClock()
{
    return [t = 1.7e9]() mutable { return t += 1; };
}

} // namespace

static void BM_CPUSample(benchmark::State& state)
{
    CPUMonitor cpu(std::make_unique<LinuxCPUReader>(live()), steppingClock());
    cpu.sample();
    for (auto _ : state)
        cpu.sample();
    state.counters["cpus"] = double(cpu.cores.size());
}
BENCHMARK(BM_CPUSample);

static void BM_MemorySample(benchmark::State& state)
{
    MemoryMonitor memory(std::make_unique<LinuxMemoryReader>(live()), steppingClock());
    for (auto _ : state)
        memory.sample();
}
BENCHMARK(BM_MemorySample);

static void BM_GPUSample(benchmark::State& state)
{
    GPUMonitor gpu(std::make_unique<LinuxGPUReader>(live()));
    gpu.sample();
    for (auto _ : state)
        gpu.sample();
    state.counters["gpus"] = double(gpu.gpus.size());
}
BENCHMARK(BM_GPUSample);

static void BM_DiskActivity(benchmark::State& state)
{
    DiskMonitor disks(std::make_unique<LinuxDiskReader>(live()), steppingClock());
    disks.sampleActivity();
    for (auto _ : state)
        disks.sampleActivity();
}
BENCHMARK(BM_DiskActivity);

// What every tick spends on CPU, memory, GPU and disk activity together.
static void BM_CPUMemoryGPUDiskTick(benchmark::State& state)
{
    const auto clock = steppingClock();
    CPUMonitor cpu(std::make_unique<LinuxCPUReader>(live()), clock);
    MemoryMonitor memory(std::make_unique<LinuxMemoryReader>(live()), clock);
    GPUMonitor gpu(std::make_unique<LinuxGPUReader>(live()));
    DiskMonitor disks(std::make_unique<LinuxDiskReader>(live()), clock);
    for (auto _ : state) {
        cpu.sample();
        memory.sample();
        gpu.sample();
        disks.sampleActivity();
    }
}
BENCHMARK(BM_CPUMemoryGPUDiskTick);

static void BM_VolumeScan(benchmark::State& state)
{
    DiskMonitor disks(std::make_unique<LinuxDiskReader>(live()), steppingClock());
    for (auto _ : state)
        disks.scanVolumes(true, true);
    state.counters["volumes"] = double(disks.volumes.size());
}
BENCHMARK(BM_VolumeScan);

// Sleeping children that bring the machine to about `total` processes, ended with the object.
class Sleepers {
public:
    explicit Sleepers(int total)
    {
        int running = 0;
        live().forEachEntry("proc", [&](std::string_view name) { running += std::isdigit(name.front()) ? 1 : 0; });
        for (int i = running; i < total; ++i) {
            const pid_t child = ::fork();
            if (child == 0) {
                ::pause();
                ::_exit(0);
            }
            if (child > 0)
                m_children.push_back(child);
        }
    }
    ~Sleepers()
    {
        for (const pid_t child : m_children)
            ::kill(child, SIGKILL);
        for (const pid_t child : m_children)
            ::waitpid(child, nullptr, 0);
    }

private:
    std::vector<pid_t> m_children;
};

// One sample of every process; "per_process" is the CPU time (ours and the kernel's on our behalf)
// divided by the number of processes. The argument fills the machine up to that many processes with
// sleeping children first (0: as it is).
static void BM_ProcessSample(benchmark::State& state)
{
    const Sleepers sleepers(int(state.range(0)));
    ProcessMonitor processes(std::make_unique<LinuxProcessReader>(live()), steppingClock());
    processes.sample();
    double listed = 0;
    for (auto _ : state) {
        processes.sample();
        listed += double(processes.processes.size());
    }
    const double perSample = listed / double(state.iterations());
    state.counters["processes"] = perSample;
    state.counters["per_process"] =
        benchmark::Counter(listed, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_ProcessSample)->Arg(0)->Arg(500);

static void BM_ProcessTop(benchmark::State& state)
{
    ProcessMonitor processes(std::make_unique<LinuxProcessReader>(live()), steppingClock());
    processes.sample();
    processes.sample();
    for (auto _ : state)
        benchmark::DoNotOptimize(processes.top(ProcessSortKey::cpu, 10));
    state.counters["processes"] = double(processes.processes.size());
}
BENCHMARK(BM_ProcessTop);

// The exact resident set of one process: statm, opened and read afresh, against status, which carries
// the same figure among fifty others. A process sample reads statm for about one process in
// LinuxProcessReader::residentRefreshSamples.
static void BM_ProcessExactResidentRead(benchmark::State& state, const char* file)
{
    const RootedFileReader fs = live();
    char buffer[4096];
    for (auto _ : state)
        benchmark::DoNotOptimize(fs.readInto(file, buffer, sizeof buffer));
}
BENCHMARK_CAPTURE(BM_ProcessExactResidentRead, statm, "proc/self/statm");
BENCHMARK_CAPTURE(BM_ProcessExactResidentRead, status, "proc/self/status");
