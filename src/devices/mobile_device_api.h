#pragma once

#include "devices/connected_device.h"

#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>

#include <functional>
#include <optional>

namespace pulsebar {

// The entry points the device monitor needs from the platform's device-communication library, as one
// table. The platform fills it from the library it loads at run time (nullptr when the library or a
// required entry point is missing: then there are no devices); tests fill it with fakes. Values come
// back as plain variants: dictionaries as QVariantMap, arrays as QVariantList, integers as qint64,
// reals as double, booleans as bool, strings as QString.
//
// Handles are the library's own, opaque here. Every call except subscribe and unsubscribe may block
// for seconds on a slow or vanishing device, so the monitor makes them off the main thread.
struct MobileDeviceAPI {
    using Handle = void*;

    enum class EventKind { arrived, departed, paired };
    struct Event {
        EventKind kind = EventKind::arrived;
        QString id;
        Connection connection = Connection::usb;
    };
    // Called on a thread of the library's: an arrival for every device already attached, then each
    // arrival, departure and newly paired device. Several subscribers may listen at once.
    using EventHandler = std::function<void(const Event&)>;

    // How opening a lockdown session with pairing validation ended.
    enum class Pairing {
        trusted,     // validated; the session is open
        untrusted,   // not paired, the pairing refused, or the device locked with a passcode
        unreachable, // the device could not be talked to at all
    };

    // Required.
    // A subscription number, 0 when subscribing failed.
    std::function<int(EventHandler)> subscribe;
    // Ends a subscription; waits until no call of its handler is running.
    std::function<void(int subscription)> unsubscribe;
    std::function<Handle(const QString& id, Connection)> connect; // nullptr when the device is gone
    std::function<void(Handle device)> disconnect;
    std::function<Pairing(Handle device, Handle* session)> startSession;
    std::function<void(Handle session)> stopSession;
    // A value of the device's lockdown service; a null domain is the device's own.
    std::function<std::optional<QVariant>(Handle session, const char* domain, const char* key)> copyValue;

    // Optional: without them battery health is not read.
    std::function<Handle(Handle device, Handle session, const char* service)> startService; // nullptr on failure
    // Asks the diagnostics relay for one I/O registry entry by name; the reply's "Diagnostics" dictionary.
    std::function<std::optional<QVariantMap>(Handle service, const QString& entryName)> queryRegistry;
    std::function<void(Handle service)> invalidate;

    bool hasRequired() const
    {
        return subscribe && unsubscribe && connect && disconnect && startSession && stopSession && copyValue;
    }
    bool canReadBatteryHealth() const { return startService && queryRegistry && invalidate; }
};

// Reads one device through the table, on the calling thread: its identity, and when it trusts this
// computer every lockdown value and the battery registry entry. Absent when the device could not be
// reached at all. Every session, service and connection opened is closed again, whatever failed.
std::optional<ConnectedDevice> readDevice(const MobileDeviceAPI& api, const QString& id, Connection connection);

// What this system needs for devices to be read, in sentences for the settings window.
QStringList mobileDeviceRequirements();

} // namespace pulsebar
