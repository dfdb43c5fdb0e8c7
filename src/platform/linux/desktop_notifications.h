#pragma once

#include <QString>

#include <functional>

namespace pulsebar::DesktopNotifications {

// The freedesktop notification service (org.freedesktop.Notifications) on the session bus.
inline const QString serviceName = QStringLiteral("org.freedesktop.Notifications");

// True when the service is on the session bus, or the bus can start it.
bool isServiceAvailable();

// A button of a notification: its text, and what happens when it is chosen.
struct Button {
    QString title;
    std::function<void()> chosen;
};

// Asks the service to show a notification now, with Pulsebar's name and icon and the default
// message sound, and at most one button. The reply is not awaited; the button's function runs when
// the service reports it chosen (on the main thread), and is forgotten when the notification closes.
void show(const QString& title, const QString& body, const Button& button = {});

} // namespace pulsebar::DesktopNotifications
