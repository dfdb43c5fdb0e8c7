#pragma once

#include "dump/sample_states.h"

#include <QDir>
#include <QString>

namespace pulsebar {

// What a Linux tray shows of a sample state: every module in every style as the square icons at 22 and
// 16 px (for a tray with labels, and with the value in the icon for trays without), the label texts,
// and two bars of the default items: a dark one with labels (GNOME) and a light one without.
namespace TrayDump {

// Writes STATE/tray-icons.png, STATE/tray-labels.txt, STATE/tray-bar-dark.png and
// STATE/tray-bar-light.png. Returns false when a file cannot be written.
bool write(const QDir& folder, const SampleState& state);

// The part of index.html that shows them.
QString html(const SampleState& state);

} // namespace TrayDump

} // namespace pulsebar
