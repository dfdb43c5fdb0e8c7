#pragma once

#include "monitors/process_monitor.h"

#include <QString>

#include <functional>

class QMenu;

namespace pulsebar::ProcessRowActions {

// Answers true when the user chose "Force Quit" in the alert "Force quit “NAME”?".
using Confirm = std::function<bool(const QString& message, const QString& informativeText)>;

// Asks, then sends the kill. Nothing is asked or sent for a process that may not be force-quit (this
// program, a protected name); false then, and when the user cancels or the signal cannot be delivered.
bool forceQuit(const ProcessSample& process, const Confirm& confirm);

// The modal alert with "Force Quit" and "Cancel".
bool confirmWithAlert(const QString& message, const QString& informativeText);

// "Quit" (when allowed), "Show in File Manager", "Open System Monitor". `beforeAlert` runs before the
// alert appears (the panel closes, so the alert is not hidden under it).
void fillMenu(QMenu& menu, const ProcessSample& process, bool canQuit, const std::function<void()>& beforeAlert);

} // namespace pulsebar::ProcessRowActions
