#include "panels/panel_content.h"

#include "core/fmt.h"
#include "panels/panel_rows.h"
#include "weather/weather_code.h"

#include <QLocale>

#include <cmath>
#include <numbers>

namespace pulsebar::PanelContent {

namespace {

using PanelRows::link;
using PanelRows::note;
using PanelRows::tile;
using PanelRows::value;

const QString separator = QStringLiteral(" · ");
const QString none = QStringLiteral("—");
constexpr double degrees = 180.0 / std::numbers::pi;

std::optional<QDateTime> dateTime(std::optional<double> seconds)
{
    if (!seconds)
        return std::nullopt;
    return QDateTime::fromMSecsSinceEpoch(qint64(*seconds * 1000.0), QTimeZone::utc());
}

QString clock(std::optional<double> seconds, const PanelSnapshot& s)
{
    return Fmt::time(dateTime(seconds), s.timeZone);
}

QString span(std::optional<double> from, std::optional<double> to, const PanelSnapshot& s)
{
    if (!from || !to)
        return none;
    return clock(from, s) + QStringLiteral(" – ") + clock(to, s);
}

QString dayAndTime(std::optional<double> seconds, const PanelSnapshot& s)
{
    const auto at = dateTime(seconds);
    if (!at)
        return none;
    return QLocale().toString(at->toTimeZone(s.timeZone).date(), QStringLiteral("ddd d MMM")) + QStringLiteral(", ") +
           Fmt::time(at, s.timeZone);
}

QString temperature(const Config& config, std::optional<double> celsius)
{
    return format(config.temperatureUnit, celsius, 0);
}

QString optionalNumber(std::optional<double> value, int decimals, const QString& unit)
{
    return value ? Fmt::number(*value, decimals) + unit : none;
}

QString visibility(std::optional<double> metres)
{
    if (!metres)
        return none;
    const double km = *metres / 1000.0;
    return Fmt::number(km, km < 10 ? 1 : 0) + QStringLiteral(" km");
}

QString age(const PanelSnapshot& s, const WeatherReport& report)
{
    const double seconds = std::max(0.0, s.now - report.fetched);
    return seconds < 60 ? QStringLiteral("Updated just now")
                        : QStringLiteral("Updated %1 ago").arg(Fmt::duration(seconds));
}

// The heading of the weather's state while there is no report, with what to do about it.
std::pair<QString, QString> waitingState(const PanelSnapshot::Weather& w)
{
    if (w.isLoading)
        return {QStringLiteral("Loading weather…"), {}};
    if (w.lastError)
        return {QStringLiteral("Weather unavailable"), *w.lastError};
    if (!w.hasLocation)
        return {QStringLiteral("Waiting for location"),
                QStringLiteral("Set a location in Settings › Weather, or wait for it to be detected.")};
    return {QStringLiteral("Weather will load shortly."), {}};
}

PanelSection conditions(const WeatherCurrent& c, const Config& config)
{
    return {QStringLiteral("Now"),
            {value(QStringLiteral("Feels like"), temperature(config, c.apparent)),
             value(QStringLiteral("Humidity"), Fmt::percent(c.humidity)),
             value(QStringLiteral("Dew point"), temperature(config, c.dewPoint)),
             value(QStringLiteral("Wind"), format(config.windUnit, c.windSpeed) + QLatin1Char(' ') + Fmt::compass(c.windDirection),
                   QStringLiteral("Gusts ") + format(config.windUnit, c.windGusts)),
             value(QStringLiteral("Pressure"), Fmt::number(c.pressure, 0) + QStringLiteral(" hPa")),
             value(QStringLiteral("Visibility"), visibility(c.visibility)),
             value(QStringLiteral("UV index"), optionalNumber(c.uvIndex, 0, {})),
             value(QStringLiteral("Precipitation"), Fmt::number(c.precipitation, 1) + QStringLiteral(" mm")),
             value(QStringLiteral("Cloud cover"), Fmt::percent(c.cloudCover))}};
}

PanelRow forecastDay(const WeatherDay& day, bool isToday, const Config& config)
{
    PanelRow row;
    row.kind = PanelRow::Kind::forecast;
    row.label = isToday ? QStringLiteral("Today") : QLocale().dayName(day.date.dayOfWeek(), QLocale::ShortFormat);
    row.symbol = WeatherCode::symbol(day.code.value_or(-1), true);
    row.value = temperature(config, day.high) + QStringLiteral(" / ") + temperature(config, day.low);
    QStringList rain;
    if (day.precipitationChance)
        rain << Fmt::percent(*day.precipitationChance);
    if (day.precipitationSum)
        rain << Fmt::number(*day.precipitationSum, 1) + QStringLiteral(" mm");
    row.detail = rain.join(separator);
    return row;
}

PanelSection footer()
{
    return {{},
            {note(QStringLiteral("Weather data from Open-Meteo.com (free, no account needed). The same location is "
                                 "used for sun and moon times."))}};
}

// A sun event of the day by its name in the sun-time table.
std::optional<double> event(const AstronomyMonitor::Snapshot& sky, const char* name)
{
    return sky.sun.event(QString::fromLatin1(name));
}

// Without a sunrise and sunset the sun stays up or down all day: its height at noon tells which.
bool sunUpAllDay(const AstronomyMonitor::Snapshot& sky)
{
    return SunCalc::sunPosition(sky.sun.solarNoon, sky.location.latitude, sky.location.longitude).altitude > 0;
}

QString dayLength(const AstronomyMonitor::Snapshot& sky)
{
    if (const auto length = sky.dayLength())
        return Fmt::duration(*length);
    return sunUpAllDay(sky) ? QStringLiteral("24h 0m") : Fmt::duration(0);
}

QString moonHeight(const AstronomyMonitor::Snapshot& sky)
{
    const double altitude = sky.moonAltitude * degrees;
    return altitude > 0 ? Fmt::number(altitude, 0) + QStringLiteral("° above the horizon")
                        : QStringLiteral("Below the horizon");
}

PanelRow nextSunEventTile(const AstronomyMonitor::Snapshot& sky, const PanelSnapshot& s)
{
    const auto next = sky.nextSunEvent(s.now);
    if (!next)
        return tile(QStringLiteral("sun.horizon"),
                    sunUpAllDay(sky) ? QStringLiteral("The sun does not set") : QStringLiteral("The sun does not rise"),
                    {}, QStringLiteral("No sunrise or sunset within a day"), std::nullopt);
    return tile(next->isSunrise ? QStringLiteral("sunrise.fill") : QStringLiteral("sunset.fill"),
                next->isSunrise ? QStringLiteral("Sunrise") : QStringLiteral("Sunset"), clock(next->time, s),
                QStringLiteral("In ") + Fmt::duration(next->time - s.now), std::nullopt);
}

} // namespace

std::optional<PanelRow> weatherTile(const PanelSnapshot& s, const Config& config)
{
    const auto& w = s.weather;
    if (!w.report)
        return tile(QStringLiteral("cloud"), QStringLiteral("Weather"), none, waitingState(w).first,
                    ModuleKind::weather);
    const WeatherCurrent& c = w.report->current;
    return tile(c.symbol(), QStringLiteral("Weather"), temperature(config, c.temperature),
                c.description() + separator + w.report->location.name, ModuleKind::weather);
}

PanelModel weather(const PanelSnapshot& s, const Config& config)
{
    const auto& w = s.weather;
    PanelModel model{ModuleKind::weather, QStringLiteral("Weather"), {}, {}, {}, {}};
    if (!w.report) {
        const auto [heading, detail] = waitingState(w);
        PanelSection state{{}, {tile(QStringLiteral("cloud"), heading, none, {}, std::nullopt)}};
        if (!detail.isEmpty())
            state.rows.push_back(note(detail));
        model.sections = {state, footer()};
        return model;
    }
    const WeatherReport& r = *w.report;
    const WeatherDay* today = r.today();
    model.subtitle = r.location.name;
    model.headline = temperature(config, r.current.temperature);

    PanelSection summary{{}, {}};
    summary.rows.push_back(tile(r.current.symbol(), r.current.description(),
                                today ? QStringLiteral("H ") + temperature(config, today->high) + QStringLiteral("  L ") +
                                            temperature(config, today->low)
                                      : QString(),
                                age(s, r), std::nullopt));
    if (w.lastError)
        summary.rows.push_back(link(QStringLiteral("Could not refresh: ") + *w.lastError, PartColor::orange));
    model.sections.push_back(summary);
    model.sections.push_back(conditions(r.current, config));

    PanelSection days{QStringLiteral("%1 Days").arg(r.days.size()), {}};
    for (const WeatherDay& day : r.days)
        days.rows.push_back(forecastDay(day, &day == today, config));
    if (!days.rows.empty())
        model.sections.push_back(days);

    model.sections.push_back({QStringLiteral("Sun"),
                              {value(QStringLiteral("Sunrise"), clock(today ? today->sunrise : std::nullopt, s)),
                               value(QStringLiteral("Sunset"), clock(today ? today->sunset : std::nullopt, s))}});
    model.sections.push_back(footer());
    return model;
}

PanelModel astronomy(const PanelSnapshot& s, const Config&)
{
    PanelModel model{ModuleKind::astronomy, QStringLiteral("Sun & Moon"), {}, {}, {}, {}};
    if (!s.sky) {
        model.sections = {{{},
                           {tile(QStringLiteral("sun.horizon"), QStringLiteral("Waiting for location"), none, {},
                                 std::nullopt),
                            note(QStringLiteral("Set a location in Settings › Weather, or wait for it to be "
                                                "detected."))}}};
        return model;
    }
    const AstronomyMonitor::Snapshot& sky = *s.sky;
    model.subtitle = sky.location.name;
    const auto at = [&](const char* name) { return clock(event(sky, name), s); };

    // SunCalc measures azimuth from the south, westward; people read compass bearings from the north.
    const double bearing = std::fmod(sky.sunAzimuth * degrees + 180.0 + 360.0, 360.0);
    model.sections.push_back(
        {{},
         {nextSunEventTile(sky, s), value(QStringLiteral("Day length"), dayLength(sky)),
          value(QStringLiteral("Solar noon"), clock(sky.sun.solarNoon, s)),
          value(QStringLiteral("Sun azimuth"), Fmt::number(bearing, 0) + QStringLiteral("° ") + Fmt::compass(bearing)),
          value(QStringLiteral("Sun altitude"), Fmt::number(sky.sunAltitude * degrees, 1) + QStringLiteral("°"))}});

    // Each half of the day in the order its events happen.
    model.sections.push_back(
        {QStringLiteral("Morning"),
         {value(QStringLiteral("Astronomical dawn"), at("astronomicalDawn")),
          value(QStringLiteral("Nautical dawn"), at("nauticalDawn")), value(QStringLiteral("Civil dawn"), at("civilDawn")),
          value(QStringLiteral("Blue hour"), span(event(sky, "civilDawn"), event(sky, "blueHourEnd"), s)),
          value(QStringLiteral("Sunrise"), at("sunrise")),
          value(QStringLiteral("Golden hour"), span(event(sky, "sunrise"), event(sky, "goldenHourEnd"), s))}});
    model.sections.push_back(
        {QStringLiteral("Evening"),
         {value(QStringLiteral("Golden hour"), span(event(sky, "goldenHourStart"), event(sky, "sunset"), s)),
          value(QStringLiteral("Sunset"), at("sunset")),
          value(QStringLiteral("Blue hour"), span(event(sky, "blueHourStart"), event(sky, "civilDusk"), s)),
          value(QStringLiteral("Civil dusk"), at("civilDusk")), value(QStringLiteral("Nautical dusk"), at("nauticalDusk")),
          value(QStringLiteral("Astronomical dusk"), at("astronomicalDusk"))}});

    model.sections.push_back(
        {QStringLiteral("Moon"),
         {tile(SunCalc::phaseSymbol(sky.moonPhase), SunCalc::phaseName(sky.moonPhase),
               Fmt::percent(sky.moonFraction * 100) + QStringLiteral(" lit"), moonHeight(sky), std::nullopt),
          value(QStringLiteral("Moonrise"), clock(sky.moonrise, s)), value(QStringLiteral("Moonset"), clock(sky.moonset, s)),
          value(QStringLiteral("Next new moon"), dayAndTime(sky.nextNewMoon, s)),
          value(QStringLiteral("Next full moon"), dayAndTime(sky.nextFullMoon, s))}});
    return model;
}

} // namespace pulsebar::PanelContent
