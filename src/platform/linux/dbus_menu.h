#pragma once

#include "core/tray_host.h"

#include <QDBusArgument>
#include <QDBusVariant>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include <functional>

namespace pulsebar {

// The wire types of the com.canonical.dbusmenu protocol.
struct DBusMenuLayoutItem { // (ia{sv}av), the children as variants of the same structure
    int id = 0;
    QVariantMap properties;
    QList<DBusMenuLayoutItem> children;
};
struct DBusMenuItemProperties { // (ia{sv})
    int id = 0;
    QVariantMap properties;
};
struct DBusMenuItemPropertyNames { // (ias)
    int id = 0;
    QStringList names;
};
struct DBusMenuEvent { // (isvu)
    int id = 0;
    QString eventId;
    QDBusVariant data;
    uint timestamp = 0;
};

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuLayoutItem& item);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuLayoutItem& item);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuItemProperties& item);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuItemProperties& item);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuItemPropertyNames& item);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuItemPropertyNames& item);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuEvent& event);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuEvent& event);

// Serves one TrayMenu over com.canonical.dbusmenu, so the tray draws the menu itself. Entry ids are the
// menu's own ids; 0 is the root. A new menu that differs from the shown one bumps the layout revision
// and tells the tray; an identical one costs nothing.
class DBusMenuExporter : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.canonical.dbusmenu")
    Q_PROPERTY(uint Version READ version)
    Q_PROPERTY(QString TextDirection READ textDirection)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(QStringList IconThemePath READ iconThemePath)
public:
    explicit DBusMenuExporter(QObject* parent = nullptr);

    static void registerTypes();
    // The root and its entries as the layout the protocol sends (what GetLayout(0, -1, []) returns).
    static DBusMenuLayoutItem layout(const TrayMenu& menu, int parentId, int depth, const QStringList& names);
    static QVariantMap properties(const TrayMenuEntry& entry);

    void setMenu(const TrayMenu& menu);
    uint revision() const { return m_revision; }

    // A click on an enabled entry without children.
    std::function<void(int id)> onActivated;

    uint version() const { return 3; }
    QString textDirection() const { return QStringLiteral("ltr"); }
    QString status() const { return QStringLiteral("normal"); }
    QStringList iconThemePath() const { return {}; }

    // Types are spelled out with their namespace: QtDBus finds a slot's types by their names.
public Q_SLOTS:
    uint GetLayout(int parentId, int recursionDepth, const QStringList& propertyNames, pulsebar::DBusMenuLayoutItem& layout);
    QList<pulsebar::DBusMenuItemProperties> GetGroupProperties(const QList<int>& ids, const QStringList& propertyNames);
    QDBusVariant GetProperty(int id, const QString& name);
    void Event(int id, const QString& eventId, const QDBusVariant& data, uint timestamp);
    QList<int> EventGroup(const QList<pulsebar::DBusMenuEvent>& events);
    bool AboutToShow(int id);
    QList<int> AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors);

Q_SIGNALS:
    void ItemsPropertiesUpdated(const QList<pulsebar::DBusMenuItemProperties>& updated,
                                const QList<pulsebar::DBusMenuItemPropertyNames>& removed);
    void LayoutUpdated(uint revision, int parent);
    void ItemActivationRequested(int id, uint timestamp);

private:
    bool handleEvent(int id, const QString& eventId);

    TrayMenu m_menu;
    uint m_revision = 1;
};

} // namespace pulsebar

Q_DECLARE_METATYPE(pulsebar::DBusMenuLayoutItem)
Q_DECLARE_METATYPE(pulsebar::DBusMenuItemProperties)
Q_DECLARE_METATYPE(pulsebar::DBusMenuItemPropertyNames)
Q_DECLARE_METATYPE(pulsebar::DBusMenuEvent)
