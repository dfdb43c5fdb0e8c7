#include "core/app_settings.h"
#include "hub/hub.h"

#include <QTemporaryDir>

#include <benchmark/benchmark.h>

using namespace pulsebar;

// One whole tick on this machine: every monitor, the snapshot, the rules and the insight engine
// (no history row: the hub is not started). The ping every fifth tick goes to loopback.
static void BM_HubTick(benchmark::State& state)
{
    QTemporaryDir dir;
    Preferences preferences(dir.path() + "/preferences.json");
    AppSettings settings(preferences);
    Config config = settings.config();
    config.pingHost = QStringLiteral("127.0.0.1");
    settings.setConfig(config);
    Hub hub(settings, systemReaders());
    hub.tick(); // counters only
    for (auto _ : state)
        hub.tick();
}
BENCHMARK(BM_HubTick);
