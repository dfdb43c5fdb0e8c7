#pragma once

#include "devices/connected_device.h"
#include "devices/mobile_device_api.h"

#include <QObject>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <vector>

namespace pulsebar {

class SerialQueue;

// The iPhones, iPads and iPod touches attached by USB or reachable over Wi-Fi. Arrivals and departures
// come from the library's subscription and change the list at once; every read of a device runs on the
// monitor's own worker thread and its result is published on the main thread, the only thread on which
// the list changes. Without the library (no API) the list simply stays empty.
class DeviceMonitor : public QObject {
    Q_OBJECT
public:
    // Devices attached for this long are read again by refresh().
    static constexpr double refreshInterval = 60; // seconds

    DeviceMonitor(std::shared_ptr<const MobileDeviceAPI> api, std::function<double()> now);
    ~DeviceMonitor() override;

    // The library was found with every required entry point.
    bool isAvailable() const { return m_api != nullptr; }
    bool isWatching() const { return m_subscription != 0; }
    // Subscribes to arrivals and departures, once; later calls do nothing.
    void startWatching();

    // The devices known, sorted by name (then by identifier).
    const std::vector<ConnectedDevice>& devices() const { return m_devices; }

    // Whether the hub's tick should call refresh(): devices are attached and the last refresh is a
    // refresh interval old.
    bool refreshDue(double now) const;
    // Reads every attached device again, off the main thread.
    void refresh();

    // One notification of the library, on the main thread.
    void handle(const MobileDeviceAPI::Event& event);

    // Takes the arrivals already announced, then waits until every read has finished and its result
    // is published. For one-shot callers (an agent's question) and tests; never called from a tick.
    void waitForReads();

Q_SIGNALS:
    // The list changed: a device arrived, left or was read.
    void changed();

private:
    void read(const QString& id);
    void publish(const QString& id, Connection connection, const std::optional<ConnectedDevice>& reading);
    void rebuildList();
    // USB when the device is attached by cable, else Wi-Fi.
    std::optional<Connection> bestConnection(const QString& id) const;

    std::shared_ptr<const MobileDeviceAPI> m_api;
    std::function<double()> m_now;
    int m_subscription = 0;
    double m_lastRefresh = 0;
    std::map<QString, std::set<Connection>> m_attached; // by device id: the ways it is reachable
    std::map<QString, ConnectedDevice> m_records;
    std::vector<ConnectedDevice> m_devices;
    int m_pendingReads = 0;
    std::unique_ptr<SerialQueue> m_queue; // created on the first read
};

} // namespace pulsebar
