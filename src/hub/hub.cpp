#include "hub/hub.h"

#include "alerts/rule_engine.h"
#include "core/clock.h"
#include "insight/insight_engine.h"
#include "platform/linux/hwmon_sensor_source.h"
#include "platform/linux/linux_cpu_reader.h"
#include "platform/linux/linux_disk_reader.h"
#include "platform/linux/linux_gpu_reader.h"
#include "platform/linux/linux_memory_reader.h"
#include "platform/linux/linux_process_reader.h"
#include "platform/linux/power_supply_reader.h"
#include "platform/linux/logind_power_assertions.h"


#include <algorithm>
#include <cmath>

namespace pulsebar {

Hub::Hub(AppSettings& settings, QObject* parent)
    : QObject(parent), now(systemClock()),
      cpu(std::make_unique<LinuxCPUReader>(RootedFileReader::fromEnvironment()), [this] { return now(); }),
      memory(std::make_unique<LinuxMemoryReader>(RootedFileReader::fromEnvironment()), [this] { return now(); }),
      processes(std::make_unique<LinuxProcessReader>(RootedFileReader::fromEnvironment()), [this] { return now(); }),
      gpu(std::make_unique<LinuxGPUReader>(RootedFileReader::fromEnvironment())),
      disks(std::make_unique<LinuxDiskReader>(RootedFileReader::fromEnvironment()), [this] { return now(); }),
      sensors(systemSensorSource()), battery(systemBatteryReader()), astronomy([this] { return now(); }),
      m_settings(settings),
      m_keepAwake(std::make_unique<LogindPowerAssertions>()), m_insights(std::make_unique<InsightEngine>(*this))
{
    network.now = [this] { return now(); };
    weather.now = [this] { return now(); };
}

Hub::~Hub() = default;

void Hub::start()
{
    history = HistoryStore::openDefault(HistoryStore::Access::writable);
    m_isRecording = history != nullptr;
    startCommon();
}

void Hub::startHeadless()
{
    m_isHeadless = true;
    history = HistoryStore::openDefault(HistoryStore::Access::readOnly);
    startCommon();
}

void Hub::startCommon()
{
    sensors.start();
    tick();
    reschedule();
}

void Hub::reschedule()
{
    // Deleting the old timer also drops any timeout it has already queued.
    m_timer.reset();
    auto timer = std::make_unique<QTimer>();
    timer->setTimerType(Qt::CoarseTimer); // lets the system coalesce wake-ups
    timer->setInterval(m_settings.config().samplingPeriodMs());
    connect(timer.get(), &QTimer::timeout, this, &Hub::tick);
    timer->start();
    m_timer = std::move(timer);
}

void Hub::tick()
{
    if (m_inTick)
        return;
    m_inTick = true;
    const Config config = m_settings.config();
    const double time = now();

    cpu.sample();
    memory.sample();
    processes.sample();
    gpu.sample();

    disks.sampleActivity();
    if (disks.volumeScanDue(time))
        disks.scanVolumes(config.showNetworkDisks, config.showRemovableDisks);
    network.pingHost = config.pingHost;
    network.sample();
    sensors.sample();
    battery.sample();
    // Connected devices and calendar events are polled here once those services exist.
    if (usesWeather(config)) {
        weather.refreshIfNeeded(config.weatherLocation, false);
        astronomy.update(weather.location());
    }
    if (!m_isHeadless)
        rules().evaluate(time);
    m_insights->evaluate(time);

    if (m_isRecording)
        recordHistory(time);

    ++m_tickCount;
    m_inTick = false;
    Q_EMIT changed();
    if (onTick)
        onTick();
}

RuleEngine& Hub::rules()
{
    if (!m_rules)
        m_rules = std::make_unique<RuleEngine>(*this, now());
    return *m_rules;
}

void Hub::recordHistory(double time)
{
    if (history)
        history->record(historyValues(), time);
}

HistoryValues Hub::historyValues() const
{
    HistoryValues values;
    values[HistoryMetric::cpuUser] = cpu.user;
    values[HistoryMetric::cpuSystem] = cpu.system;
    if (!gpu.gpus.empty())
        values[HistoryMetric::gpu] = gpu.utilization();
    values[HistoryMetric::memoryPressure] = memory.pressure;
    values[HistoryMetric::memoryUsed] = memory.usedPercent();
    values[HistoryMetric::diskRead] = disks.readRate;
    values[HistoryMetric::diskWrite] = disks.writeRate;
    values[HistoryMetric::download] = network.download;
    values[HistoryMetric::upload] = network.upload;
    if (const std::optional<double> temperature = menubarTemperature())
        values[HistoryMetric::temperature] = *temperature;
    if (const auto fastest = sensors.fastestFanRpm())
        values[HistoryMetric::fan] = *fastest;
    if (battery.present)
        values[HistoryMetric::battery] = battery.percent;
    // Total system power when the machine reports it; otherwise what the battery delivers or takes.
    if (const std::optional<Sensor> systemPower = sensors.sensor("PSTR"))
        values[HistoryMetric::power] = systemPower->value;
    else if (battery.voltage && battery.amperage)
        values[HistoryMetric::power] = std::abs(*battery.voltage * *battery.amperage);
    return values;
}

std::optional<double> Hub::menubarTemperature() const
{
    if (const auto& key = m_settings.config().menubarSensorKey)
        if (const auto chosen = sensors.sensor(*key))
            return chosen->value;
    if (const auto cpu = sensors.cpuTemperature())
        return cpu;
    return battery.temperature;
}

bool Hub::usesWeather(const Config& config)
{
    return std::any_of(config.modules.begin(), config.modules.end(), [](const ModuleConfig& m) {
        return m.enabled
               && (m.kind == ModuleKind::combined || m.kind == ModuleKind::weather || m.kind == ModuleKind::astronomy);
    });
}

void Hub::configChanged(const Config& oldConfig, const Config& newConfig)
{
    if (oldConfig.weatherLocation != newConfig.weatherLocation) {
        weather.refreshIfNeeded(newConfig.weatherLocation, true);
        astronomy.update(weather.location());
    }
    if (oldConfig.updateInterval != newConfig.updateInterval && m_timer)
        reschedule();
    if (oldConfig.showNetworkDisks != newConfig.showNetworkDisks
        || oldConfig.showRemovableDisks != newConfig.showRemovableDisks)
        disks.scanVolumes(newConfig.showNetworkDisks, newConfig.showRemovableDisks);
}

} // namespace pulsebar
