#pragma once

#include <QSet>
#include <QString>

#include <cstdint>
#include <optional>

namespace pulsebar {

// User actions on one process of the list.
namespace ProcessActions {

// Names that are never offered for force quit: killing them ends the session or the system.
const QSet<QString>& protectedNames();

// A process may be force-quit from the list unless it is this program or carries a protected name.
bool canForceQuit(int32_t pid, const QString& name);

// Where a process lives: the application bundle folder when the executable sits inside one
// ("/opt/Foo.app/Contents/MacOS/Foo" -> "/opt/Foo.app"), else the executable itself.
std::optional<QString> locationFromExecutable(const QString& executablePath);
std::optional<QString> location(int32_t pid);

// The texts of the confirmation the process list shows before a force quit.
QString forceQuitMessage(const QString& name); // Force quit “name”?
QString forceQuitInformativeText();            // You will lose any unsaved changes.
QString forceQuitButton();                     // Force Quit
QString cancelButton();                        // Cancel

// Sends SIGKILL; false when the signal could not be delivered. Ask first.
bool forceTerminate(int32_t pid);
// Reveals location(of: pid) in the file manager; nothing when there is no location.
void showInFinder(int32_t pid);
// Starts the desktop's system monitor; nothing when none is installed.
void openActivityMonitor();

} // namespace ProcessActions

} // namespace pulsebar
