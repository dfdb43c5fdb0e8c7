#include "devices/device_monitor.h"

#include "core/serial_queue.h"

#include <QCoreApplication>
#include <QMetaObject>

#include <algorithm>

namespace pulsebar {

DeviceMonitor::DeviceMonitor(std::shared_ptr<const MobileDeviceAPI> api, std::function<double()> now)
    : m_api(std::move(api)), m_now(std::move(now))
{
    if (m_api && !m_api->hasRequired())
        m_api.reset();
}

DeviceMonitor::~DeviceMonitor()
{
    // The library's thread may be inside the handler; unsubscribing waits for it. Reads still queued
    // then run to their end, and their results, posted to this object, are dropped with it.
    if (m_subscription)
        m_api->unsubscribe(m_subscription);
    m_queue.reset();
}

void DeviceMonitor::startWatching()
{
    if (!m_api || m_subscription)
        return;
    m_subscription = m_api->subscribe([this](const MobileDeviceAPI::Event& event) {
        QMetaObject::invokeMethod(this, [this, event] { handle(event); }, Qt::QueuedConnection);
    });
}

bool DeviceMonitor::refreshDue(double now) const
{
    return !m_attached.empty() && now - m_lastRefresh >= refreshInterval;
}

void DeviceMonitor::refresh()
{
    m_lastRefresh = m_now();
    for (const auto& [id, connections] : m_attached)
        read(id);
}

void DeviceMonitor::handle(const MobileDeviceAPI::Event& event)
{
    using Kind = MobileDeviceAPI::EventKind;
    switch (event.kind) {
    case Kind::arrived:
        m_attached[event.id].insert(event.connection);
        m_lastRefresh = m_now(); // the arrival's read counts as the device's refresh
        read(event.id);
        return;
    case Kind::paired:
        if (m_attached.count(event.id))
            read(event.id);
        return;
    case Kind::departed: {
        const auto it = m_attached.find(event.id);
        if (it == m_attached.end())
            return;
        it->second.erase(event.connection);
        if (it->second.empty()) {
            m_attached.erase(it);
            m_records.erase(event.id);
        } else if (const auto record = m_records.find(event.id); record != m_records.end()) {
            record->second.connection = *bestConnection(event.id);
        }
        rebuildList();
        return;
    }
    }
}

std::optional<Connection> DeviceMonitor::bestConnection(const QString& id) const
{
    const auto it = m_attached.find(id);
    if (it == m_attached.end() || it->second.empty())
        return std::nullopt;
    return it->second.count(Connection::usb) ? Connection::usb : Connection::wifi;
}

void DeviceMonitor::read(const QString& id)
{
    const std::optional<Connection> connection = bestConnection(id);
    if (!m_api || !connection)
        return;
    if (!m_queue)
        m_queue = std::make_unique<SerialQueue>("pulsebar-device");
    ++m_pendingReads;
    m_queue->async([this, api = m_api, id, connection = *connection] {
        const std::optional<ConnectedDevice> reading = readDevice(*api, id, connection);
        QMetaObject::invokeMethod(this, [this, id, connection, reading] { publish(id, connection, reading); },
                                  Qt::QueuedConnection);
    });
}

void DeviceMonitor::publish(const QString& id, Connection connection, const std::optional<ConnectedDevice>& reading)
{
    --m_pendingReads;
    if (!m_attached.count(id)) // it left while being read
        return;
    if (reading) {
        m_records[id] = *reading;
        m_records[id].connection = *bestConnection(id);
    } else if (!m_records.count(id)) {
        // Attached but not answering: listed all the same, as a device that cannot be read yet.
        ConnectedDevice unread;
        unread.id = id;
        unread.connection = connection;
        m_records[id] = unread;
    } // else: a failed read keeps what was read before
    rebuildList();
}

void DeviceMonitor::rebuildList()
{
    std::vector<ConnectedDevice> list;
    list.reserve(m_records.size());
    for (const auto& [id, record] : m_records)
        list.push_back(record);
    std::stable_sort(list.begin(), list.end(), [](const ConnectedDevice& a, const ConnectedDevice& b) {
        const int byName = QString::compare(a.displayName(), b.displayName(), Qt::CaseInsensitive);
        return byName != 0 ? byName < 0 : a.id < b.id;
    });
    if (list == m_devices)
        return;
    m_devices = std::move(list);
    Q_EMIT changed();
}

void DeviceMonitor::waitForReads()
{
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
    while (m_pendingReads > 0) {
        m_queue->sync([] {});
        QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
    }
}

} // namespace pulsebar
