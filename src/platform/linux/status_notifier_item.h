#pragma once

#include "core/tray_host.h"
#include "platform/linux/bus_connection.h"

#include <QObject>
#include <QPointer>

#include <functional>
#include <memory>

namespace pulsebar {

class DBusMenuExporter;

// One tray item as a StatusNotifierItem, on a bus connection of its own so that every item has its own
// /StatusNotifierItem and /MenuBar objects, known to the tray by the connection's unique name. The
// connection is served on this thread's event loop. Signals go out only for what changed.
class StatusNotifierItem : public QObject, public TrayItem {
public:
    static inline const QString itemPath = QStringLiteral("/StatusNotifierItem");
    static inline const QString menuPath = QStringLiteral("/MenuBar");

    StatusNotifierItem(uint orderingIndex, const TrayItemContent& content, TrayItemHandlers handlers);
    ~StatusNotifierItem() override;

    bool isOnBus() const { return m_onBus; }
    DBusMenuExporter& menuExporter() { return *m_menu; }

    void setContent(const TrayItemContent& content) override;
    // Announces the item to the StatusNotifierWatcher, from the item's own connection. `done` is called
    // on `context`'s thread once the watcher has answered, failed to, or the item went away first.
    void registerWithWatcher(QObject* context, std::function<void()> done);

private:
    BusInterface itemInterface();
    void emitSignal(const char* name, const std::function<void(MessageWriter&)>& arguments = {});
    // Runs a person's action after the reply has gone out: it may open a window or remove this item.
    void later(const std::function<void(QPoint)>& handler, QPoint at);

    uint m_orderingIndex;
    TrayItemContent m_content;
    TrayItemHandlers m_handlers;
    std::unique_ptr<BusConnection> m_bus;
    std::unique_ptr<DBusMenuExporter> m_menu;
    bool m_onBus = false;
    QPointer<QObject> m_registrationContext;
    std::function<void()> m_registrationDone;
};

} // namespace pulsebar
