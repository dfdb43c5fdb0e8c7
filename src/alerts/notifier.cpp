#include "alerts/notifier.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QStringList>
#include <QVariantMap>

#include <cstdio>

namespace pulsebar {

namespace {

const QString notificationsPath = QStringLiteral("/org/freedesktop/Notifications");
const QString notificationsInterface = QStringLiteral("org.freedesktop.Notifications");
// A themed name from the freedesktop icon and sound naming specifications, present in every theme.
const QString iconName = QStringLiteral("utilities-system-monitor");
const QString defaultSound = QStringLiteral("message-new-instant");

void logLine(const QString& line)
{
    std::fprintf(stderr, "%s\n", line.toUtf8().constData());
    std::fflush(stderr);
}

} // namespace

Notifier& Notifier::shared()
{
    static Notifier notifier;
    return notifier;
}

bool Notifier::isAvailable() const
{
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    const QDBusConnectionInterface* daemon = bus.interface();
    if (!daemon)
        return false;
    if (daemon->isServiceRegistered(serviceName).value())
        return true;
    // Many notification daemons are started by the bus on the first call instead of running beforehand.
    const QDBusReply<QStringList> activatable = daemon->activatableServiceNames();
    return activatable.isValid() && activatable.value().contains(serviceName);
}

void Notifier::post(const QString& title, const QString& body)
{
    if (!isAvailable()) {
        if (!m_toldUnavailable) {
            m_toldUnavailable = true;
            logLine(unavailableText);
        }
        logLine(QStringLiteral("Pulsebar notification: %1 — %2").arg(title, body));
        return;
    }
    QDBusMessage call =
        QDBusMessage::createMethodCall(serviceName, notificationsPath, notificationsInterface, QStringLiteral("Notify"));
    const QVariantMap hints{{QStringLiteral("sound-name"), defaultSound},
                            {QStringLiteral("desktop-entry"), QStringLiteral("pulsebar")}};
    // replaces_id 0 asks the service for a fresh identifier; expire_timeout -1 leaves the time on
    // screen to the desktop.
    call << QStringLiteral("Pulsebar") << quint32(0) << iconName << title << body << QStringList() << hints
         << qint32(-1);
    // The reply is not awaited: posting never blocks a tick and never reports an error to the user.
    QDBusConnection::sessionBus().asyncCall(call);
}

} // namespace pulsebar
