#pragma once

#include <QString>

#include <optional>
#include <utility>

namespace pulsebar {

// What the desktop's tray looks like, as far as it can be told from outside.
namespace TrayDesktop {

// The desktop names of XDG_CURRENT_DESKTOP ("ubuntu:GNOME", "KDE", "XFCE").
QString currentDesktop();

// KDE Plasma shows StatusNotifierItems as icons only; the Ayatana-style hosts (GNOME's AppIndicator
// extension, Xfce, MATE, Budgie, Cinnamon) show the item's label beside its icon.
bool showsLabels(const QString& desktop);
// GNOME's AppIndicator extension puts each newly registered item at the start of its row.
bool addsItemsFirst(const QString& desktop);

// Whether the panel is dark, where the desktop settles it: GNOME's top bar is always dark; Plasma's
// panel follows the Plasma theme (`plasmarc`, given as text) or else the colour scheme (`kdeglobals`).
// Nullopt where the panel follows the application theme.
std::optional<bool> panelIsDark(const QString& desktop, const QString& plasmarc, const QString& kdeglobals);

// The same, reading the user's KDE files.
std::optional<bool> panelIsDark();

// True when a display server is there to connect to (X11 or Wayland), or Qt was told to draw without
// one (the offscreen platform).
bool sessionHasDisplay();
// The one sentence the tray application prints when it is started without a display.
QString noDisplayMessage();

// How to get a tray on this desktop, told once when none is there: a title and a body.
std::pair<QString, QString> noTrayAdvice(const QString& desktop);

} // namespace TrayDesktop

} // namespace pulsebar
