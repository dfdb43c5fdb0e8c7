#pragma once

#include <QDateTime>
#include <QString>
#include <QTimeZone>

#include <optional>

namespace pulsebar::Fmt {

// Every number the user reads goes through these, so one quantity reads the same everywhere.
// Digits always use the C locale's decimal point.

QString percent(double value);                          // 42%
QString bytes(double value, double base);               // 512 B, 1.5 KB, 120 MB (base 1000 or 1024)
QString rate(double bytesPerSecond, bool bits);         // 800 b/s, 12.5 Mb/s, 340 KB/s
QString number(double value, int decimals);             // printf-style fixed decimals
QString duration(double seconds);                       // 45m, 3h 5m, 2d 0h 7m
QString time(const std::optional<QDateTime>& date, const QTimeZone& timeZone); // locale short time, "—" when absent
QString dateTime(const std::optional<QDateTime>& date, const QTimeZone& timeZone); // locale short date and time
QString compass(double degrees);                        // N, NNE, NE, … the nearest of 16 points

} // namespace pulsebar::Fmt
