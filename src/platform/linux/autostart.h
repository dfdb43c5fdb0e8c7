#pragma once

#include <QString>

namespace pulsebar::Autostart {

// Start at login: an XDG autostart entry, $XDG_CONFIG_HOME/autostart/APP_ID.desktop, which every
// freedesktop session (GNOME, KDE Plasma, Xfce, ...) starts when the user logs in.
QString entryPath();

// True when the entry exists and is not switched off inside (Hidden=true or X-GNOME-Autostart-enabled=false,
// as the desktops' own start-up settings leave it).
bool isEnabled();

// Writes the entry launching `executable`, or removes it. Answers a sentence for the user on failure,
// an empty string on success.
QString setEnabled(bool enabled, const QString& executable);

// The entry's text: a desktop entry of type Application with the executable quoted for Exec.
QString entryText(const QString& executable);

} // namespace pulsebar::Autostart
