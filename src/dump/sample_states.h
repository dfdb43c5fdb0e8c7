#pragma once

#include "menubar/menu_bar_content.h"

#include <QString>

#include <vector>

namespace pulsebar {

// A machine state the diagnostics dump draws, with the appearance it is drawn in.
struct SampleState {
    QString name;
    HubSnapshot readings;
    bool monochrome = false;
    bool dark = false;
};

// idle, busy, hot, charging, no-battery, offline, monochrome, dark and light; fixed values and a fixed
// clock, so two dumps of one build are identical.
std::vector<SampleState> sampleStates();

} // namespace pulsebar
