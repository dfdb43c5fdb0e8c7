#include "platform/linux/gui/portal_hot_key_backend.h"

#include "menubar/hot_key_recorder.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QTimer>

#include <array>
#include <utility>

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString shortcutsInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString requestInterface = QStringLiteral("org.freedesktop.portal.Request");

// One element of the a(sa{sv}) list that BindShortcuts takes and answers.
struct PortalShortcut {
    QString id;
    QVariantMap properties;
};

QDBusArgument& operator<<(QDBusArgument& arg, const PortalShortcut& s)
{
    arg.beginStructure();
    arg << s.id << s.properties;
    arg.endStructure();
    return arg;
}

const QDBusArgument& operator>>(const QDBusArgument& arg, PortalShortcut& s)
{
    arg.beginStructure();
    arg >> s.id >> s.properties;
    arg.endStructure();
    return arg;
}

} // namespace

Q_DECLARE_METATYPE(PortalShortcut)

namespace pulsebar {

namespace {

QString keyName(uint32_t keysym)
{
    static constexpr std::array<std::pair<uint32_t, const char*>, 12> names{{
        {0xff0d, "Return"}, {0x0020, "space"}, {0xff08, "BackSpace"}, {0xffff, "Delete"}, {0xff50, "Home"},
        {0xff57, "End"}, {0xff55, "Page_Up"}, {0xff56, "Page_Down"}, {0xff51, "Left"}, {0xff52, "Up"},
        {0xff53, "Right"}, {0xff54, "Down"},
    }};
    if (keysym >= 0xffbe && keysym < 0xffbe + 15)
        return QStringLiteral("F%1").arg(keysym - 0xffbe + 1);
    for (const auto& [sym, name] : names)
        if (sym == keysym)
            return QString::fromLatin1(name);
    return QString(QChar(char16_t(keysym)));
}

} // namespace

PortalHotKeyBackend::PortalHotKeyBackend()
{
    qDBusRegisterMetaType<PortalShortcut>();
    qDBusRegisterMetaType<QList<PortalShortcut>>();
    QDBusConnection::sessionBus().connect(portalService, portalPath, shortcutsInterface, QStringLiteral("Activated"),
                                          this, SLOT(activated(QDBusMessage)));
}

PortalHotKeyBackend::~PortalHotKeyBackend()
{
    closeSession();
}

bool PortalHotKeyBackend::isAvailable()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()->isServiceRegistered(portalService))
        return false;
    QDBusMessage get = QDBusMessage::createMethodCall(portalService, portalPath,
                                                      QStringLiteral("org.freedesktop.DBus.Properties"),
                                                      QStringLiteral("Get"));
    get << shortcutsInterface << QStringLiteral("version");
    return bus.call(get, QDBus::Block, 2000).type() == QDBusMessage::ReplyMessage;
}

QString PortalHotKeyBackend::trigger(const HotKey& key)
{
    QStringList parts;
    if (key.modifiers & HotKeyRecorder::controlKey)
        parts << QStringLiteral("CTRL");
    if (key.modifiers & HotKeyRecorder::altKey)
        parts << QStringLiteral("ALT");
    if (key.modifiers & HotKeyRecorder::shiftKey)
        parts << QStringLiteral("SHIFT");
    if (key.modifiers & HotKeyRecorder::superKey)
        parts << QStringLiteral("LOGO");
    parts << keyName(key.keyCode);
    return parts.join(QLatin1Char('+'));
}

bool PortalHotKeyBackend::grab(int id, const QString& identifier, const HotKey& key)
{
    m_entries[id] = Entry{identifier, key};
    scheduleBind();
    return true; // the desktop answers later
}

void PortalHotKeyBackend::ungrab(int id)
{
    if (m_entries.erase(id) > 0)
        scheduleBind();
}

void PortalHotKeyBackend::scheduleBind()
{
    if (m_bindScheduled)
        return;
    m_bindScheduled = true;
    QTimer::singleShot(0, this, [this] {
        m_bindScheduled = false;
        bind();
    });
}

QString PortalHotKeyBackend::requestPath(const QString& token) const
{
    QString sender = QDBusConnection::sessionBus().baseService().mid(1);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    return QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2").arg(sender, token);
}

QString PortalHotKeyBackend::nextToken()
{
    return QStringLiteral("pulsebar%1").arg(++m_tokenCounter);
}

// Portal calls answer with a request object whose Response signal carries the result; the signal is
// subscribed to before the call, so an answer that comes at once is not missed.
bool PortalHotKeyBackend::request(const QString& token, const QDBusMessage& call, const char* responseSlot)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.connect(portalService, requestPath(token), requestInterface, QStringLiteral("Response"), this, responseSlot);
    return bus.call(call, QDBus::Block, 5000).type() == QDBusMessage::ReplyMessage;
}

void PortalHotKeyBackend::closeSession()
{
    if (m_session.isEmpty())
        return;
    QDBusConnection::sessionBus().call(QDBusMessage::createMethodCall(
                                           portalService, m_session, QStringLiteral("org.freedesktop.portal.Session"),
                                           QStringLiteral("Close")),
                                       QDBus::NoBlock);
    m_session.clear();
}

// A new session per change: the portal binds a session's shortcuts once.
void PortalHotKeyBackend::bind()
{
    closeSession();
    if (m_entries.empty())
        return;
    const QString token = nextToken();
    QDBusMessage create =
        QDBusMessage::createMethodCall(portalService, portalPath, shortcutsInterface, QStringLiteral("CreateSession"));
    create << QVariantMap{{QStringLiteral("handle_token"), token},
                          {QStringLiteral("session_handle_token"), token}};
    if (!request(token, create, SLOT(sessionCreated(QDBusMessage))))
        for (const auto& [id, entry] : m_entries)
            if (onRefused)
                onRefused(id);
}

void PortalHotKeyBackend::sessionCreated(const QDBusMessage& response)
{
    const QList<QVariant> args = response.arguments();
    const uint code = args.value(0).toUInt();
    const QVariantMap results = qdbus_cast<QVariantMap>(args.value(1));
    m_session = results.value(QStringLiteral("session_handle")).toString();
    if (code != 0 || m_session.isEmpty()) {
        for (const auto& [id, entry] : m_entries)
            if (onRefused)
                onRefused(id);
        return;
    }
    QList<PortalShortcut> shortcuts;
    for (const auto& [id, entry] : m_entries)
        shortcuts.append({entry.identifier,
                          {{QStringLiteral("description"), QStringLiteral("Pulsebar: ") + entry.identifier},
                           {QStringLiteral("preferred_trigger"), trigger(entry.key)}}});
    const QString token = nextToken();
    QDBusMessage bindCall =
        QDBusMessage::createMethodCall(portalService, portalPath, shortcutsInterface, QStringLiteral("BindShortcuts"));
    bindCall << QVariant::fromValue(QDBusObjectPath(m_session)) << QVariant::fromValue(shortcuts) << QString()
             << QVariantMap{{QStringLiteral("handle_token"), token}};
    if (!request(token, bindCall, SLOT(shortcutsBound(QDBusMessage))))
        for (const auto& [id, entry] : m_entries)
            if (onRefused)
                onRefused(id);
}

std::map<QString, int> PortalHotKeyBackend::idsByShortcut() const
{
    std::map<QString, int> out;
    for (const auto& [id, entry] : m_entries)
        out[entry.identifier] = id;
    return out;
}

void PortalHotKeyBackend::shortcutsBound(const QDBusMessage& response)
{
    const QList<QVariant> args = response.arguments();
    const uint code = args.value(0).toUInt();
    const QVariantMap results = qdbus_cast<QVariantMap>(args.value(1));
    std::map<QString, int> pending = idsByShortcut();
    if (code == 0) {
        const auto bound = qdbus_cast<QList<PortalShortcut>>(results.value(QStringLiteral("shortcuts")));
        for (const PortalShortcut& s : bound)
            pending.erase(s.id);
    }
    for (const auto& [identifier, id] : pending)
        if (onRefused)
            onRefused(id);
}

void PortalHotKeyBackend::activated(const QDBusMessage& signal)
{
    const QList<QVariant> args = signal.arguments();
    if (args.size() < 2 || qdbus_cast<QDBusObjectPath>(args.value(0)).path() != m_session)
        return;
    const auto ids = idsByShortcut();
    if (const auto it = ids.find(args.value(1).toString()); it != ids.end() && onPressed)
        onPressed(it->second);
}

} // namespace pulsebar
