#pragma once

#include <QDateTime>
#include <QString>

namespace pulsebar::FuzzyClock {

// The time of day in words, to the nearest five minutes: "twenty five past three", "quarter to
// twelve", "midnight". Uses the hour and minute of `date` in its own time zone.
QString string(const QDateTime& date);

} // namespace pulsebar::FuzzyClock
