#include "alerts/notifier.h"
#include "alerts/rule_engine.h"
#include "core/app_settings.h"
#include "hub/hub.h"
#include "insight/insight_engine.h"

#include <QTemporaryDir>

#include <benchmark/benchmark.h>

using namespace pulsebar;

namespace {

class SilentNotifier : public Notifier {
public:
    bool isAvailable() const override { return true; }
    void post(const QString&, const QString&) override {}
};

// A busy desktop: 400 processes, a handful of them keeping a core busy.
HubSnapshot busyDesktop()
{
    HubSnapshot s;
    s.cpuUser = 65;
    s.cpuSystem = 12;
    s.memoryPressureLevel = MemoryPressureLevel::warning;
    s.diskWriteRate = 70e6;
    s.download = 12e6;
    for (int i = 0; i < 400; ++i) {
        ProcessSample p;
        p.pid = 1000 + i;
        p.name = QStringLiteral("process-%1").arg(i);
        p.cpu = i % 50 == 0 ? 95 : i % 7;
        p.memory = 1e6 * (i % 300);
        p.diskWrite = i * 1000;
        s.processes.push_back(p);
    }
    s.startupVolume = LiveVolume{500e9, 100e9};
    s.fans = {Fan{0, 2500, 1200, 6000}};
    return s;
}

// The engines only need a hub to exist; the states are handed to them directly.
struct BenchHub {
    QTemporaryDir dir;
    Preferences preferences{dir.path() + "/preferences.json"};
    AppSettings settings{preferences};
    Hub hub{settings, systemReaders()};
    SilentNotifier notifier;
};

} // namespace

// One tick of the insight engine with every condition running and 400 processes to scan.
static void BM_InsightEvaluate(benchmark::State& state)
{
    BenchHub fixture;
    InsightEngine engine(fixture.hub, fixture.notifier);
    const HubSnapshot live = busyDesktop();
    const Config config;
    double now = 0;
    for (auto _ : state) {
        engine.evaluate(live, config, now);
        now += 2;
    }
}
BENCHMARK(BM_InsightEvaluate);

// One tick of the rule engine with the default rules and every event switched on.
static void BM_RulesEvaluate(benchmark::State& state)
{
    BenchHub fixture;
    RuleEngine engine(fixture.hub, 0, fixture.notifier);
    const HubSnapshot live = busyDesktop();
    Config config;
    config.events = EventToggles{true, true, true, true, true, true};
    double now = 10;
    for (auto _ : state) {
        engine.evaluate(live, config, now);
        now += 2;
    }
}
BENCHMARK(BM_RulesEvaluate);
