#include "platform/linux/desktop_notifications.h"

#include "core/app_id.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QObject>
#include <QStandardPaths>
#include <QStringList>
#include <QVariantMap>

#include <functional>
#include <map>

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

// The key the service reports back when the notification's one button is chosen.
const QString buttonKey = QStringLiteral("pulsebar-action");

// Keeps the function of every notification on screen that has a button, by the id the service gave
// it, and runs it when the service says the button was chosen.
class ButtonListener : public QObject {
    Q_OBJECT
public:
    // Never destroyed: it may outlive the application object and the bus connection it listens on.
    static ButtonListener& shared()
    {
        static auto* listener = new ButtonListener;
        return *listener;
    }

    void add(uint id, std::function<void()> chosen) { m_waiting[id] = std::move(chosen); }

public Q_SLOTS:
    void actionInvoked(uint id, const QString& key)
    {
        const auto found = m_waiting.find(id);
        if (found == m_waiting.end() || key != buttonKey)
            return;
        const std::function<void()> chosen = std::move(found->second);
        m_waiting.erase(found);
        if (chosen)
            chosen();
    }
    void closed(uint id, uint) { m_waiting.erase(id); }

private:
    // Listening starts before the first notification with a button is sent, so no answer to it is missed.
    ButtonListener()
    {
        QDBusConnection bus = QDBusConnection::sessionBus();
        bus.connect(QString(), notificationsPath, notificationsInterface, QStringLiteral("ActionInvoked"), this,
                    SLOT(actionInvoked(uint, QString)));
        bus.connect(QString(), notificationsPath, notificationsInterface, QStringLiteral("NotificationClosed"), this,
                    SLOT(closed(uint, uint)));
    }

    std::map<uint, std::function<void()>> m_waiting;
};

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

void show(const QString& title, const QString& body, const Button& button)
{
    QDBusMessage call =
        QDBusMessage::createMethodCall(serviceName, notificationsPath, notificationsInterface, QStringLiteral("Notify"));
    const QVariantMap hints{{QStringLiteral("sound-name"), defaultSound},
                            {QStringLiteral("desktop-entry"), applicationId}};
    // replaces_id 0 asks the service for a fresh identifier; expire_timeout -1 leaves the time on
    // screen to the desktop.
    const QStringList actions = button.title.isEmpty() ? QStringList() : QStringList{buttonKey, button.title};
    call << QStringLiteral("Pulsebar") << quint32(0) << iconName() << title << body << actions << hints
         << qint32(-1);
    // Posting never blocks a tick and never reports an error to the user.
    const bool hasButton = !actions.isEmpty() && button.chosen;
    if (hasButton)
        ButtonListener::shared();
    const QDBusPendingCall pending = QDBusConnection::sessionBus().asyncCall(call);
    if (!hasButton)
        return;
    // The button's function waits for the id the service gives the notification.
    auto* watcher = new QDBusPendingCallWatcher(pending);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, [chosen = button.chosen](QDBusPendingCallWatcher* w) {
        const QDBusPendingReply<uint> reply = *w;
        if (reply.isValid())
            ButtonListener::shared().add(reply.value(), chosen);
        w->deleteLater();
    });
}

} // namespace pulsebar::DesktopNotifications

#include "desktop_notifications.moc"
