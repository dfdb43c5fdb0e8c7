#include "sky/astronomy_panel_content.h"

#include "core/fmt.h"

#include <QLocale>

#include <cmath>
#include <numbers>

namespace pulsebar::AstronomyPanelContent {

namespace {

constexpr double degrees = 180.0 / std::numbers::pi;

std::optional<QDateTime> dateTime(const std::optional<double>& seconds)
{
    if (!seconds)
        return std::nullopt;
    return QDateTime::fromMSecsSinceEpoch(qint64(*seconds * 1000.0), QTimeZone::utc());
}

QString time(const std::optional<double>& seconds, const QTimeZone& zone) { return Fmt::time(dateTime(seconds), zone); }

QString span(const std::optional<double>& from, const std::optional<double>& to, const QTimeZone& zone)
{
    if (!from || !to)
        return QStringLiteral("—");
    return time(from, zone) + QStringLiteral(" – ") + time(to, zone);
}

QString dayAndTime(const std::optional<double>& seconds, const QTimeZone& zone)
{
    const auto at = dateTime(seconds);
    if (!at)
        return QStringLiteral("—");
    return QLocale().toString(at->toTimeZone(zone).date(), QStringLiteral("ddd d MMM")) + QStringLiteral(", ")
           + Fmt::time(at, zone);
}

QString dayLength(const AstronomyMonitor::Snapshot& s)
{
    if (const auto length = s.dayLength())
        return Fmt::duration(*length);
    // Without a sunrise and sunset the sun stays up or down all day: its height at noon tells which.
    const auto noon = SunCalc::sunPosition(s.sun.solarNoon, s.location.latitude, s.location.longitude);
    return noon.altitude > 0 ? QStringLiteral("The sun does not set") : QStringLiteral("The sun does not rise");
}

} // namespace

QString phaseName(double phase)
{
    // Named after the symbol, so name and picture always agree on the band.
    QString name = SunCalc::phaseSymbol(phase).mid(QStringLiteral("moonphase.").size());
    QStringList words = name.split(QLatin1Char('.'));
    for (QString& word : words)
        word[0] = word[0].toUpper();
    return words.join(QLatin1Char(' '));
}

AstronomyPanelView view(const std::optional<AstronomyMonitor::Snapshot>& snapshot, const QTimeZone& zone)
{
    AstronomyPanelView v;
    if (!snapshot) {
        v.title = QStringLiteral("Sun & Moon");
        v.message = QStringLiteral("Waiting for location");
        v.detail = QStringLiteral("Set a location in Settings › Weather, or wait for it to be detected.");
        return v;
    }
    const AstronomyMonitor::Snapshot& s = *snapshot;
    const auto event = [&](const char* name) { return s.sun.event(QString::fromLatin1(name)); };
    v.title = s.location.name;
    v.sun = {{QStringLiteral("Sunrise"), time(event("sunrise"), zone)},
             {QStringLiteral("Sunset"), time(event("sunset"), zone)},
             {QStringLiteral("Day length"), dayLength(s)},
             {QStringLiteral("Solar noon"), time(s.sun.solarNoon, zone)}};
    v.twilight = {{QStringLiteral("Civil dawn"), time(event("civilDawn"), zone)},
                  {QStringLiteral("Civil dusk"), time(event("civilDusk"), zone)},
                  {QStringLiteral("Nautical dawn"), time(event("nauticalDawn"), zone)},
                  {QStringLiteral("Nautical dusk"), time(event("nauticalDusk"), zone)},
                  {QStringLiteral("Astronomical dawn"), time(event("astronomicalDawn"), zone)},
                  {QStringLiteral("Astronomical dusk"), time(event("astronomicalDusk"), zone)},
                  {QStringLiteral("Morning blue hour"), span(event("civilDawn"), event("blueHourEnd"), zone)},
                  {QStringLiteral("Evening blue hour"), span(event("blueHourStart"), event("civilDusk"), zone)},
                  {QStringLiteral("Morning golden hour"), span(event("sunrise"), event("goldenHourEnd"), zone)},
                  {QStringLiteral("Evening golden hour"), span(event("goldenHourStart"), event("sunset"), zone)}};
    // SunCalc measures azimuth from the south, westward; people read compass bearings from the north.
    const double bearing = std::fmod(s.sunAzimuth * degrees + 180.0 + 360.0, 360.0);
    v.position = {{QStringLiteral("Sun azimuth"),
                   Fmt::number(bearing, 0) + QStringLiteral("° ") + WeatherPanelContent::compass(bearing)},
                  {QStringLiteral("Sun altitude"), Fmt::number(s.sunAltitude * degrees, 1) + QStringLiteral("°")}};
    v.moonSymbol = SunCalc::phaseSymbol(s.moonPhase);
    v.moon = {{QStringLiteral("Phase"), phaseName(s.moonPhase) + QStringLiteral(", ") + Fmt::percent(s.moonFraction * 100)
                                            + QStringLiteral(" lit")},
              {QStringLiteral("Moonrise"), time(s.moonrise, zone)},
              {QStringLiteral("Moonset"), time(s.moonset, zone)},
              {QStringLiteral("Next new moon"), dayAndTime(s.nextNewMoon, zone)},
              {QStringLiteral("Next full moon"), dayAndTime(s.nextFullMoon, zone)}};
    return v;
}

} // namespace pulsebar::AstronomyPanelContent
