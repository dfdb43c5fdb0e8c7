#pragma once

#include <QString>

#include <functional>

namespace pulsebar {

// One desktop notification: what the user reads in the banner.
struct Notification {
    QString title;
    QString body;
    bool operator==(const Notification&) const = default;
};

// A button on a notification, and what choosing it does. Desktops without buttons show the
// notification without it.
struct NotificationAction {
    QString title;
    std::function<void()> run;
};

// The one way anything posts a desktop notification: the freedesktop notification service
// (org.freedesktop.Notifications) on the session bus. Without that service a post becomes a line on
// standard error instead, so nothing is ever lost silently and nothing reaches the user as an error.
// Main thread only. Tests replace it with a recorder by deriving from it.
class Notifier {
public:
    // Shown by the settings when isAvailable() is false.
    static inline const QString unavailableText = QStringLiteral("Notifications need a desktop notification service.");
    static inline const QString testButtonTitle = QStringLiteral("Send Test Notification");
    static inline const Notification testNotification{QStringLiteral("Pulsebar"),
                                                      QStringLiteral("Notifications are working.")};

    Notifier() = default;
    virtual ~Notifier() = default;
    Notifier(const Notifier&) = delete;
    Notifier& operator=(const Notifier&) = delete;

    // Created once, on first use.
    static Notifier& shared();

    // True when a notification service is on the session bus, or can be started by it.
    virtual bool isAvailable() const;
    // Delivers now; the reply of the service is never awaited.
    virtual void post(const QString& title, const QString& body);

    void post(const Notification& notification) { post(notification.title, notification.body); }
    // Delivers now with one button; `action.run` is called on the main thread if the user chooses it.
    // Without a notification service it is a log line like any other post.
    virtual void post(const Notification& notification, const NotificationAction& action);
    // What the settings' "Send Test Notification" button does.
    void sendTestNotification() { post(testNotification); }

private:
    bool m_toldUnavailable = false;
};

} // namespace pulsebar
