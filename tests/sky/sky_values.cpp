// Reads a JSON array of cases {"t": seconds, "lat": …, "lon": …, "zone": "UTC"} on standard input and
// prints, for each, what Pulsebar's SunCalc computes, so the oracle script can compare it with the npm
// packages.
#include "sky/sun_calc.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

using namespace pulsebar;

namespace {

QJsonValue optional(const std::optional<double>& value) { return value ? QJsonValue(*value) : QJsonValue(); }

QJsonObject values(const QJsonObject& c)
{
    const double t = c["t"].toDouble(), lat = c["lat"].toDouble(), lon = c["lon"].toDouble();
    const SunCalc::SunTimes sun = SunCalc::sunTimes(t, lat, lon);
    QJsonObject events;
    for (const auto& [name, time] : sun.events)
        events[name] = time;
    const SunCalc::Position position = SunCalc::sunPosition(t, lat, lon);
    const SunCalc::MoonPosition moon = SunCalc::moonPosition(t, lat, lon);
    const SunCalc::Illumination light = SunCalc::moonIllumination(t);
    const SunCalc::MoonTimes moonTimes = SunCalc::moonTimes(t, lat, lon, QTimeZone(c["zone"].toString().toUtf8()));
    const SunCalc::Phases phases = SunCalc::nextPhases(t);
    return {{"solarNoon", sun.solarNoon},
            {"events", events},
            {"sunAzimuth", position.azimuth},
            {"sunAltitude", position.altitude},
            {"moonAzimuth", moon.azimuth},
            {"moonAltitude", moon.altitude},
            {"moonDistance", moon.distance},
            {"moonFraction", light.fraction},
            {"moonPhase", light.phase},
            {"moonrise", optional(moonTimes.rise)},
            {"moonset", optional(moonTimes.set)},
            {"nextNewMoon", phases.nextNewMoon},
            {"nextFullMoon", phases.nextFullMoon},
            {"phaseSymbol", SunCalc::phaseSymbol(light.phase)}};
}

} // namespace

int main()
{
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly))
        return 1;
    QJsonArray out;
    for (const QJsonValue& c : QJsonDocument::fromJson(input.readAll()).array())
        out.append(values(c.toObject()));
    const QByteArray text = QJsonDocument(out).toJson(QJsonDocument::Compact);
    std::fwrite(text.constData(), 1, std::size_t(text.size()), stdout);
    return 0;
}
