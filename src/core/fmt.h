#pragma once

#include <QDateTime>
#include <QString>
#include <QTimeZone>

#include <optional>

namespace pulsebar {
enum class TempUnit;
enum class WindUnit;
} // namespace pulsebar

namespace pulsebar::Fmt {

// Every number the user reads goes through these, so one quantity reads the same everywhere.
// Digits always use the C locale's decimal point.

QString percent(double value);                          // 42%
QString bytes(double value, double base);               // 512 B, 1.5 KB, 120 MB (base 1000 or 1024)
QString rate(double bytesPerSecond, bool bits);         // 800 b/s, 12.5 Mb/s, 340 KB/s
QString number(double value, int decimals);             // printf-style fixed decimals
QString wholeOrTenths(double value);                    // 80, 80.5: no decimals when whole, else one
QString duration(double seconds);                       // 45m, 3h 5m, 2d 0h 7m
QString minutes(double seconds);                        // 2 min, 1 h 5 min, 3 h: at least one minute, whole hours from two
QString hoursMinutes(int minutes);                      // 1:35, 0:05
QString temperature(TempUnit unit, std::optional<double> celsius, int decimals); // 23°, 297 K, "—" when absent
QString wind(WindUnit unit, double kmh);                // 18 km/h, 11 mph, 5 m/s, 10 kn
QString time(const std::optional<QDateTime>& date, const QTimeZone& timeZone); // locale short time, "—" when absent
QString dateTime(const std::optional<QDateTime>& date, const QTimeZone& timeZone); // locale short date and time
QString day(const QDate& date);                         // Monday 16 March, in the locale's names
QString month(const QDate& date);                       // March 2026
QString compass(double degrees);                        // N, NNE, NE, … the nearest of 16 points

} // namespace pulsebar::Fmt
