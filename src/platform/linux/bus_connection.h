#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>

class QSocketNotifier;

#include <dbus/dbus.h>

#include <functional>
#include <memory>
#include <vector>

namespace pulsebar {

// Appends arguments to a message being built. Containers nest: open one, write into it, close it.
class MessageWriter {
public:
    explicit MessageWriter(DBusMessage* message);
    MessageWriter(const MessageWriter&) = delete;
    MessageWriter& operator=(const MessageWriter&) = delete;

    MessageWriter& operator<<(int value);
    MessageWriter& operator<<(uint value);
    MessageWriter& operator<<(bool value);
    MessageWriter& operator<<(const QString& value);
    MessageWriter& operator<<(const QStringList& value);
    MessageWriter& operator<<(const QList<int>& value);
    void objectPath(const QString& path);
    void bytes(const QByteArray& value); // ay
    // A variant holding a string, boolean, int, uint or string list; anything else goes as an empty string.
    void variant(const QVariant& value);
    // a{sv}
    void dictionary(const QVariantMap& map);

    // `signature` is the contained type: the element's of an array, the value's of a variant, none for a
    // structure or a dictionary entry.
    void open(int type, const char* signature = nullptr);
    void close();

    template <class Body> void array(const char* elementSignature, Body body)
    {
        open(DBUS_TYPE_ARRAY, elementSignature);
        body();
        close();
    }
    template <class Body> void structure(Body body)
    {
        open(DBUS_TYPE_STRUCT);
        body();
        close();
    }
    template <class Body> void variant(const char* signature, Body body)
    {
        open(DBUS_TYPE_VARIANT, signature);
        body();
        close();
    }

private:
    void basic(int type, const void* value);

    std::vector<DBusMessageIter> m_stack; // the innermost open container last
};

// Reads a message's arguments in order. A value of another type than asked reads as empty; callers
// check the message's signature first.
class MessageReader {
public:
    explicit MessageReader(DBusMessage* message);

    int nextInt();
    QString nextString();
    QStringList nextStrings();
    QList<int> nextInts();
    void skip();
    // Calls `each` with a reader over every element of the array at hand (inside it, when the elements
    // are structures), then moves past the array.
    void eachElement(const std::function<void(MessageReader&)>& each);

private:
    MessageReader() = default;
    template <class Value> Value nextBasic(int type, Value empty);

    DBusMessageIter m_iter{};
    bool m_valid = false;
};

// One interface of an exported object: read-only properties, methods and the signals it may send.
// Signatures are D-Bus type strings ("ii", "a(iiay)"); a method's `call` reads its arguments and writes
// its reply's, and is only called with arguments of its `in` signature.
struct BusInterface {
    struct Property {
        const char* name;
        const char* signature;
        std::function<void(MessageWriter&)> write;
    };
    struct Method {
        const char* name;
        const char* in;
        const char* out;
        std::function<void(MessageReader&, MessageWriter&)> call;
    };
    struct Signal {
        const char* name;
        const char* signature;
    };

    const char* name;
    std::vector<Property> properties;
    std::vector<Method> methods;
    std::vector<Signal> emitted;
};

// A private connection to the session bus that is served from the thread that opened it, in its Qt
// event loop: method calls are answered there, without the hand-offs to and from a bus thread that
// QtDBus makes for every call. Exported objects answer Introspect and org.freedesktop.DBus.Properties
// (Get and GetAll) from their BusInterface. Closing the connection releases its names.
class BusConnection : public QObject {
public:
    // Nullptr when the session bus cannot be reached.
    static std::unique_ptr<BusConnection> openSession();
    ~BusConnection() override;

    bool exportObject(const QString& path, BusInterface interface);
    void emitSignal(const QString& path, const char* interface, const char* name,
                    const std::function<void(MessageWriter&)>& arguments = {});
    // Calls a method, not waiting: `done` is called on this thread with whether a reply (not an error)
    // came; never after the connection is gone.
    void callMethod(const QString& service, const QString& path, const char* interface, const char* method,
                    const std::function<void(MessageWriter&)>& arguments, std::function<void(bool)> done);

private:
    struct Exported;
    struct Watch;
    struct Timeout;
    struct PendingCall;

    explicit BusConnection(DBusConnection* connection);

    static DBusHandlerResult handleMessage(DBusConnection* connection, DBusMessage* message, void* data);
    DBusHandlerResult answer(const Exported& object, DBusMessage* message);
    QByteArray introspection(const QString& path) const;
    QSocketNotifier* notifierFor(DBusWatch* watch, unsigned flag);
    void dispatch();
    void scheduleDispatch();

    DBusConnection* m_connection;
    std::vector<std::unique_ptr<Exported>> m_objects;
    std::vector<DBusPendingCall*> m_pendingCalls;
    bool m_dispatchScheduled = false;
};

} // namespace pulsebar
