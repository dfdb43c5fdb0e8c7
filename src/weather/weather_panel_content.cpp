#include "weather/weather_panel_content.h"

#include "core/fmt.h"
#include "weather/weather_code.h"

#include <QLocale>

#include <array>
#include <cmath>

namespace pulsebar::WeatherPanelContent {

namespace {

QDateTime dateTime(double seconds) { return QDateTime::fromMSecsSinceEpoch(qint64(seconds * 1000.0), QTimeZone::utc()); }

QString optionalNumber(const std::optional<double>& value, int decimals, const QString& unit)
{
    return value ? Fmt::number(*value, decimals) + unit : QStringLiteral("—");
}

QString visibility(const std::optional<double>& metres)
{
    if (!metres)
        return QStringLiteral("—");
    const double km = *metres / 1000.0;
    return Fmt::number(km, km < 10 ? 1 : 0) + QStringLiteral(" km");
}

QString wind(const WeatherCurrent& c, WindUnit unit)
{
    return format(unit, c.windSpeed) + QLatin1Char(' ') + compass(c.windDirection) + QStringLiteral(", gusts ")
           + format(unit, c.windGusts);
}

std::vector<InfoRow> conditions(const WeatherCurrent& c, const WeatherPanelInput& in)
{
    return {{QStringLiteral("Feels like"), format(in.temperatureUnit, c.apparent, 0)},
            {QStringLiteral("Humidity"), Fmt::percent(c.humidity)},
            {QStringLiteral("Dew point"), format(in.temperatureUnit, c.dewPoint, 0)},
            {QStringLiteral("Wind"), wind(c, in.windUnit)},
            {QStringLiteral("Pressure"), Fmt::number(c.pressure, 0) + QStringLiteral(" hPa")},
            {QStringLiteral("Visibility"), visibility(c.visibility)},
            {QStringLiteral("UV index"), optionalNumber(c.uvIndex, 0, {})},
            {QStringLiteral("Precipitation"), Fmt::number(c.precipitation, 1) + QStringLiteral(" mm")},
            {QStringLiteral("Cloud cover"), Fmt::percent(c.cloudCover)}};
}

WeatherPanelView::Day day(const WeatherDay& d, const WeatherDay* today, const WeatherPanelInput& in)
{
    return {&d == today ? QStringLiteral("Today") : QLocale().dayName(d.date.dayOfWeek(), QLocale::ShortFormat),
            WeatherCode::symbol(d.code.value_or(-1), true),
            format(in.temperatureUnit, d.high, 0),
            format(in.temperatureUnit, d.low, 0),
            d.precipitationChance ? Fmt::percent(*d.precipitationChance) : QStringLiteral("—"),
            optionalNumber(d.precipitationSum, 1, QStringLiteral(" mm"))};
}

QString sunTime(const std::optional<double>& seconds, const QTimeZone& zone)
{
    return Fmt::time(seconds ? std::optional<QDateTime>(dateTime(*seconds)) : std::nullopt, zone);
}

} // namespace

QString compass(double degrees)
{
    static constexpr std::array<const char*, 16> points{"N", "NNE", "NE", "ENE", "E", "ESE", "SE", "SSE",
                                                        "S", "SSW", "SW", "WSW", "W", "WNW", "NW", "NNW"};
    const double wrapped = std::fmod(std::fmod(degrees, 360.0) + 360.0, 360.0);
    return QString::fromLatin1(points[std::size_t(std::lround(wrapped / 22.5)) % points.size()]);
}

WeatherPanelView view(const WeatherPanelInput& in)
{
    WeatherPanelView v;
    v.title = QStringLiteral("Weather");
    if (!in.report) {
        if (in.isLoading) {
            v.state = WeatherPanelView::State::loading;
            v.message = QStringLiteral("Loading weather…");
        } else if (in.lastError) {
            v.state = WeatherPanelView::State::unavailable;
            v.message = QStringLiteral("Weather unavailable");
            v.detail = *in.lastError;
        } else if (!in.hasLocation) {
            v.state = WeatherPanelView::State::waitingForLocation;
            v.message = QStringLiteral("Waiting for location");
            v.detail = QStringLiteral("Set a location in Settings › Weather, or wait for it to be detected.");
        } else {
            v.state = WeatherPanelView::State::pending;
            v.message = QStringLiteral("Weather will load shortly.");
        }
        return v;
    }
    const WeatherReport& r = *in.report;
    v.state = WeatherPanelView::State::report;
    v.title = r.location.name;
    v.symbol = r.current.symbol();
    v.temperature = format(in.temperatureUnit, r.current.temperature, 0);
    v.description = r.current.description();
    v.conditions = conditions(r.current, in);
    const WeatherDay* today = r.today();
    for (const WeatherDay& d : r.days)
        v.days.push_back(day(d, today, in));
    v.sun = {{QStringLiteral("Sunrise"), sunTime(today ? today->sunrise : std::nullopt, in.displayZone)},
             {QStringLiteral("Sunset"), sunTime(today ? today->sunset : std::nullopt, in.displayZone)}};
    const double age = std::max(0.0, in.now - r.fetched);
    v.age = age < 60 ? QStringLiteral("Updated just now") : QStringLiteral("Updated %1 ago").arg(Fmt::duration(age));
    if (in.lastError)
        v.staleError = *in.lastError;
    return v;
}

WeatherTileView tile(const WeatherPanelInput& in)
{
    const WeatherPanelView v = view(in);
    if (v.state != WeatherPanelView::State::report)
        return {QStringLiteral("cloud"), QStringLiteral("—"), v.message};
    return {v.symbol, v.temperature, v.description + QStringLiteral(" · ") + v.title};
}

} // namespace pulsebar::WeatherPanelContent

namespace pulsebar {

QString WeatherPanelView::footer()
{
    return QStringLiteral("Weather data from Open-Meteo.com (free, no account needed). The same location is used "
                          "for sun and moon times.");
}

} // namespace pulsebar
