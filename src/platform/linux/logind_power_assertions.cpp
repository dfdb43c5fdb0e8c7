#include "platform/linux/logind_power_assertions.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>

#include <fcntl.h>
#include <unistd.h>

namespace pulsebar {

namespace {
const QString appName = QStringLiteral("Pulsebar");
} // namespace

LogindPowerAssertions::LogindPowerAssertions() = default;

QDBusConnection LogindPowerAssertions::system()
{
    if (!m_system)
        m_system = QDBusConnection::systemBus();
    return *m_system;
}

QDBusConnection LogindPowerAssertions::session()
{
    if (!m_session)
        m_session = QDBusConnection::sessionBus();
    return *m_session;
}

LogindPowerAssertions::LogindPowerAssertions(QDBusConnection systemBus, QDBusConnection sessionBus)
    : m_system(std::move(systemBus)), m_session(std::move(sessionBus))
{
}

LogindPowerAssertions::~LogindPowerAssertions()
{
    while (!m_held.empty())
        release(m_held.begin()->first);
}

std::optional<int> LogindPowerAssertions::inhibitSleep(const QString& name)
{
    QDBusConnection bus = system();
    if (!bus.isConnected())
        return std::nullopt;
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
        QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("Inhibit"));
    call << QStringLiteral("sleep:idle") << appName << name << QStringLiteral("block");
    const QDBusMessage reply = bus.call(call, QDBus::Block, callTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return std::nullopt;
    const auto descriptor = qdbus_cast<QDBusUnixFileDescriptor>(reply.arguments().first());
    if (!descriptor.isValid())
        return std::nullopt;
    // The message owns its copy of the descriptor; the lock lives as long as ours stays open.
    const int fd = ::fcntl(descriptor.fileDescriptor(), F_DUPFD_CLOEXEC, 3);
    if (fd < 0)
        return std::nullopt;
    return fd;
}

std::optional<uint> LogindPowerAssertions::inhibitScreenSaver(const QString& name)
{
    QDBusConnection bus = session();
    if (!bus.isConnected())
        return std::nullopt;
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("/org/freedesktop/ScreenSaver"),
        QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("Inhibit"));
    call << appName << name;
    const QDBusMessage reply = bus.call(call, QDBus::Block, callTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return std::nullopt;
    return reply.arguments().first().toUInt();
}

std::optional<int> LogindPowerAssertions::create(bool keepDisplayOn, const QString& name)
{
    const std::optional<int> fd = inhibitSleep(name);
    if (!fd)
        return std::nullopt;
    Held held{*fd, std::nullopt};
    if (keepDisplayOn) {
        held.screenSaverCookie = inhibitScreenSaver(name);
        if (!held.screenSaverCookie) {
            ::close(*fd);
            return std::nullopt;
        }
    }
    const int id = m_next++;
    m_held[id] = held;
    return id;
}

void LogindPowerAssertions::release(int assertion)
{
    const auto it = m_held.find(assertion);
    if (it == m_held.end())
        return;
    ::close(it->second.fd);
    if (it->second.screenSaverCookie) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("/org/freedesktop/ScreenSaver"),
            QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("UnInhibit"));
        call << *it->second.screenSaverCookie;
        // Waited for, so that the display may sleep again as soon as this returns (and before exit).
        session().call(call, QDBus::Block, callTimeoutMs);
    }
    m_held.erase(it);
}

} // namespace pulsebar
