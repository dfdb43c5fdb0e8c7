#include "platform/linux/imobiledevice.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QVariantList>

#include <cstdint>
#include <cstdlib>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>

namespace pulsebar {

namespace {

// The few declarations used, after libimobiledevice 1.3 and libplist 2.2.
using plist_t = void*;
using idevice_t = void*;
using lockdownd_client_t = void*;
using lockdownd_service_descriptor_t = void*;
using diagnostics_relay_client_t = void*;

enum PlistType { plistBoolean, plistInteger, plistReal, plistString, plistArray, plistDict };

enum IdeviceEventType { ideviceDeviceAdd = 1, ideviceDeviceRemove, ideviceDevicePaired };
enum IdeviceConnectionType { connectionUsbmuxd = 1, connectionNetwork };
enum IdeviceLookup { lookupUsbmux = 1 << 1, lookupNetwork = 1 << 2 };
struct IdeviceEvent {
    int event;
    const char* udid;
    int connectionType;
};
using IdeviceEventCallback = void (*)(const IdeviceEvent*, void*);

// lockdownd_error_t: the answers that mean the device does not (yet) trust this computer.
enum LockdownError {
    lockdownSuccess = 0,
    lockdownPairingFailed = -4,
    lockdownPasswordProtected = -17,
    lockdownUserDeniedPairing = -18,
    lockdownPairingDialogPending = -19,
    lockdownMissingHostId = -20,
    lockdownInvalidHostId = -21,
    lockdownMissingPairRecord = -29,
    lockdownInvalidPairRecord = -31,
};

struct Plist {
    int (*nodeType)(plist_t) = nullptr;
    void (*boolValue)(plist_t, uint8_t*) = nullptr;
    void (*uintValue)(plist_t, uint64_t*) = nullptr;
    void (*realValue)(plist_t, double*) = nullptr;
    void (*stringValue)(plist_t, char**) = nullptr;
    uint32_t (*arraySize)(plist_t) = nullptr;
    plist_t (*arrayItem)(plist_t, uint32_t) = nullptr;
    void (*dictNewIter)(plist_t, void**) = nullptr;
    void (*dictNextItem)(plist_t, void*, char**, plist_t*) = nullptr;
    void (*free)(plist_t) = nullptr;

    bool complete() const
    {
        return nodeType && boolValue && uintValue && realValue && stringValue && arraySize && arrayItem &&
               dictNewIter && dictNextItem && free;
    }

    // Integers arrive as 64-bit unsigned; negative ones (a discharging current) are their two's complement.
    QVariant toVariant(plist_t node, int depth = 0) const
    {
        if (!node || depth > 16)
            return {};
        switch (nodeType(node)) {
        case plistBoolean: {
            uint8_t b = 0;
            boolValue(node, &b);
            return bool(b);
        }
        case plistInteger: {
            uint64_t n = 0;
            uintValue(node, &n);
            return qint64(n);
        }
        case plistReal: {
            double n = 0;
            realValue(node, &n);
            return n;
        }
        case plistString: {
            char* text = nullptr;
            stringValue(node, &text);
            const QString s = QString::fromUtf8(text);
            std::free(text);
            return s;
        }
        case plistArray: {
            QVariantList list;
            const uint32_t size = arraySize(node);
            for (uint32_t i = 0; i < size; ++i)
                list.push_back(toVariant(arrayItem(node, i), depth + 1));
            return list;
        }
        case plistDict: {
            QVariantMap map;
            void* iter = nullptr;
            dictNewIter(node, &iter);
            for (;;) {
                char* key = nullptr;
                plist_t value = nullptr;
                dictNextItem(node, iter, &key, &value);
                if (!key)
                    break;
                map.insert(QString::fromUtf8(key), toVariant(value, depth + 1));
                std::free(key);
            }
            std::free(iter);
            return map;
        }
        default: return {}; // dates and data carry nothing the monitor reads
        }
    }

    // Converts and frees an owned node.
    QVariant take(plist_t node) const
    {
        QVariant value = toVariant(node);
        if (node)
            free(node);
        return value;
    }
};

struct Library {
    int (*eventSubscribe)(IdeviceEventCallback, void*) = nullptr;
    int (*eventUnsubscribe)() = nullptr;
    int (*deviceNew)(idevice_t*, const char*, int) = nullptr;
    int (*deviceFree)(idevice_t) = nullptr;
    int (*lockdownNewWithHandshake)(idevice_t, lockdownd_client_t*, const char*) = nullptr;
    int (*lockdownFree)(lockdownd_client_t) = nullptr;
    int (*getValue)(lockdownd_client_t, const char*, const char*, plist_t*) = nullptr;
    int (*startService)(lockdownd_client_t, const char*, lockdownd_service_descriptor_t*) = nullptr;
    int (*serviceDescriptorFree)(lockdownd_service_descriptor_t) = nullptr;
    int (*relayNew)(idevice_t, lockdownd_service_descriptor_t, diagnostics_relay_client_t*) = nullptr;
    int (*relayQueryEntry)(diagnostics_relay_client_t, const char*, const char*, plist_t*) = nullptr;
    int (*relayGoodbye)(diagnostics_relay_client_t) = nullptr;
    int (*relayFree)(diagnostics_relay_client_t) = nullptr;
    Plist plist;
};

template <typename F>
void bind(void* handle, F& function, const char* name)
{
    function = reinterpret_cast<F>(::dlsym(handle, name));
}

// libimobiledevice takes one event callback per process. The relay is that callback: it hands every
// event to each subscriber, and replays the devices already attached to a late subscriber.
class EventRelay {
public:
    explicit EventRelay(std::shared_ptr<const Library> library) : m_library(std::move(library)) {}

    int subscribe(MobileDeviceAPI::EventHandler handler)
    {
        bool first = false;
        int id = 0;
        {
            std::lock_guard lock(m_mutex);
            id = ++m_lastId;
            first = m_handlers.empty();
            for (const auto& [udid, connection] : m_attached)
                handler({MobileDeviceAPI::EventKind::arrived, QString::fromStdString(udid), connection});
            m_handlers.emplace(id, std::move(handler));
        }
        // Outside the lock: the library's thread may already be delivering the first events.
        if (first && !subscribeOnceDaemonListens()) {
            std::lock_guard lock(m_mutex);
            m_handlers.erase(id);
            return 0;
        }
        return id;
    }

    void unsubscribe(int id)
    {
        bool last = false;
        {
            // Taking the lock waits for a delivery in progress.
            std::lock_guard lock(m_mutex);
            last = m_handlers.erase(id) && m_handlers.empty();
        }
        if (last) {
            m_daemonWatch.reset();
            if (std::exchange(m_librarySubscribed, false))
                m_library->eventUnsubscribe(); // joins the library's thread, which may need the lock
            std::lock_guard lock(m_mutex);
            m_attached.clear();
        }
    }

private:
    // Where usbmuxd listens, unless USBMUXD_SOCKET_ADDRESS names another place.
    static constexpr const char* daemonSocket = "/var/run/usbmuxd";

    static bool daemonListening()
    {
        struct stat st;
        return std::getenv("USBMUXD_SOCKET_ADDRESS") || (::stat(daemonSocket, &st) == 0 && S_ISSOCK(st.st_mode));
    }

    // While usbmuxd is not running (udev starts it when an Apple device is plugged in, so most
    // machines never run it) the library's event thread wakes every second to look for it. The
    // library is subscribed to only once the daemon's socket exists; until then its folder is
    // watched, which costs nothing while nothing is created there.
    bool subscribeOnceDaemonListens()
    {
        if (!daemonListening()) {
            auto watch = std::make_unique<QFileSystemWatcher>();
            if (watch->addPath(QFileInfo(QString::fromLatin1(daemonSocket)).absolutePath())) {
                QObject::connect(watch.get(), &QFileSystemWatcher::directoryChanged, watch.get(), [this] {
                    if (!m_daemonWatch || !daemonListening())
                        return;
                    m_daemonWatch.release()->deleteLater(); // the watcher is still delivering this signal
                    m_librarySubscribed = m_library->eventSubscribe(&EventRelay::deliver, this) == 0;
                });
                m_daemonWatch = std::move(watch);
                return true;
            }
        }
        m_librarySubscribed = m_library->eventSubscribe(&EventRelay::deliver, this) == 0;
        return m_librarySubscribed;
    }

    static void deliver(const IdeviceEvent* event, void* self)
    {
        if (event && event->udid)
            static_cast<EventRelay*>(self)->dispatch(*event);
    }

    void dispatch(const IdeviceEvent& raw)
    {
        using Kind = MobileDeviceAPI::EventKind;
        const Connection connection = raw.connectionType == connectionNetwork ? Connection::wifi : Connection::usb;
        Kind kind = Kind::arrived;
        switch (raw.event) {
        case ideviceDeviceAdd: kind = Kind::arrived; break;
        case ideviceDeviceRemove: kind = Kind::departed; break;
        case ideviceDevicePaired: kind = Kind::paired; break;
        default: return;
        }
        std::lock_guard lock(m_mutex);
        const std::pair<std::string, Connection> key{raw.udid, connection};
        if (kind == Kind::arrived)
            m_attached.insert(key);
        else if (kind == Kind::departed)
            m_attached.erase(key);
        const MobileDeviceAPI::Event event{kind, QString::fromUtf8(raw.udid), connection};
        for (const auto& [id, handler] : m_handlers)
            handler(event);
    }

    std::shared_ptr<const Library> m_library;
    std::mutex m_mutex;
    int m_lastId = 0;
    std::map<int, MobileDeviceAPI::EventHandler> m_handlers;
    std::set<std::pair<std::string, Connection>> m_attached;
    // Subscriptions are made and ended on the thread of the event loop (the main thread).
    bool m_librarySubscribed = false;
    std::unique_ptr<QFileSystemWatcher> m_daemonWatch; // while waiting for usbmuxd
};

MobileDeviceAPI::Pairing pairingOf(int error)
{
    switch (error) {
    case lockdownSuccess: return MobileDeviceAPI::Pairing::trusted;
    case lockdownPairingFailed:
    case lockdownPasswordProtected:
    case lockdownUserDeniedPairing:
    case lockdownPairingDialogPending:
    case lockdownMissingHostId:
    case lockdownInvalidHostId:
    case lockdownMissingPairRecord:
    case lockdownInvalidPairRecord: return MobileDeviceAPI::Pairing::untrusted;
    default: return MobileDeviceAPI::Pairing::unreachable;
    }
}

std::shared_ptr<const MobileDeviceAPI> tableOver(std::shared_ptr<const Library> lib)
{
    auto api = std::make_shared<MobileDeviceAPI>();
    auto relay = std::make_shared<EventRelay>(lib);
    api->subscribe = [relay](MobileDeviceAPI::EventHandler handler) { return relay->subscribe(std::move(handler)); };
    api->unsubscribe = [relay](int id) { relay->unsubscribe(id); };
    api->connect = [lib](const QString& id, Connection connection) -> MobileDeviceAPI::Handle {
        idevice_t device = nullptr;
        const int lookup = connection == Connection::wifi ? lookupNetwork : lookupUsbmux;
        if (lib->deviceNew(&device, id.toUtf8().constData(), lookup) != 0)
            return nullptr;
        return device;
    };
    api->disconnect = [lib](MobileDeviceAPI::Handle device) { lib->deviceFree(device); };
    // The handshake validates the pairing; on a device never paired it asks the device to trust this
    // computer, and the device's "paired" event follows once the user agrees.
    api->startSession = [lib](MobileDeviceAPI::Handle device, MobileDeviceAPI::Handle* session) {
        lockdownd_client_t client = nullptr;
        const MobileDeviceAPI::Pairing pairing = pairingOf(lib->lockdownNewWithHandshake(device, &client, "pulsebar"));
        if (pairing != MobileDeviceAPI::Pairing::trusted) {
            if (client)
                lib->lockdownFree(client);
            client = nullptr;
        }
        *session = client;
        return pairing;
    };
    api->stopSession = [lib](MobileDeviceAPI::Handle session) { lib->lockdownFree(session); };
    api->copyValue = [lib](MobileDeviceAPI::Handle session, const char* domain,
                           const char* key) -> std::optional<QVariant> {
        plist_t value = nullptr;
        if (lib->getValue(session, domain, key, &value) != 0 || !value) {
            if (value)
                lib->plist.free(value);
            return std::nullopt;
        }
        return lib->plist.take(value);
    };
    if (lib->startService && lib->serviceDescriptorFree && lib->relayNew && lib->relayQueryEntry &&
        lib->relayGoodbye && lib->relayFree) {
        api->startService = [lib](MobileDeviceAPI::Handle device, MobileDeviceAPI::Handle session,
                                  const char* name) -> MobileDeviceAPI::Handle {
            lockdownd_service_descriptor_t descriptor = nullptr;
            if (lib->startService(session, name, &descriptor) != 0 || !descriptor)
                return nullptr;
            diagnostics_relay_client_t relay = nullptr;
            const int error = lib->relayNew(device, descriptor, &relay);
            lib->serviceDescriptorFree(descriptor);
            return error == 0 ? relay : nullptr;
        };
        api->queryRegistry = [lib](MobileDeviceAPI::Handle relay, const QString& entry) -> std::optional<QVariantMap> {
            plist_t result = nullptr;
            if (lib->relayQueryEntry(relay, entry.toUtf8().constData(), nullptr, &result) != 0 || !result) {
                if (result)
                    lib->plist.free(result);
                return std::nullopt;
            }
            const QVariant value = lib->plist.take(result);
            if (value.typeId() != QMetaType::QVariantMap)
                return std::nullopt;
            return value.toMap();
        };
        api->invalidate = [lib](MobileDeviceAPI::Handle relay) {
            lib->relayGoodbye(relay);
            lib->relayFree(relay);
        };
    }
    return api;
}

} // namespace

std::shared_ptr<const MobileDeviceAPI> loadMobileDeviceAPI(const char* deviceLibrary, const char* plistLibrary)
{
    void* plist = ::dlopen(plistLibrary, RTLD_NOW | RTLD_LOCAL);
    if (!plist)
        return nullptr;
    void* device = ::dlopen(deviceLibrary, RTLD_NOW | RTLD_LOCAL);
    if (!device) {
        ::dlclose(plist);
        return nullptr;
    }
    auto lib = std::make_shared<Library>();
    bind(plist, lib->plist.nodeType, "plist_get_node_type");
    bind(plist, lib->plist.boolValue, "plist_get_bool_val");
    bind(plist, lib->plist.uintValue, "plist_get_uint_val");
    bind(plist, lib->plist.realValue, "plist_get_real_val");
    bind(plist, lib->plist.stringValue, "plist_get_string_val");
    bind(plist, lib->plist.arraySize, "plist_array_get_size");
    bind(plist, lib->plist.arrayItem, "plist_array_get_item");
    bind(plist, lib->plist.dictNewIter, "plist_dict_new_iter");
    bind(plist, lib->plist.dictNextItem, "plist_dict_next_item");
    bind(plist, lib->plist.free, "plist_free");
    bind(device, lib->eventSubscribe, "idevice_event_subscribe");
    bind(device, lib->eventUnsubscribe, "idevice_event_unsubscribe");
    bind(device, lib->deviceNew, "idevice_new_with_options");
    bind(device, lib->deviceFree, "idevice_free");
    bind(device, lib->lockdownNewWithHandshake, "lockdownd_client_new_with_handshake");
    bind(device, lib->lockdownFree, "lockdownd_client_free");
    bind(device, lib->getValue, "lockdownd_get_value");
    bind(device, lib->startService, "lockdownd_start_service");
    bind(device, lib->serviceDescriptorFree, "lockdownd_service_descriptor_free");
    bind(device, lib->relayNew, "diagnostics_relay_client_new");
    bind(device, lib->relayQueryEntry, "diagnostics_relay_query_ioregistry_entry");
    bind(device, lib->relayGoodbye, "diagnostics_relay_goodbye");
    bind(device, lib->relayFree, "diagnostics_relay_client_free");
    const bool required = lib->plist.complete() && lib->eventSubscribe && lib->eventUnsubscribe && lib->deviceNew &&
                          lib->deviceFree && lib->lockdownNewWithHandshake && lib->lockdownFree && lib->getValue;
    if (!required) {
        ::dlclose(device);
        ::dlclose(plist);
        return nullptr;
    }
    // Never closed: the library's event thread and its allocations may outlive any one table.
    return tableOver(std::move(lib));
}

std::shared_ptr<const MobileDeviceAPI> systemMobileDeviceAPI()
{
    static const std::shared_ptr<const MobileDeviceAPI> api = loadMobileDeviceAPI();
    return api;
}

QStringList mobileDeviceRequirements()
{
    return {QStringLiteral("The usbmuxd service and libimobiledevice (Debian packages usbmuxd and "
                           "libimobiledevice6). usbmuxd starts by itself when a device is plugged in."),
            QStringLiteral("On the device: unlock it and tap Trust when it asks whether to trust this "
                           "computer. Until then Pulsebar lists it without battery and storage."),
            QStringLiteral("Devices on Wi-Fi appear only with a usbmuxd that finds network devices; the one "
                           "of Debian 12 finds devices on USB only.")};
}

} // namespace pulsebar
