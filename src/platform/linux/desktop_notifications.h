#pragma once

#include <QString>

namespace pulsebar::DesktopNotifications {

// The freedesktop notification service (org.freedesktop.Notifications) on the session bus.
inline const QString serviceName = QStringLiteral("org.freedesktop.Notifications");

// True when the service is on the session bus, or the bus can start it.
bool isServiceAvailable();

// Asks the service to show a notification now, with Pulsebar's name and icon and the default
// message sound. The reply is not awaited.
void show(const QString& title, const QString& body);

} // namespace pulsebar::DesktopNotifications
