#include "platform/linux/dbus_menu.h"

#include <QMetaObject>

namespace pulsebar {

namespace {

constexpr const char* menuInterfaceName = "com.canonical.dbusmenu";

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

void writeLayout(MessageWriter& writer, const DBusMenuLayoutItem& item)
{
    writer.structure([&] {
        writer << item.id;
        writer.dictionary(item.properties);
        writer.array("v", [&] {
            for (const DBusMenuLayoutItem& child : item.children)
                writer.variant("(ia{sv}av)", [&] { writeLayout(writer, child); });
        });
    });
}

} // namespace

DBusMenuExporter::DBusMenuExporter(BusConnection* bus, const QString& path) : m_bus(bus), m_path(path)
{
    m_exported = m_bus && m_bus->exportObject(path, menuInterface());
}

BusInterface DBusMenuExporter::menuInterface()
{
    const auto propertiesOf = [this](int id) {
        const TrayMenuEntry* entry = findEntry(m_menu, id);
        return id == 0 ? rootProperties() : entry ? properties(*entry) : QVariantMap();
    };
    const auto event = [this](MessageReader& r) {
        const int id = r.nextInt();
        return handleEvent(id, r.nextString()) ? -1 : id;
    };
    return {
        menuInterfaceName,
        {
            {"Version", "u", [](MessageWriter& w) { w << 3u; }},
            {"TextDirection", "s", [](MessageWriter& w) { w << QStringLiteral("ltr"); }},
            {"Status", "s", [](MessageWriter& w) { w << QStringLiteral("normal"); }},
            {"IconThemePath", "as", [](MessageWriter& w) { w << QStringList(); }},
        },
        {
            {"GetLayout", "iias", "u(ia{sv}av)",
             [this](MessageReader& r, MessageWriter& w) {
                 const int parentId = r.nextInt();
                 const int depth = r.nextInt();
                 w << m_revision;
                 writeLayout(w, layout(m_menu, parentId, depth, r.nextStrings()));
             }},
            {"GetGroupProperties", "aias", "a(ia{sv})",
             [this, propertiesOf](MessageReader& r, MessageWriter& w) {
                 const QList<int> ids = r.nextInts();
                 const QStringList names = r.nextStrings();
                 w.array("(ia{sv})", [&] {
                     for (int id : ids)
                         if (id == 0 || findEntry(m_menu, id))
                             w.structure([&] {
                                 w << id;
                                 w.dictionary(filtered(propertiesOf(id), names));
                             });
                 });
             }},
            {"GetProperty", "is", "v",
             [propertiesOf](MessageReader& r, MessageWriter& w) {
                 const int id = r.nextInt();
                 w.variant(propertiesOf(id).value(r.nextString()));
             }},
            {"Event", "isvu", "", [event](MessageReader& r, MessageWriter&) { event(r); }},
            {"EventGroup", "a(isvu)", "ai",
             [event](MessageReader& r, MessageWriter& w) {
                 QList<int> errors;
                 r.eachElement([&](MessageReader& e) {
                     if (const int failed = event(e); failed >= 0)
                         errors << failed;
                 });
                 w << errors;
             }},
            // The menu is kept current as the state changes: nothing to update before it opens.
            {"AboutToShow", "i", "b", [](MessageReader&, MessageWriter& w) { w << false; }},
            {"AboutToShowGroup", "ai", "aiai",
             [this](MessageReader& r, MessageWriter& w) {
                 QList<int> errors;
                 for (int id : r.nextInts())
                     if (id != 0 && !findEntry(m_menu, id))
                         errors << id;
                 w << QList<int>() << errors;
             }},
        },
        {{"ItemsPropertiesUpdated", "a(ia{sv})a(ias)"}, {"LayoutUpdated", "ui"}, {"ItemActivationRequested", "iu"}},
    };
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
    if (m_exported)
        m_bus->emitSignal(m_path, menuInterfaceName, "LayoutUpdated", [&](MessageWriter& w) { w << m_revision << 0; });
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

} // namespace pulsebar
