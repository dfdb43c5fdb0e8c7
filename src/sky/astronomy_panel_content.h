#pragma once

#include "sky/astronomy_monitor.h"
#include "weather/weather_panel_content.h"

#include <QTimeZone>

namespace pulsebar {

// What the astronomy panel shows, as finished texts.
struct AstronomyPanelView {
    QString title;   // the place, or "Sun & Moon" while waiting
    QString message; // set while there is no place yet
    QString detail;
    std::vector<InfoRow> sun;      // sunrise, sunset, day length, solar noon
    std::vector<InfoRow> twilight; // dawns and dusks, blue and golden hours
    std::vector<InfoRow> position; // the sun's azimuth and altitude
    QString moonSymbol;
    std::vector<InfoRow> moon;     // phase and illumination, rise and set, next new and full moon
};

namespace AstronomyPanelContent {

AstronomyPanelView view(const std::optional<AstronomyMonitor::Snapshot>& snapshot, const QTimeZone& zone);
// "Waxing Gibbous" and the like, for a phase 0…1, in the bands of the phase symbols.
QString phaseName(double phase);

} // namespace AstronomyPanelContent

} // namespace pulsebar
