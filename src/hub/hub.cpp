#include "hub/hub.h"

#include "alerts/rule_engine.h"
#include "core/clock.h"
#include "core/paths.h"
#include "insight/insight_engine.h"


#include <algorithm>
#include <cmath>

namespace pulsebar {

Hub::Hub(AppSettings& settings, SystemReaders readers, QObject* parent)
    : QObject(parent), now(systemClock()),
      cpu(std::move(readers.cpu), [this] { return now(); }),
      memory(std::move(readers.memory), [this] { return now(); }),
      processes(std::move(readers.processes), [this] { return now(); }),
      gpu(std::move(readers.gpu)),
      disks(std::move(readers.disks), [this] { return now(); }),
      network(std::move(readers.network)), sensors(std::move(readers.sensors)),
      battery(std::move(readers.battery)), astronomy([this] { return now(); }),
      devices(std::move(readers.devices), [this] { return now(); }),
      calendar(settings.preferences(), std::move(readers.calendars), Paths::cacheDir() + "/calendars"),
      m_settings(settings), m_machine(std::move(readers.machine)),
      m_keepAwake(std::move(readers.powerAssertions)), m_insights(std::make_unique<InsightEngine>(*this)),
      m_speedTest(std::make_unique<SpeedTest>(settings.preferences()))
{
    network.now = [this] { return now(); };
    weather.now = [this] { return now(); };
    calendar.now = [this] { return now(); };
    connect(&calendar, &CalendarEvents::changed, this, &Hub::changedBetweenTicks);
    connect(&devices, &DeviceMonitor::changed, this, &Hub::devicesChanged);
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
    if (m_settings.config().showDevices)
        devices.startWatching();
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
    const Config& config = m_settings.config();
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
    // Arrivals and departures come from the subscription; attached devices are read again now and then.
    if (config.showDevices && devices.refreshDue(time))
        devices.refresh();
    if (!m_isHeadless && showsEvents(config))
        refreshEvents(config);
    if (usesWeather(config)) {
        weather.refreshIfNeeded(config.weatherLocation, false);
        astronomy.update(weather.location());
    }
    m_snapshot = HubSnapshot::of(*this);
    if (!m_isHeadless)
        rules().evaluate(m_snapshot, config, time);
    m_insights->evaluate(m_snapshot, config, time);

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
        history->record(m_snapshot.historyValues(), time);
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

void Hub::devicesChanged()
{
    // Outside a tick the rest of the snapshot stays as the last tick left it.
    m_snapshot.connectedDevices = devices.devices();
    changedBetweenTicks();
}

void Hub::changedBetweenTicks()
{
    if (m_inTick)
        return; // the tick's own snapshot and signal follow
    Q_EMIT changed();
    if (onTick)
        onTick();
}

bool Hub::usesWeather(const Config& config)
{
    return std::any_of(config.modules.begin(), config.modules.end(), [](const ModuleConfig& m) {
        return m.enabled
               && (m.kind == ModuleKind::combined || m.kind == ModuleKind::weather || m.kind == ModuleKind::astronomy);
    });
}

bool Hub::showsEvents(const Config& config)
{
    return config.showEvents && std::any_of(config.modules.begin(), config.modules.end(), [](const ModuleConfig& m) {
               return m.enabled && (m.kind == ModuleKind::time || m.kind == ModuleKind::combined);
           });
}

void Hub::refreshEvents(const Config& config)
{
    if (config.showEvents)
        calendar.refreshIfNeeded(config.eventDays, config.hiddenCalendars);
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
    // Turning devices off keeps watching: the list stays current for when they are shown again.
    if (!oldConfig.showDevices && newConfig.showDevices && m_timer)
        devices.startWatching();
}

} // namespace pulsebar
