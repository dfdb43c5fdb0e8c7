#pragma once

#include "core/config.h"

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QTimeZone>

#include <vector>

namespace pulsebar::WorldClock {

// A configured clock whose zone this computer knows.
struct Clock {
    QString id; // the zone identifier as configured ("America/New_York")
    QTimeZone zone;
};

// The clocks of `ids` in order; identifiers the time-zone database does not know are left out.
std::vector<Clock> clocks(const QStringList& ids);

// How far `zone` is from `local` at `at`: "Same time", "+9 h", "−5.5 h", "+5.8 h" (5 h 45 min).
QString offset(const QTimeZone& zone, const QDateTime& at, const QTimeZone& local = QTimeZone::systemTimeZone());

// "New York" for "America/New_York": the identifier's last part, underscores as spaces.
QString city(const QString& zoneId);

// How a clock is named: its city, or its zone's abbreviation at `at` ("EST", "JST"); the city when the
// zone is unknown.
QString label(const QString& zoneId, ClockLabel style, const QDateTime& at);

// Daytime on the clock's face: from 06:00 to 17:59 in the zone.
bool isDaytime(const QTimeZone& zone, const QDateTime& at);

} // namespace pulsebar::WorldClock
