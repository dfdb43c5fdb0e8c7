#pragma once

#include <QByteArray>
#include <QDateTime>

#include <ctime>

namespace pulsebar::test {

// The calendar tests write their expectations in London time (its change to summer time is on the
// last Sunday of March, New York's two weeks earlier). The zone is set once, before any test runs.
inline const bool londonTimeZone = [] {
    qputenv("TZ", "Europe/London");
    tzset();
    return true;
}();

// "yyyy-MM-dd HH:mm" in London time.
inline QDateTime londonTime(const QString& text)
{
    return QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd HH:mm"));
}

} // namespace pulsebar::test
