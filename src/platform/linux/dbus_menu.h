#pragma once

#include "core/tray_host.h"
#include "platform/linux/bus_connection.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>

namespace pulsebar {

// One entry of the layout the com.canonical.dbusmenu protocol sends, (ia{sv}av) on the wire, the
// children as variants of the same structure.
struct DBusMenuLayoutItem {
    int id = 0;
    QVariantMap properties;
    QList<DBusMenuLayoutItem> children;
};

// Serves one TrayMenu over com.canonical.dbusmenu, so the tray draws the menu itself. Entry ids are the
// menu's own ids; 0 is the root. A new menu that differs from the shown one bumps the layout revision
// and tells the tray; an identical one costs nothing.
class DBusMenuExporter : public QObject {
public:
    // Exports the menu at `path` of `bus`; without a bus the menu is only kept.
    DBusMenuExporter(BusConnection* bus, const QString& path);

    bool isExported() const { return m_exported; }

    // The root and its entries as the layout the protocol sends (what GetLayout(0, -1, []) returns).
    static DBusMenuLayoutItem layout(const TrayMenu& menu, int parentId, int depth, const QStringList& names);
    static QVariantMap properties(const TrayMenuEntry& entry);

    void setMenu(const TrayMenu& menu);
    uint revision() const { return m_revision; }

    // A click on an enabled entry without children, called after the reply has gone out.
    std::function<void(int id)> onActivated;

private:
    BusInterface menuInterface();
    // False for an id the menu does not have.
    bool handleEvent(int id, const QString& eventId);

    BusConnection* m_bus;
    QString m_path;
    bool m_exported = false;
    TrayMenu m_menu;
    uint m_revision = 1;
};

} // namespace pulsebar
