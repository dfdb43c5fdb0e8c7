#include "platform/linux/desktop_notifications.h"

#include "core/app_id.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QStandardPaths>
#include <QStringList>
#include <QVariantMap>

namespace pulsebar::DesktopNotifications {

namespace {

const QString notificationsPath = QStringLiteral("/org/freedesktop/Notifications");
const QString notificationsInterface = QStringLiteral("org.freedesktop.Notifications");
// Themed names from the freedesktop icon and sound naming specifications, present in every theme.
const QString fallbackIconName = QStringLiteral("utilities-system-monitor");
const QString defaultSound = QStringLiteral("message-new-instant");

// The application's own icon once it is installed; run from a build folder, the theme's monitor icon.
QString iconName()
{
    static const QString name =
        QStandardPaths::locate(QStandardPaths::GenericDataLocation,
                               QStringLiteral("icons/hicolor/scalable/apps/") + applicationId + QStringLiteral(".svg"))
                .isEmpty()
            ? fallbackIconName
            : applicationId;
    return name;
}

} // namespace

bool isServiceAvailable()
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

void show(const QString& title, const QString& body)
{
    QDBusMessage call =
        QDBusMessage::createMethodCall(serviceName, notificationsPath, notificationsInterface, QStringLiteral("Notify"));
    const QVariantMap hints{{QStringLiteral("sound-name"), defaultSound},
                            {QStringLiteral("desktop-entry"), applicationId}};
    // replaces_id 0 asks the service for a fresh identifier; expire_timeout -1 leaves the time on
    // screen to the desktop.
    call << QStringLiteral("Pulsebar") << quint32(0) << iconName() << title << body << QStringList() << hints
         << qint32(-1);
    // Posting never blocks a tick and never reports an error to the user.
    QDBusConnection::sessionBus().asyncCall(call);
}

} // namespace pulsebar::DesktopNotifications
