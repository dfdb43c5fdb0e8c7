#pragma once

#include "menubar/menu_bar_content.h"
#include "panels/panel_snapshot.h"

#include <QString>

#include <vector>

namespace pulsebar {

// A machine state the diagnostics dump draws, with the appearance it is drawn in.
struct SampleState {
    QString name;
    HubSnapshot readings;
    bool monochrome = false;
    bool dark = false;
    PanelSnapshot::Weather weather{};       // what the weather service holds
    std::optional<WeatherLocation> place{}; // where sun and moon are computed for; none while waiting
    std::shared_ptr<const CalendarState> calendar = std::make_shared<const CalendarState>(); // no access
};

// idle, busy, hot, charging, no-battery, offline, monochrome, dark and light; fixed values and a fixed
// clock, so two dumps of one build are identical.
std::vector<SampleState> sampleStates();
// The calendars of the sample states at `now`: a busy day (an all-day event, a meeting under way with a
// video call, more later and on the next days), a day whose events are over, and an empty day.
enum class SampleDay { busy, over, empty };
std::shared_ptr<const CalendarState> sampleCalendar(SampleDay day, double now);
// The zone the sample states' clock times read in.
QTimeZone sampleTimeZone();

} // namespace pulsebar
