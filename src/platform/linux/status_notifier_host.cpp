#include "platform/linux/status_notifier_host.h"

#include "platform/linux/dbus_menu.h"
#include "platform/linux/tray_desktop.h"

#include <QDBusConnectionInterface>
#include <QMetaObject>

#include <algorithm>

namespace pulsebar {

StatusNotifierHost::StatusNotifierHost(QObject* parent)
    : QObject(parent),
      m_watcher(watcherService, QDBusConnection::sessionBus(),
                QDBusServiceWatcher::WatchForRegistration | QDBusServiceWatcher::WatchForUnregistration)
{
    connect(&m_watcher, &QDBusServiceWatcher::serviceRegistered, this, [this] { setAvailable(true); });
    connect(&m_watcher, &QDBusServiceWatcher::serviceUnregistered, this, [this] { setAvailable(false); });
    m_showsLabels = TrayDesktop::showsLabels(TrayDesktop::currentDesktop());
    const QDBusConnection bus = QDBusConnection::sessionBus();
    m_available = bus.isConnected() && bus.interface() && bus.interface()->isServiceRegistered(watcherService);
}

void StatusNotifierHost::setAvailable(bool available)
{
    if (available == m_available)
        return;
    m_available = available;
    if (!available) {
        m_queue.clear();
        m_registering = false;
    }
    if (onAvailabilityChanged)
        onAvailabilityChanged();
}

std::unique_ptr<TrayItem> StatusNotifierHost::createItem(const TrayItemContent& content, TrayItemHandlers handlers)
{
    auto item = std::make_unique<StatusNotifierItem>(uint(++m_serial), content, std::move(handlers));
    item->menuExporter().setMenu(m_menu);
    item->menuExporter().onActivated = [this](int id) {
        if (onMenuActivated)
            onMenuActivated(id);
    };
    std::erase_if(m_items, [](const QPointer<StatusNotifierItem>& p) { return p.isNull(); });
    m_items.emplace_back(item.get());
    if (m_available) {
        m_queue.emplace_back(item.get());
        // Registered once the whole row has been created, so its order can be set at once.
        if (!m_batchScheduled) {
            m_batchScheduled = true;
            QMetaObject::invokeMethod(this, &StatusNotifierHost::registerBatch, Qt::QueuedConnection);
        }
    }
    return item;
}

void StatusNotifierHost::registerBatch()
{
    m_batchScheduled = false;
    // GNOME's extension puts each new item at the start of the row: announcing the last first keeps the
    // row in the order the items were created.
    if (TrayDesktop::addsItemsFirst(TrayDesktop::currentDesktop()) && !m_registering)
        std::reverse(m_queue.begin(), m_queue.end());
    registerNext();
}

void StatusNotifierHost::registerNext()
{
    if (m_registering)
        return;
    while (!m_queue.empty() && m_queue.front().isNull())
        m_queue.pop_front();
    if (m_queue.empty())
        return;
    QPointer<StatusNotifierItem> item = m_queue.front();
    m_queue.pop_front();
    m_registering = true;
    item->registerWithWatcher(this, [this] {
        m_registering = false;
        registerNext();
    });
}

void StatusNotifierHost::setMenu(const TrayMenu& menu)
{
    if (menu == m_menu)
        return;
    m_menu = menu;
    for (const QPointer<StatusNotifierItem>& item : m_items)
        if (item)
            item->menuExporter().setMenu(menu);
}

} // namespace pulsebar
