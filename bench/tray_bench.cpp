// One tray refresh, as the hub asks for after every tick: six items with their labels and icons.
#include "hub/hub.h"
#include "menubar/status_item_controller.h"

#include <QTemporaryDir>

#include <benchmark/benchmark.h>

using namespace pulsebar;

namespace {

// Counts what would reach the desktop's tray.
class CountingHost : public TrayHost {
public:
    struct Item : TrayItem {
        explicit Item(CountingHost& host) : host(host) {}
        void setContent(const TrayItemContent& content) override
        {
            if (!(content == last))
                ++host.updates;
            last = content;
        }
        CountingHost& host;
        TrayItemContent last;
    };

    bool isAvailable() const override { return true; }
    bool showsLabels() const override { return true; }
    bool exportsMenu() const override { return true; }
    std::unique_ptr<TrayItem> createItem(const TrayItemContent&, TrayItemHandlers) override
    {
        return std::make_unique<Item>(*this);
    }
    void setMenu(const TrayMenu&) override {}

    long updates = 0;
};

HubSnapshot readings(double level)
{
    HubSnapshot r;
    r.time = 1773481260 + level;
    r.cpuUser = level;
    r.cpuSystem = level / 4;
    for (int i = 0; i < 120; ++i)
        r.cpuHistory.push_back(std::fmod(level + i * 7, 100));
    r.memoryPressure = level / 2;
    r.memoryUsed = 30 + level / 2;
    r.startupVolume = LiveVolume{100, 60 - level / 10};
    r.internetReachable = true;
    r.upload = 1000 * level;
    r.download = 50000 * level;
    r.uploadHistory = r.downloadHistory = std::vector<double>(120, 1000 * level);
    r.menubarTemperature = 40 + level / 3;
    r.batteryPresent = true;
    r.batteryPercent = level;
    r.sensorsReady = true;
    return r;
}

struct Fixture {
    Fixture()
    {
        Config config = settings.config();
        config.pingHost = "127.0.0.1";
        settings.setConfig(config); // the default items: cpu, memory, disks, network, sensors, battery
        std::vector<std::unique_ptr<TrayHost>> hosts;
        auto counting = std::make_unique<CountingHost>();
        host = counting.get();
        hosts.push_back(std::move(counting));
        items = std::make_unique<StatusItemController>(hub, settings, std::move(hosts));
        items->readings = [this] { return current; };
        current = readings(10);
        items->rebuild();
    }
    QTemporaryDir dir;
    Preferences preferences{dir.path() + "/preferences.json"};
    AppSettings settings{preferences};
    Hub hub{settings, systemReaders()};
    CountingHost* host = nullptr;
    std::unique_ptr<StatusItemController> items;
    HubSnapshot current;
};

} // namespace

static void BM_TrayRefreshNothingChanged(benchmark::State& state)
{
    Fixture f;
    const long before = f.host->updates;
    for (auto _ : state)
        f.items->refresh();
    state.counters["updates"] = double(f.host->updates - before);
}
BENCHMARK(BM_TrayRefreshNothingChanged);

static void BM_TrayRefreshEverythingChanged(benchmark::State& state)
{
    Fixture f;
    const HubSnapshot a = readings(20), b = readings(73);
    bool flip = false;
    for (auto _ : state) {
        f.current = (flip = !flip) ? a : b;
        f.items->refresh();
    }
    state.counters["updates/refresh"] = benchmark::Counter(double(f.host->updates), benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_TrayRefreshEverythingChanged)->Unit(benchmark::kMicrosecond);
