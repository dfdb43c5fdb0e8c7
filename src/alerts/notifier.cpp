#include "alerts/notifier.h"

#include "platform/linux/desktop_notifications.h"

#include <cstdio>

namespace pulsebar {

namespace {

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
    return DesktopNotifications::isServiceAvailable();
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
    DesktopNotifications::show(title, body);
}

void Notifier::post(const Notification& notification, const NotificationAction& action)
{
    if (!isAvailable()) {
        post(notification);
        return;
    }
    DesktopNotifications::show(notification.title, notification.body, {action.title, action.run});
}

} // namespace pulsebar
