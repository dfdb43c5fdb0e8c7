#include "platform/linux/eds_calendars.h"

#include "calendar/calendar_files.h"

#include <dlfcn.h>

#include <QFileInfo>
#include <QRegularExpression>
#include <QTimeZone>

#include <map>

namespace pulsebar {

namespace {

// The few GLib and Evolution Data Server declarations used, after EDS 3.46 (libecal-2.0,
// libedataserver-1.2) and libical-glib 3.
using gboolean = int;
using gpointer = void*;
struct GError {
    quint32 domain;
    int code;
    char* message;
};
struct GList {
    gpointer data;
    GList* next;
    GList* prev;
};
struct GSList {
    gpointer data;
    GSList* next;
};
using ESourceRegistry = void;
using ESource = void;
using EClient = void;
using ECalComponent = void;
using ICalTimezone = void;
using ICalComponent = void;
constexpr int eventsSourceType = 0; // E_CAL_CLIENT_SOURCE_TYPE_EVENTS

// The connection does not wait for a remote calendar (an online account) to come online: until it has,
// it answers from its offline copy. (Where the network monitor reports no network, a wait always runs
// to its end, even for a local calendar; 0 would wait for ever, all bits set not at all.)
constexpr unsigned connectWaitSeconds = unsigned(-1);

struct Library {
    void (*objectUnref)(gpointer) = nullptr;
    void (*free)(gpointer) = nullptr;
    void (*errorFree)(GError*) = nullptr;
    void (*listFree)(GList*) = nullptr;
    void (*slistFree)(GSList*) = nullptr;

    ESourceRegistry* (*registryNew)(void*, GError**) = nullptr;
    GList* (*listEnabled)(ESourceRegistry*, const char*) = nullptr;
    GList* (*listSources)(ESourceRegistry*, const char*) = nullptr;
    ESource* (*refSource)(ESourceRegistry*, const char*) = nullptr;
    const char* (*sourceUid)(ESource*) = nullptr;
    const char* (*sourceParent)(ESource*) = nullptr;
    char* (*sourceDupDisplayName)(ESource*) = nullptr;
    gboolean (*hasExtension)(ESource*, const char*) = nullptr;
    gpointer (*extension)(ESource*, const char*) = nullptr;
    char* (*dupColor)(gpointer) = nullptr;
    char* (*dupMailAddress)(gpointer) = nullptr;
    char* (*dupCollectionIdentity)(gpointer) = nullptr;
    gboolean (*backendProperty)(EClient*, const char*, char**, void*, GError**) = nullptr;

    EClient* (*connect)(ESource*, int, unsigned, void*, GError**) = nullptr;
    gboolean (*objectList)(EClient*, const char*, GSList**, void*, GError**) = nullptr;
    char* (*componentText)(ECalComponent*) = nullptr;
    gboolean (*timezone)(EClient*, const char*, ICalTimezone**, void*, GError**) = nullptr;

    ICalComponent* (*zoneComponent)(ICalTimezone*) = nullptr;  // libical-glib, optional
    char* (*componentAsText)(ICalComponent*) = nullptr;        // libical-glib, optional

    bool complete() const
    {
        return objectUnref && free && errorFree && listFree && slistFree && registryNew && listEnabled &&
               listSources && refSource && sourceUid && sourceParent && sourceDupDisplayName && hasExtension &&
               extension && dupColor && connect && objectList && componentText;
    }

    QString take(char* text) const
    {
        if (!text)
            return {};
        QString value = QString::fromUtf8(text);
        free(text);
        return value;
    }

    void clear(GError*& error) const
    {
        if (error)
            errorFree(error);
        error = nullptr;
    }
};

template <typename F>
void bind(void* handle, F& function, const char* name)
{
    function = reinterpret_cast<F>(::dlsym(handle, name));
}

std::shared_ptr<const Library> openLibrary()
{
    void* ecal = ::dlopen("libecal-2.0.so.2", RTLD_NOW | RTLD_LOCAL);
    if (!ecal)
        return nullptr;
    // libecal brings libedataserver, libical-glib, GObject and GLib with it; dlsym on its handle finds
    // their symbols too. The libraries stay loaded: the registry keeps a thread of its own.
    auto lib = std::make_shared<Library>();
    bind(ecal, lib->objectUnref, "g_object_unref");
    bind(ecal, lib->free, "g_free");
    bind(ecal, lib->errorFree, "g_error_free");
    bind(ecal, lib->listFree, "g_list_free");
    bind(ecal, lib->slistFree, "g_slist_free");
    bind(ecal, lib->registryNew, "e_source_registry_new_sync");
    bind(ecal, lib->listEnabled, "e_source_registry_list_enabled");
    bind(ecal, lib->listSources, "e_source_registry_list_sources");
    bind(ecal, lib->refSource, "e_source_registry_ref_source");
    bind(ecal, lib->sourceUid, "e_source_get_uid");
    bind(ecal, lib->sourceParent, "e_source_get_parent");
    bind(ecal, lib->sourceDupDisplayName, "e_source_dup_display_name");
    bind(ecal, lib->hasExtension, "e_source_has_extension");
    bind(ecal, lib->extension, "e_source_get_extension");
    bind(ecal, lib->dupColor, "e_source_selectable_dup_color");
    bind(ecal, lib->dupMailAddress, "e_source_mail_identity_dup_address");
    bind(ecal, lib->dupCollectionIdentity, "e_source_collection_dup_identity");
    bind(ecal, lib->backendProperty, "e_client_get_backend_property_sync");
    bind(ecal, lib->connect, "e_cal_client_connect_sync");
    bind(ecal, lib->objectList, "e_cal_client_get_object_list_as_comps_sync");
    bind(ecal, lib->componentText, "e_cal_component_get_as_string");
    bind(ecal, lib->timezone, "e_cal_client_get_timezone_sync");
    bind(ecal, lib->zoneComponent, "i_cal_timezone_get_component");
    bind(ecal, lib->componentAsText, "i_cal_component_as_ical_string");
    if (!lib->complete()) {
        ::dlclose(ecal);
        return nullptr;
    }
    return lib;
}

QByteArray edsTime(const QDateTime& time)
{
    return time.toUTC().toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'")).toLatin1();
}

} // namespace

struct EdsCalendars::State {
    std::shared_ptr<const Library> lib;
    ESourceRegistry* registry = nullptr;
    std::map<QString, EClient*> clients; // by source UID, kept between fetches

    ~State()
    {
        for (const auto& [uid, client] : clients)
            lib->objectUnref(client);
        if (registry)
            lib->objectUnref(registry);
    }
};

EdsCalendars::EdsCalendars(std::shared_ptr<State> state) : m_state(std::move(state)) {}

EdsCalendars::~EdsCalendars() = default;

std::unique_ptr<EdsCalendars> EdsCalendars::load()
{
    static const std::shared_ptr<const Library> library = openLibrary();
    if (!library)
        return nullptr;
    auto state = std::make_shared<State>();
    state->lib = library;
    return std::unique_ptr<EdsCalendars>(new EdsCalendars(std::move(state)));
}

// Evolution Data Server is a service of the session bus. Without one GLib would try to start a bus of
// its own (dbus-launch on X11), which would outlive Pulsebar: only an existing bus is used.
static bool hasSessionBus()
{
    if (!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
        return true;
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    return !runtime.isEmpty() && QFileInfo::exists(runtime + QStringLiteral("/bus"));
}

bool EdsCalendars::connectRegistry()
{
    State& s = *m_state;
    if (s.registry)
        return true;
    if (!hasSessionBus())
        return false;
    GError* failure = nullptr;
    s.registry = s.lib->registryNew(nullptr, &failure);
    s.lib->clear(failure); // no registry: EDS is not running here, its calendars are simply not read
    return s.registry != nullptr;
}

// The user's own addresses: those of the mail identities and online accounts set up on this computer.
QStringList EdsCalendars::accountAddresses()
{
    const Library& lib = *m_state->lib;
    QStringList addresses;
    auto collect = [&](const char* extensionName, char* (*dup)(gpointer)) {
        if (!dup)
            return;
        GList* sources = lib.listSources(m_state->registry, extensionName);
        for (GList* item = sources; item; item = item->next) {
            const QString address = lib.take(dup(lib.extension(item->data, extensionName))).trimmed();
            if (address.contains(QLatin1Char('@')))
                addresses.append(address);
            lib.objectUnref(item->data);
        }
        lib.listFree(sources);
    };
    collect("Mail Identity", lib.dupMailAddress);
    collect("Collection", lib.dupCollectionIdentity);
    return addresses;
}

void* EdsCalendars::client(void* source, const QString& uid)
{
    State& s = *m_state;
    if (const auto it = s.clients.find(uid); it != s.clients.end())
        return it->second;
    GError* failure = nullptr;
    EClient* client = s.lib->connect(source, eventsSourceType, connectWaitSeconds, nullptr, &failure);
    s.lib->clear(failure);
    if (client)
        s.clients.emplace(uid, client);
    return client;
}

// The VTIMEZONE definitions of the zones the events name that the zone database does not know (a
// server's own names), as the calendar keeps them; wrapped as one more item of the feed.
QByteArray EdsCalendars::timezoneItem(void* client, const std::vector<QByteArray>& events)
{
    const Library& lib = *m_state->lib;
    if (!lib.timezone || !lib.zoneComponent || !lib.componentAsText)
        return {};
    static const QRegularExpression tzid(QStringLiteral(R"(TZID=("[^"]+"|[^;:\r\n]+))"));
    QSet<QString> names;
    for (const QByteArray& event : events) {
        auto matches = tzid.globalMatch(QString::fromUtf8(event));
        while (matches.hasNext()) {
            QString name = matches.next().captured(1);
            if (name.startsWith(QLatin1Char('"')))
                name = name.mid(1, name.size() - 2);
            if (!QTimeZone::isTimeZoneIdAvailable(name.toUtf8()))
                names.insert(name);
        }
    }
    QByteArray item;
    for (const QString& name : names) {
        ICalTimezone* zone = nullptr;
        GError* failure = nullptr;
        if (lib.timezone(client, name.toUtf8().constData(), &zone, nullptr, &failure) && zone) {
            if (ICalComponent* component = lib.zoneComponent(zone)) {
                item += lib.take(lib.componentAsText(component)).toUtf8();
                lib.objectUnref(component);
            }
            // The client owns the zone it hands out.
        }
        lib.clear(failure);
    }
    if (item.isEmpty())
        return {};
    return "BEGIN:VCALENDAR\r\nVERSION:2.0\r\n" + item + "END:VCALENDAR\r\n";
}

CalendarStore::Reading EdsCalendars::read(const CalendarRange& range, const QSet<QString>& hidden)
{
    CalendarStore::Reading reading;
    if (!connectRegistry())
        return reading;
    State& s = *m_state;
    const Library& lib = *s.lib;
    reading.ownAddresses = accountAddresses();
    // All-day events are stored in the calendar's zone: a day of margin each side, the exact cut is
    // made after expansion.
    const QByteArray query = "(occur-in-time-range? (make-time \"" + edsTime(range.from.addDays(-1)) +
                             "\") (make-time \"" + edsTime(range.to.addDays(1)) + "\"))";
    QSet<QString> present;
    GList* sources = lib.listEnabled(s.registry, "Calendar");
    for (GList* item = sources; item; item = item->next) {
        ESource* source = item->data;
        const QString uid = QString::fromUtf8(lib.sourceUid(source));
        present.insert(uid);
        CalendarFeed feed;
        feed.info.id = QStringLiteral("eds:") + uid;
        feed.info.title = lib.take(lib.sourceDupDisplayName(source));
        feed.info.color = calendarColor(lib.take(lib.dupColor(lib.extension(source, "Calendar"))));
        if (!feed.info.color.isValid())
            feed.info.color = fallbackColor(feed.info.id);
        if (const char* parent = lib.sourceParent(source)) {
            if (ESource* account = lib.refSource(s.registry, parent)) {
                feed.info.source = lib.take(lib.sourceDupDisplayName(account));
                lib.objectUnref(account);
            }
        }
        EClient* calendar = client(source, uid);
        if (!calendar) {
            ++reading.unreadable;
            lib.objectUnref(source);
            continue; // listed by the registry but its backend cannot be opened: not readable
        }
        if (lib.backendProperty) {
            char* address = nullptr;
            GError* failure = nullptr;
            if (lib.backendProperty(calendar, "cal-email-address", &address, nullptr, &failure))
                if (const QString own = lib.take(address).trimmed(); own.contains(QLatin1Char('@')))
                    reading.ownAddresses.append(own);
            lib.clear(failure);
        }
        if (!hidden.contains(feed.info.id)) {
            GSList* components = nullptr;
            GError* failure = nullptr;
            if (lib.objectList(calendar, query.constData(), &components, nullptr, &failure)) {
                for (GSList* c = components; c; c = c->next) {
                    feed.items.push_back(lib.take(lib.componentText(c->data)).toUtf8());
                    lib.objectUnref(c->data);
                }
                lib.slistFree(components);
            }
            lib.clear(failure);
            if (const QByteArray zones = timezoneItem(calendar, feed.items); !zones.isEmpty())
                feed.items.push_back(zones);
        }
        reading.feeds.push_back(std::move(feed));
        lib.objectUnref(source);
    }
    lib.listFree(sources);
    // Calendars removed or switched off since the last fetch let go of their connection.
    for (auto it = s.clients.begin(); it != s.clients.end();) {
        if (present.contains(it->first)) {
            ++it;
            continue;
        }
        lib.objectUnref(it->second);
        it = s.clients.erase(it);
    }
    return reading;
}

} // namespace pulsebar
