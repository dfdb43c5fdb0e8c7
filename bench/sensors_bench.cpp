#include "monitors/battery_monitor.h"
#include "monitors/sensor_monitor.h"
#include "monitors/smc_sensor_source.h"
#include "platform/linux/hwmon_sensor_source.h"
#include "platform/linux/power_supply_reader.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <map>

using namespace pulsebar;

namespace {

std::string fixtureRoot(const char* tree)
{
    return std::string(PULSEBAR_FIXTURES) + "/sensors/" + tree;
}

// An in-memory controller of 40 temperature keys and two fans: the cost of the SMC's own logic
// (lock, key cache, decoding) without the driver behind it.
class TableTransport : public SMCTransport {
public:
    TableTransport()
    {
        for (int i = 0; i < 40; ++i)
            add("Tp" + std::string(1, char('0' + i / 10)) + char('0' + i % 10), "sp78", {uint8_t(40 + i), 0x80});
        add("FNum", "ui8 ", {2});
        for (const char* fan : {"F0Ac", "F0Mn", "F0Mx", "F1Ac", "F1Mn", "F1Mx"})
            add(fan, "fpe2", {0x1F, 0x40});
        std::sort(m_keys.begin(), m_keys.end());
    }
    bool isOpen() const override { return true; }
    std::optional<uint32_t> keyCount() override { return uint32_t(m_keys.size()); }
    std::optional<uint32_t> keyAt(uint32_t i) override
    {
        return i < m_keys.size() ? std::optional<uint32_t>(m_keys[i]) : std::nullopt;
    }
    std::optional<SMCKeyInfo> keyInfo(uint32_t code) override
    {
        const auto& e = m_values.at(code);
        return SMCKeyInfo{uint32_t(e.second.size()), e.first};
    }
    std::optional<std::vector<uint8_t>> readKey(uint32_t code, uint32_t) override { return m_values.at(code).second; }

private:
    void add(const std::string& key, const char* type, std::vector<uint8_t> bytes)
    {
        const uint32_t code = *SMCKey::pack(key);
        m_keys.push_back(code);
        m_values[code] = {*SMCKey::pack(type), std::move(bytes)};
    }
    std::vector<uint32_t> m_keys;
    std::map<uint32_t, std::pair<uint32_t, std::vector<uint8_t>>> m_values;
};

void sampleSensors(benchmark::State& state, std::shared_ptr<SensorSource> source)
{
    SensorMonitor monitor(std::move(source));
    monitor.discoverNow();
    for (auto _ : state)
        monitor.sample();
    state.counters["sensors"] = double(monitor.sensors.size());
    state.counters["fans"] = double(monitor.fans.size());
}

void sampleBattery(benchmark::State& state, const std::string& root)
{
    BatteryMonitor monitor(std::make_unique<PowerSupplyReader>(RootedFileReader(root), false));
    for (auto _ : state)
        monitor.sample();
    state.counters["present"] = monitor.present ? 1 : 0;
}

} // namespace

static void BM_SensorDiscoveryHwmonFixture(benchmark::State& state)
{
    for (auto _ : state) {
        HwmonSensorSource source(RootedFileReader(fixtureRoot("hwmon-desktop")));
        benchmark::DoNotOptimize(SensorMonitor::catalogue(source.discover()));
    }
}
BENCHMARK(BM_SensorDiscoveryHwmonFixture);

static void BM_SensorSampleHwmonFixture(benchmark::State& state)
{
    sampleSensors(state, std::make_shared<HwmonSensorSource>(RootedFileReader(fixtureRoot("hwmon-desktop"))));
}
BENCHMARK(BM_SensorSampleHwmonFixture);

static void BM_SensorSampleSMCTable(benchmark::State& state)
{
    SMC smc(std::make_unique<TableTransport>());
    sampleSensors(state, std::make_shared<SMCSensorSource>(smc));
}
BENCHMARK(BM_SensorSampleSMCTable);

static void BM_SensorSampleThisMachine(benchmark::State& state)
{
    sampleSensors(state, std::make_shared<HwmonSensorSource>(RootedFileReader("/")));
}
BENCHMARK(BM_SensorSampleThisMachine);

static void BM_BatterySampleLaptopFixture(benchmark::State& state)
{
    sampleBattery(state, fixtureRoot("laptop-charging"));
}
BENCHMARK(BM_BatterySampleLaptopFixture);

static void BM_BatterySampleThisMachine(benchmark::State& state)
{
    sampleBattery(state, "/");
}
BENCHMARK(BM_BatterySampleThisMachine);
