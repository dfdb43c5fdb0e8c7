#include "platform/linux/bus_connection.h"

#include <QMetaObject>
#include <QPointer>
#include <QSocketNotifier>
#include <QTimer>

#include <algorithm>
#include <cstring>

namespace pulsebar {

namespace {

constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";
constexpr const char* introspectableInterface = "org.freedesktop.DBus.Introspectable";
constexpr int callTimeoutMs = 25000;

bool same(const char* a, const char* b)
{
    return a && b && std::strcmp(a, b) == 0;
}

// Each complete type of a signature ("ia{sv}" gives "i", "a{sv}").
QList<QByteArray> completeTypes(const char* signature)
{
    QList<QByteArray> out;
    if (!signature || !*signature)
        return out;
    DBusSignatureIter iter;
    dbus_signature_iter_init(&iter, signature);
    do {
        char* type = dbus_signature_iter_get_signature(&iter);
        out << QByteArray(type);
        dbus_free(type);
    } while (dbus_signature_iter_next(&iter));
    return out;
}

void appendArguments(QByteArray& xml, const char* signature, const char* direction)
{
    for (const QByteArray& type : completeTypes(signature)) {
        xml += "      <arg type=\"" + type + "\"";
        if (direction)
            xml += QByteArray(" direction=\"") + direction + "\"";
        xml += "/>\n";
    }
}

const BusInterface::Property* findProperty(const BusInterface& interface, const char* name)
{
    for (const BusInterface::Property& property : interface.properties)
        if (same(property.name, name))
            return &property;
    return nullptr;
}

const BusInterface::Method* findMethod(const BusInterface& interface, const char* name)
{
    for (const BusInterface::Method& method : interface.methods)
        if (same(method.name, name))
            return &method;
    return nullptr;
}

} // namespace

// ---- MessageWriter

MessageWriter::MessageWriter(DBusMessage* message)
{
    m_stack.reserve(8);
    m_stack.emplace_back();
    dbus_message_iter_init_append(message, &m_stack.back());
}

void MessageWriter::basic(int type, const void* value)
{
    dbus_message_iter_append_basic(&m_stack.back(), type, value);
}

MessageWriter& MessageWriter::operator<<(int value)
{
    const dbus_int32_t v = value;
    basic(DBUS_TYPE_INT32, &v);
    return *this;
}

MessageWriter& MessageWriter::operator<<(uint value)
{
    const dbus_uint32_t v = value;
    basic(DBUS_TYPE_UINT32, &v);
    return *this;
}

MessageWriter& MessageWriter::operator<<(bool value)
{
    const dbus_bool_t v = value ? TRUE : FALSE;
    basic(DBUS_TYPE_BOOLEAN, &v);
    return *this;
}

MessageWriter& MessageWriter::operator<<(const QString& value)
{
    const QByteArray utf8 = value.toUtf8();
    const char* data = utf8.constData();
    basic(DBUS_TYPE_STRING, &data);
    return *this;
}

MessageWriter& MessageWriter::operator<<(const QStringList& value)
{
    array("s", [&] {
        for (const QString& s : value)
            *this << s;
    });
    return *this;
}

MessageWriter& MessageWriter::operator<<(const QList<int>& value)
{
    array("i", [&] {
        for (int i : value)
            *this << i;
    });
    return *this;
}

void MessageWriter::objectPath(const QString& path)
{
    const QByteArray utf8 = path.toUtf8();
    const char* data = utf8.constData();
    basic(DBUS_TYPE_OBJECT_PATH, &data);
}

void MessageWriter::bytes(const QByteArray& value)
{
    open(DBUS_TYPE_ARRAY, "y");
    const char* data = value.constData();
    dbus_message_iter_append_fixed_array(&m_stack.back(), DBUS_TYPE_BYTE, &data, int(value.size()));
    close();
}

void MessageWriter::variant(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
        variant("b", [&] { *this << value.toBool(); });
        break;
    case QMetaType::Int:
        variant("i", [&] { *this << value.toInt(); });
        break;
    case QMetaType::UInt:
        variant("u", [&] { *this << value.toUInt(); });
        break;
    case QMetaType::QStringList:
        variant("as", [&] { *this << value.toStringList(); });
        break;
    default:
        variant("s", [&] { *this << value.toString(); });
    }
}

void MessageWriter::dictionary(const QVariantMap& map)
{
    array("{sv}", [&] {
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            open(DBUS_TYPE_DICT_ENTRY);
            *this << it.key();
            variant(it.value());
            close();
        }
    });
}

void MessageWriter::open(int type, const char* signature)
{
    DBusMessageIter sub;
    dbus_message_iter_open_container(&m_stack.back(), type, signature, &sub);
    m_stack.push_back(sub);
}

void MessageWriter::close()
{
    DBusMessageIter sub = m_stack.back();
    m_stack.pop_back();
    dbus_message_iter_close_container(&m_stack.back(), &sub);
}

// ---- MessageReader

MessageReader::MessageReader(DBusMessage* message)
{
    m_valid = dbus_message_iter_init(message, &m_iter);
}

template <class Value> Value MessageReader::nextBasic(int type, Value empty)
{
    Value value = empty;
    if (m_valid && dbus_message_iter_get_arg_type(&m_iter) == type)
        dbus_message_iter_get_basic(&m_iter, &value);
    skip();
    return value;
}

int MessageReader::nextInt()
{
    return nextBasic<dbus_int32_t>(DBUS_TYPE_INT32, 0);
}

QString MessageReader::nextString()
{
    const char* value = nextBasic<const char*>(DBUS_TYPE_STRING, nullptr);
    return value ? QString::fromUtf8(value) : QString();
}

QStringList MessageReader::nextStrings()
{
    QStringList out;
    eachElement([&](MessageReader& element) { out << element.nextString(); });
    return out;
}

QList<int> MessageReader::nextInts()
{
    QList<int> out;
    eachElement([&](MessageReader& element) { out << element.nextInt(); });
    return out;
}

void MessageReader::skip()
{
    if (m_valid)
        m_valid = dbus_message_iter_next(&m_iter);
}

void MessageReader::eachElement(const std::function<void(MessageReader&)>& each)
{
    if (m_valid && dbus_message_iter_get_arg_type(&m_iter) == DBUS_TYPE_ARRAY) {
        MessageReader element;
        dbus_message_iter_recurse(&m_iter, &element.m_iter);
        while (dbus_message_iter_get_arg_type(&element.m_iter) != DBUS_TYPE_INVALID) {
            MessageReader inside;
            const bool structured = dbus_message_iter_get_arg_type(&element.m_iter) == DBUS_TYPE_STRUCT;
            if (structured)
                dbus_message_iter_recurse(&element.m_iter, &inside.m_iter);
            else
                inside.m_iter = element.m_iter;
            inside.m_valid = true;
            each(inside);
            if (!dbus_message_iter_next(&element.m_iter))
                break;
        }
    }
    skip();
}

// ---- BusConnection

struct BusConnection::Exported {
    BusConnection* connection;
    QString path;
    BusInterface interface;
};

// Qt's side of one of libdbus's file descriptors or timers. Removed ones are deleted later: libdbus may
// remove a watch while its notifier is delivering.
struct BusConnection::Watch {
    QPointer<QSocketNotifier> read;
    QPointer<QSocketNotifier> write;

    ~Watch()
    {
        for (QSocketNotifier* notifier : {read.data(), write.data()})
            if (notifier) {
                notifier->setEnabled(false);
                notifier->deleteLater();
            }
    }
};

struct BusConnection::Timeout {
    QPointer<QTimer> timer;

    ~Timeout()
    {
        if (timer) {
            timer->stop();
            timer->deleteLater();
        }
    }
};

struct BusConnection::PendingCall {
    QPointer<BusConnection> connection;
    std::function<void(bool)> done;
};

std::unique_ptr<BusConnection> BusConnection::openSession()
{
    DBusError error;
    dbus_error_init(&error);
    DBusConnection* connection = dbus_bus_get_private(DBUS_BUS_SESSION, &error);
    dbus_error_free(&error);
    if (!connection)
        return nullptr;
    dbus_connection_set_exit_on_disconnect(connection, FALSE);
    return std::unique_ptr<BusConnection>(new BusConnection(connection));
}

BusConnection::BusConnection(DBusConnection* connection) : m_connection(connection)
{
    struct WatchFunctions {
        static dbus_bool_t add(DBusWatch* watch, void* data)
        {
            auto* self = static_cast<BusConnection*>(data);
            auto* w = new Watch;
            const unsigned flags = dbus_watch_get_flags(watch);
            if (flags & DBUS_WATCH_READABLE)
                w->read = self->notifierFor(watch, DBUS_WATCH_READABLE);
            if (flags & DBUS_WATCH_WRITABLE)
                w->write = self->notifierFor(watch, DBUS_WATCH_WRITABLE);
            dbus_watch_set_data(watch, w, [](void* p) { delete static_cast<Watch*>(p); });
            toggle(watch, data);
            return TRUE;
        }
        static void remove(DBusWatch* watch, void*) { dbus_watch_set_data(watch, nullptr, nullptr); }
        static void toggle(DBusWatch* watch, void*)
        {
            auto* w = static_cast<Watch*>(dbus_watch_get_data(watch));
            const bool enabled = dbus_watch_get_enabled(watch);
            for (QSocketNotifier* notifier : {w->read.data(), w->write.data()})
                if (notifier)
                    notifier->setEnabled(enabled);
        }
    };
    struct TimeoutFunctions {
        static dbus_bool_t add(DBusTimeout* timeout, void* data)
        {
            auto* self = static_cast<BusConnection*>(data);
            auto* t = new Timeout{new QTimer(self)};
            connect(t->timer, &QTimer::timeout, self, [self, timeout] {
                dbus_timeout_handle(timeout);
                self->dispatch();
            });
            dbus_timeout_set_data(timeout, t, [](void* p) { delete static_cast<Timeout*>(p); });
            toggle(timeout, data);
            return TRUE;
        }
        static void remove(DBusTimeout* timeout, void*) { dbus_timeout_set_data(timeout, nullptr, nullptr); }
        static void toggle(DBusTimeout* timeout, void*)
        {
            auto* t = static_cast<Timeout*>(dbus_timeout_get_data(timeout));
            if (dbus_timeout_get_enabled(timeout))
                t->timer->start(dbus_timeout_get_interval(timeout));
            else
                t->timer->stop();
        }
    };
    dbus_connection_set_watch_functions(m_connection, WatchFunctions::add, WatchFunctions::remove,
                                        WatchFunctions::toggle, this, nullptr);
    dbus_connection_set_timeout_functions(m_connection, TimeoutFunctions::add, TimeoutFunctions::remove,
                                          TimeoutFunctions::toggle, this, nullptr);
    dbus_connection_set_dispatch_status_function(
        m_connection,
        [](DBusConnection*, DBusDispatchStatus status, void* data) {
            if (status == DBUS_DISPATCH_DATA_REMAINS)
                static_cast<BusConnection*>(data)->scheduleDispatch();
        },
        this, nullptr);
    // Messages read while the connection was set up wait in its queue.
    scheduleDispatch();
}

BusConnection::~BusConnection()
{
    for (DBusPendingCall* call : m_pendingCalls) {
        dbus_pending_call_cancel(call);
        dbus_pending_call_unref(call);
    }
    for (const auto& object : m_objects)
        dbus_connection_unregister_object_path(m_connection, object->path.toUtf8().constData());
    dbus_connection_set_dispatch_status_function(m_connection, nullptr, nullptr, nullptr);
    dbus_connection_close(m_connection);
    dbus_connection_set_watch_functions(m_connection, nullptr, nullptr, nullptr, nullptr, nullptr);
    dbus_connection_set_timeout_functions(m_connection, nullptr, nullptr, nullptr, nullptr, nullptr);
    dbus_connection_unref(m_connection);
}

bool BusConnection::exportObject(const QString& path, BusInterface interface)
{
    static const DBusObjectPathVTable table{nullptr, &BusConnection::handleMessage, nullptr, nullptr, nullptr, nullptr};
    const auto add = [&](const QString& at, BusInterface&& served) {
        auto object = std::make_unique<Exported>(Exported{this, at, std::move(served)});
        if (!dbus_connection_register_object_path(m_connection, at.toUtf8().constData(), &table, object.get()))
            return false;
        m_objects.push_back(std::move(object));
        return true;
    };
    // The root lists the exported objects, for tools that walk the tree from there.
    const bool rootServed = std::any_of(m_objects.begin(), m_objects.end(),
                                        [](const auto& object) { return object->path == QLatin1String("/"); });
    if (!rootServed && path != QLatin1String("/") && !add(QStringLiteral("/"), BusInterface{nullptr, {}, {}, {}}))
        return false;
    return add(path, std::move(interface));
}

void BusConnection::emitSignal(const QString& path, const char* interface, const char* name,
                               const std::function<void(MessageWriter&)>& arguments)
{
    DBusMessage* message = dbus_message_new_signal(path.toUtf8().constData(), interface, name);
    if (!message)
        return;
    if (arguments) {
        MessageWriter writer(message);
        arguments(writer);
    }
    dbus_connection_send(m_connection, message, nullptr);
    dbus_message_unref(message);
}

void BusConnection::callMethod(const QString& service, const QString& path, const char* interface,
                               const char* method, const std::function<void(MessageWriter&)>& arguments,
                               std::function<void(bool)> done)
{
    DBusMessage* message = dbus_message_new_method_call(service.toUtf8().constData(), path.toUtf8().constData(),
                                                        interface, method);
    if (!message)
        return done(false);
    if (arguments) {
        MessageWriter writer(message);
        arguments(writer);
    }
    DBusPendingCall* call = nullptr;
    const bool sent = dbus_connection_send_with_reply(m_connection, message, &call, callTimeoutMs) && call;
    dbus_message_unref(message);
    if (!sent)
        return done(false);
    m_pendingCalls.push_back(call);
    auto* pending = new PendingCall{this, std::move(done)};
    dbus_pending_call_set_notify(
        call,
        [](DBusPendingCall* finished, void* data) {
            auto* p = static_cast<PendingCall*>(data);
            DBusMessage* reply = dbus_pending_call_steal_reply(finished);
            const bool ok = reply && dbus_message_get_type(reply) == DBUS_MESSAGE_TYPE_METHOD_RETURN;
            if (reply)
                dbus_message_unref(reply);
            if (!p->connection)
                return;
            std::erase(p->connection->m_pendingCalls, finished);
            dbus_pending_call_unref(finished);
            if (p->done)
                std::exchange(p->done, {})(ok);
        },
        pending, [](void* data) { delete static_cast<PendingCall*>(data); });
}

DBusHandlerResult BusConnection::handleMessage(DBusConnection*, DBusMessage* message, void* data)
{
    const auto* object = static_cast<const Exported*>(data);
    return object->connection->answer(*object, message);
}

DBusHandlerResult BusConnection::answer(const Exported& object, DBusMessage* message)
{
    if (dbus_message_get_type(message) != DBUS_MESSAGE_TYPE_METHOD_CALL)
        return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
    const char* interface = dbus_message_get_interface(message);
    const char* member = dbus_message_get_member(message);
    const BusInterface& served = object.interface;
    DBusMessage* reply = nullptr;

    if (dbus_message_is_method_call(message, introspectableInterface, "Introspect")) {
        reply = dbus_message_new_method_return(message);
        const QByteArray xml = introspection(object.path);
        const char* text = xml.constData();
        dbus_message_append_args(reply, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
    } else if (same(interface, propertiesInterface) && served.name) {
        MessageReader reader(message);
        const QString asked = reader.nextString();
        const bool ours = asked.isEmpty() || asked == QLatin1String(served.name);
        if (same(member, "Get") && dbus_message_has_signature(message, "ss")) {
            const QByteArray name = reader.nextString().toUtf8();
            const BusInterface::Property* property = ours ? findProperty(served, name.constData()) : nullptr;
            if (!property) {
                reply = dbus_message_new_error(message, DBUS_ERROR_UNKNOWN_PROPERTY, "No such property");
            } else {
                reply = dbus_message_new_method_return(message);
                MessageWriter writer(reply);
                writer.variant(property->signature, [&] { property->write(writer); });
            }
        } else if (same(member, "GetAll") && dbus_message_has_signature(message, "s")) {
            reply = dbus_message_new_method_return(message);
            MessageWriter writer(reply);
            writer.array("{sv}", [&] {
                if (!ours)
                    return;
                for (const BusInterface::Property& property : served.properties) {
                    writer.open(DBUS_TYPE_DICT_ENTRY);
                    writer << QString::fromLatin1(property.name);
                    writer.variant(property.signature, [&] { property.write(writer); });
                    writer.close();
                }
            });
        } else if (same(member, "Set")) {
            reply = dbus_message_new_error(message, DBUS_ERROR_PROPERTY_READ_ONLY, "Every property is read-only");
        } else {
            return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
        }
    } else if (served.name && (!interface || same(interface, served.name))) {
        const BusInterface::Method* method = findMethod(served, member);
        if (!method)
            return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
        if (!dbus_message_has_signature(message, method->in)) {
            reply = dbus_message_new_error(message, DBUS_ERROR_INVALID_ARGS,
                                           QByteArray("Expected arguments of type ").append(method->in).constData());
        } else {
            reply = dbus_message_new_method_return(message);
            MessageReader reader(message);
            MessageWriter writer(reply);
            method->call(reader, writer);
        }
    } else {
        return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
    }

    if (reply && !dbus_message_get_no_reply(message))
        dbus_connection_send(m_connection, reply, nullptr);
    if (reply)
        dbus_message_unref(reply);
    return DBUS_HANDLER_RESULT_HANDLED;
}

QByteArray BusConnection::introspection(const QString& path) const
{
    QByteArray xml = DBUS_INTROSPECT_1_0_XML_DOCTYPE_DECL_NODE "<node>\n";
    for (const auto& object : m_objects) {
        if (object->path != path || !object->interface.name)
            continue;
        const BusInterface& served = object->interface;
        xml += "  <interface name=\"" DBUS_INTERFACE_PROPERTIES "\">\n"
               "    <method name=\"Get\"><arg type=\"s\" direction=\"in\"/><arg type=\"s\" direction=\"in\"/>"
               "<arg type=\"v\" direction=\"out\"/></method>\n"
               "    <method name=\"GetAll\"><arg type=\"s\" direction=\"in\"/><arg type=\"a{sv}\" direction=\"out\"/>"
               "</method>\n"
               "  </interface>\n"
               "  <interface name=\"" DBUS_INTERFACE_INTROSPECTABLE "\">\n"
               "    <method name=\"Introspect\"><arg type=\"s\" direction=\"out\"/></method>\n"
               "  </interface>\n";
        xml += QByteArray("  <interface name=\"") + served.name + "\">\n";
        for (const BusInterface::Property& property : served.properties)
            xml += QByteArray("    <property name=\"") + property.name + "\" type=\"" + property.signature +
                   "\" access=\"read\"/>\n";
        for (const BusInterface::Method& method : served.methods) {
            xml += QByteArray("    <method name=\"") + method.name + "\">\n";
            appendArguments(xml, method.in, "in");
            appendArguments(xml, method.out, "out");
            xml += "    </method>\n";
        }
        for (const BusInterface::Signal& signal : served.emitted) {
            xml += QByteArray("    <signal name=\"") + signal.name + "\">\n";
            appendArguments(xml, signal.signature, nullptr);
            xml += "    </signal>\n";
        }
        xml += "  </interface>\n";
    }
    // Children one level down.
    const QString prefix = path.endsWith(QLatin1Char('/')) ? path : path + QLatin1Char('/');
    QStringList children;
    for (const auto& object : m_objects)
        if (object->path.startsWith(prefix) && object->path != path) {
            const QString child = object->path.mid(prefix.size()).section(QLatin1Char('/'), 0, 0);
            if (!children.contains(child))
                children << child;
        }
    for (const QString& child : children)
        xml += "  <node name=\"" + child.toUtf8() + "\"/>\n";
    xml += "</node>\n";
    return xml;
}

QSocketNotifier* BusConnection::notifierFor(DBusWatch* watch, unsigned flag)
{
    const auto type = flag == DBUS_WATCH_READABLE ? QSocketNotifier::Read : QSocketNotifier::Write;
    auto* notifier = new QSocketNotifier(dbus_watch_get_unix_fd(watch), type, this);
    connect(notifier, &QSocketNotifier::activated, this, [this, watch, flag] {
        dbus_watch_handle(watch, flag);
        dispatch();
    });
    return notifier;
}

void BusConnection::dispatch()
{
    m_dispatchScheduled = false;
    QPointer<BusConnection> alive(this);
    while (alive && dbus_connection_dispatch(m_connection) == DBUS_DISPATCH_DATA_REMAINS) {
    }
}

void BusConnection::scheduleDispatch()
{
    if (m_dispatchScheduled)
        return;
    m_dispatchScheduled = true;
    QMetaObject::invokeMethod(this, &BusConnection::dispatch, Qt::QueuedConnection);
}

} // namespace pulsebar
