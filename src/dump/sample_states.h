#pragma once

#include "menubar/menu_bar_content.h"

#include <QString>

#include <vector>

namespace pulsebar {

// A machine state the diagnostics dump draws, with the appearance it is drawn in.
struct SampleState {
    QString name;
    MenuBarReadings readings;
    bool monochrome = false;
    bool dark = false;
};

// idle, busy, hot, charging, no-battery, offline, monochrome, dark and light; fixed values and a fixed
// clock, so two dumps of one build are identical.
std::vector<SampleState> sampleStates();

} // namespace pulsebar

#include <QImage>

namespace pulsebar {

// A panel in a sample state, drawn as the dump shows it.
struct PanelSample {
    QString name; // the file name without extension, e.g. "weather-night"
    QImage image;
};

// The weather panel by day, by night, with an unknown code, loading, waiting for a place and failed;
// the astronomy panel for a mid-latitude place and for one in polar summer.
std::vector<PanelSample> panelSamples(double devicePixelRatio);

} // namespace pulsebar
