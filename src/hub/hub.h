#pragma once

#include "calendar/calendar_events.h"
#include "core/app_settings.h"
#include "hub/hub_snapshot.h"
#include "hub/system_readers.h"
#include "speedtest/speed_test.h"
#include "history/history_store.h"
#include "core/keep_awake.h"
#include "devices/device_monitor.h"
#include "monitors/battery_monitor.h"
#include "monitors/cpu_monitor.h"
#include "monitors/disk_monitor.h"
#include "monitors/gpu_monitor.h"
#include "monitors/memory_monitor.h"
#include "monitors/network_monitor.h"
#include "monitors/process_monitor.h"
#include "monitors/sensor_monitor.h"
#include "sky/astronomy_monitor.h"
#include "weather/weather_service.h"

#include <QObject>
#include <QPointer>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>

namespace pulsebar {

class InsightEngine;
class RuleEngine;

// The one owner of every monitor and service. A single repeating timer on the main thread drives
// tick(), which samples everything in a fixed order, builds the snapshot every reader reads and then
// tells readers the state has changed. A tick is never re-entered: timer callbacks run one after
// another on the main event loop. The platform comes in as readers (SystemReaders): the application
// and the MCP server pass systemReaders(), tests pass fakes.
class Hub : public QObject {
    Q_OBJECT
public:
    Hub(AppSettings& settings, SystemReaders readers, QObject* parent = nullptr);
    ~Hub() override;

    AppSettings& settings() const { return m_settings; }

    // The application role: discovery, the writable history store, one tick at once, then the timer.
    void start();
    // The MCP server role: the same with a read-only history store and no rules and no recording.
    void startHeadless();

    void tick();
    // Replaces the timer with one of the configured period; the old timer never fires again.
    void reschedule();

    bool isRecording() const { return m_isRecording; }
    bool isHeadless() const { return m_isHeadless; }
    int tickCount() const { return m_tickCount; }

    // The temperature the menu bar shows: the chosen sensor, else the CPU's, else the battery's.
    std::optional<double> menubarTemperature() const;

    // Called at the end of every tick, and when the connected devices or calendar events change in between.
    std::function<void()> onTick;

    // The live state of the last tick (empty before the first); see HubSnapshot.
    const HubSnapshot& snapshot() const { return m_snapshot; }
    // Firmware and operating-system facts of this machine.
    MachineReader& machine() const { return *m_machine; }

    // The 30-day store: writable in the application role, read-only in the MCP server role, absent
    // when it could not be opened (the hub then runs without history).
    std::unique_ptr<HistoryStore> history;
    KeepAwake& keepAwake() { return m_keepAwake; }
    const KeepAwake& keepAwake() const { return m_keepAwake; }

    // Seconds since 1970; tests replace it to drive time-dependent logic deterministically.
    std::function<double()> now;

    // The monitors, in the order the tick samples them; their fields are the live state. Declared
    // after `now`, whose clock they read.
    CPUMonitor cpu;
    MemoryMonitor memory;
    ProcessMonitor processes;
    GPUMonitor gpu;
    DiskMonitor disks;

    const QTimer* timer() const { return m_timer.get(); }

    NetworkMonitor network;
    SensorMonitor sensors;
    BatteryMonitor battery;
    WeatherService weather;
    AstronomyMonitor astronomy;
    // Attached phones and tablets; its list also changes between ticks, as devices come and go.
    DeviceMonitor devices;
    // Upcoming calendar events; fetched on a worker, published between ticks.
    CalendarEvents calendar;

    // True when an enabled item shows weather or sky (combined, weather, astronomy); only then does
    // the tick touch the weather service.
    static bool usesWeather(const Config& config);
    // True when events are on and an enabled item shows them (the time item's panel, the overview's
    // next-event tile). Otherwise no calendar is read, nor a calendar service started, on the tick.
    static bool showsEvents(const Config& config);
    // Reads the calendars when events are on and their last read is due. The tick calls it while an
    // item shows events; an open panel calls it too, the overview being one click away from any panel.
    void refreshEvents(const Config& config);

    // The threshold rules and events; created on first use, which starts their 5 s of silence.
    RuleEngine& rules();
    // The insight line; current() is what the overview, the menu bar and agents show.
    InsightEngine& insights() { return *m_insights; }
    const InsightEngine& insights() const { return *m_insights; }

    // The network speed test the network panel runs and the saved results.
    SpeedTest& speedTest() { return *m_speedTest; }
    const SpeedTest& speedTest() const { return *m_speedTest; }

    // Applies the reactions to a configuration change that concern the hub.
    void configChanged(const Config& oldConfig, const Config& newConfig);

Q_SIGNALS:
    // Emitted once at the end of every tick, before onTick, and when the connected devices or the
    // calendar events change.
    void changed();

private:
    void startCommon();
    void recordHistory(double time);
    void devicesChanged();
    void changedBetweenTicks();

    AppSettings& m_settings;
    std::unique_ptr<MachineReader> m_machine;
    HubSnapshot m_snapshot;
    KeepAwake m_keepAwake;
    std::unique_ptr<QTimer> m_timer;
    std::unique_ptr<RuleEngine> m_rules;
    std::unique_ptr<InsightEngine> m_insights;
    std::unique_ptr<SpeedTest> m_speedTest;
    bool m_isRecording = false;
    bool m_isHeadless = false;
    bool m_inTick = false;
    int m_tickCount = 0;
};

} // namespace pulsebar
