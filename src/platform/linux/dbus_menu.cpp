#include "platform/linux/dbus_menu.h"

#include <QDBusMetaType>
#include <QMetaObject>

namespace pulsebar {

namespace {

const TrayMenuEntry* findEntry(const TrayMenu& menu, int id)
{
    for (const TrayMenuEntry& entry : menu) {
        if (entry.id == id)
            return &entry;
        if (const TrayMenuEntry* inside = findEntry(entry.children, id))
            return inside;
    }
    return nullptr;
}

QVariantMap filtered(const QVariantMap& all, const QStringList& names)
{
    if (names.isEmpty())
        return all;
    QVariantMap out;
    for (const QString& name : names)
        if (all.contains(name))
            out.insert(name, all.value(name));
    return out;
}

QVariantMap rootProperties()
{
    return {{QStringLiteral("children-display"), QStringLiteral("submenu")}};
}

DBusMenuLayoutItem layoutOf(int id, const QVariantMap& properties, const TrayMenu& children, int depth,
                            const QStringList& names)
{
    DBusMenuLayoutItem item{id, filtered(properties, names), {}};
    if (depth == 0)
        return item;
    for (const TrayMenuEntry& child : children)
        item.children << layoutOf(child.id, DBusMenuExporter::properties(child), child.children,
                                  depth < 0 ? -1 : depth - 1, names);
    return item;
}

} // namespace

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuLayoutItem& item)
{
    argument.beginStructure();
    argument << item.id << item.properties;
    argument.beginArray(qMetaTypeId<QDBusVariant>());
    for (const DBusMenuLayoutItem& child : item.children)
        argument << QDBusVariant(QVariant::fromValue(child));
    argument.endArray();
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuLayoutItem& item)
{
    argument.beginStructure();
    argument >> item.id >> item.properties;
    argument.beginArray();
    item.children.clear();
    while (!argument.atEnd()) {
        QDBusVariant child;
        argument >> child;
        item.children << qdbus_cast<DBusMenuLayoutItem>(child.variant().value<QDBusArgument>());
    }
    argument.endArray();
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuItemProperties& item)
{
    argument.beginStructure();
    argument << item.id << item.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuItemProperties& item)
{
    argument.beginStructure();
    argument >> item.id >> item.properties;
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuItemPropertyNames& item)
{
    argument.beginStructure();
    argument << item.id << item.names;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuItemPropertyNames& item)
{
    argument.beginStructure();
    argument >> item.id >> item.names;
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuEvent& event)
{
    argument.beginStructure();
    argument << event.id << event.eventId << event.data << event.timestamp;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuEvent& event)
{
    argument.beginStructure();
    argument >> event.id >> event.eventId >> event.data >> event.timestamp;
    argument.endStructure();
    return argument;
}

DBusMenuExporter::DBusMenuExporter(QObject* parent) : QObject(parent)
{
    registerTypes();
}

void DBusMenuExporter::registerTypes()
{
    static const bool registered = [] {
        qDBusRegisterMetaType<DBusMenuLayoutItem>();
        qDBusRegisterMetaType<DBusMenuItemProperties>();
        qDBusRegisterMetaType<QList<DBusMenuItemProperties>>();
        qDBusRegisterMetaType<DBusMenuItemPropertyNames>();
        qDBusRegisterMetaType<QList<DBusMenuItemPropertyNames>>();
        qDBusRegisterMetaType<DBusMenuEvent>();
        qDBusRegisterMetaType<QList<DBusMenuEvent>>();
        qDBusRegisterMetaType<QList<int>>();
        return true;
    }();
    (void)registered;
}

QVariantMap DBusMenuExporter::properties(const TrayMenuEntry& entry)
{
    if (entry.separator)
        return {{QStringLiteral("type"), QStringLiteral("separator")}};
    QString label = entry.label;
    label.replace(QLatin1Char('_'), QStringLiteral("__")); // a single underscore marks a mnemonic
    QVariantMap out{{QStringLiteral("label"), label}, {QStringLiteral("enabled"), entry.enabled}};
    if (entry.toggle == TrayMenuEntry::Toggle::radio) {
        out.insert(QStringLiteral("toggle-type"), QStringLiteral("radio"));
        out.insert(QStringLiteral("toggle-state"), entry.checked ? 1 : 0);
    }
    if (!entry.children.empty())
        out.insert(QStringLiteral("children-display"), QStringLiteral("submenu"));
    return out;
}

DBusMenuLayoutItem DBusMenuExporter::layout(const TrayMenu& menu, int parentId, int depth, const QStringList& names)
{
    if (parentId == 0)
        return layoutOf(0, rootProperties(), menu, depth, names);
    const TrayMenuEntry* entry = findEntry(menu, parentId);
    if (!entry)
        return {parentId, {}, {}};
    return layoutOf(entry->id, properties(*entry), entry->children, depth, names);
}

void DBusMenuExporter::setMenu(const TrayMenu& menu)
{
    if (menu == m_menu)
        return;
    m_menu = menu;
    ++m_revision;
    Q_EMIT LayoutUpdated(m_revision, 0);
}

uint DBusMenuExporter::GetLayout(int parentId, int recursionDepth, const QStringList& propertyNames,
                                 DBusMenuLayoutItem& out)
{
    out = layout(m_menu, parentId, recursionDepth, propertyNames);
    return m_revision;
}

QList<DBusMenuItemProperties> DBusMenuExporter::GetGroupProperties(const QList<int>& ids,
                                                                   const QStringList& propertyNames)
{
    QList<DBusMenuItemProperties> out;
    for (int id : ids) {
        if (id == 0)
            out << DBusMenuItemProperties{0, filtered(rootProperties(), propertyNames)};
        else if (const TrayMenuEntry* entry = findEntry(m_menu, id))
            out << DBusMenuItemProperties{id, filtered(properties(*entry), propertyNames)};
    }
    return out;
}

QDBusVariant DBusMenuExporter::GetProperty(int id, const QString& name)
{
    const TrayMenuEntry* entry = findEntry(m_menu, id);
    const QVariantMap all = id == 0 ? rootProperties() : entry ? properties(*entry) : QVariantMap();
    return QDBusVariant(all.value(name));
}

bool DBusMenuExporter::handleEvent(int id, const QString& eventId)
{
    const TrayMenuEntry* entry = findEntry(m_menu, id);
    if (!entry && id != 0)
        return false;
    if (eventId != QLatin1String("clicked") || !entry || entry->separator || !entry->enabled ||
        !entry->children.empty())
        return true;
    // After the reply has gone out: the action may end the process or rebuild this menu.
    QMetaObject::invokeMethod(
        this, [this, id] {
            if (onActivated)
                onActivated(id);
        },
        Qt::QueuedConnection);
    return true;
}

void DBusMenuExporter::Event(int id, const QString& eventId, const QDBusVariant&, uint)
{
    handleEvent(id, eventId);
}

QList<int> DBusMenuExporter::EventGroup(const QList<DBusMenuEvent>& events)
{
    QList<int> errors;
    for (const DBusMenuEvent& event : events)
        if (!handleEvent(event.id, event.eventId))
            errors << event.id;
    return errors;
}

bool DBusMenuExporter::AboutToShow(int)
{
    return false; // the menu is kept current as the state changes
}

QList<int> DBusMenuExporter::AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors)
{
    for (int id : ids)
        if (id != 0 && !findEntry(m_menu, id))
            idErrors << id;
    return {};
}

} // namespace pulsebar
