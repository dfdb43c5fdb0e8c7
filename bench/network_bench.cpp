#include "monitors/network_monitor.h"
#include "platform/linux/linux_network_reader.h"

#include <benchmark/benchmark.h>

using namespace pulsebar;

namespace {

// One sample as the hub takes it, without the ping and the public-address request: both run in the
// background and are marked as already under way, so only the reads and the bookkeeping are timed.
void sampleLoop(benchmark::State& state, std::unique_ptr<NetworkReader> reader)
{
    NetworkMonitor monitor(std::move(reader));
    monitor.publicIPURL = QStringLiteral("http://127.0.0.1:9/");
    double time = 1000;
    monitor.now = [&] { return time; };
    monitor.pingInFlight = true;
    monitor.sample(); // the first sample also reads display names and starts the address request
    for (auto _ : state) {
        time += 2;
        monitor.sample();
        benchmark::DoNotOptimize(monitor.download);
    }
    state.counters["interfaces"] = double(monitor.interfaces.size());
}

} // namespace

static void BM_NetworkSampleLiveSystem(benchmark::State& state)
{
    sampleLoop(state, std::make_unique<LinuxNetworkReader>(RootedFileReader::fromEnvironment()));
}
BENCHMARK(BM_NetworkSampleLiveSystem);

static void BM_NetworkSampleLaptopFixture(benchmark::State& state)
{
    // Eight interfaces, a Wi-Fi link and a resolved stub; addresses come from the live system.
    sampleLoop(state, std::make_unique<LinuxNetworkReader>(RootedFileReader(PULSEBAR_FIXTURES "/network/laptop"),
                                                           [](const QString&) { return std::optional<WirelessLink>(); }));
}
BENCHMARK(BM_NetworkSampleLaptopFixture);
