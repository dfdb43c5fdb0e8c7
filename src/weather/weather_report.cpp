#include "weather/weather_report.h"

#include "weather/weather_code.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QUrlQuery>

#include <cmath>

namespace pulsebar {

QString WeatherCurrent::description() const { return WeatherCode::description(code); }
QString WeatherCurrent::symbol() const { return WeatherCode::symbol(code, isDay); }

const WeatherDay* WeatherReport::today() const
{
    const QDate date = QDateTime::fromMSecsSinceEpoch(qint64(fetched * 1000.0), timeZone).date();
    for (const WeatherDay& day : days)
        if (day.date == date)
            return &day;
    return nullptr;
}

namespace WeatherParse {

namespace {

const QString currentKeys = QStringLiteral(
    "temperature_2m,apparent_temperature,relative_humidity_2m,is_day,precipitation,weather_code,cloud_cover,"
    "surface_pressure,wind_speed_10m,wind_direction_10m,wind_gusts_10m");
const QString hourlyKeys = QStringLiteral("dew_point_2m,visibility,uv_index");
const QString dailyKeys = QStringLiteral(
    "weather_code,temperature_2m_max,temperature_2m_min,precipitation_probability_max,precipitation_sum,sunrise,sunset");

QUrl withQuery(const QString& base, const QString& path, const QUrlQuery& query)
{
    QUrl url(base.endsWith(QLatin1Char('/')) ? base.chopped(1) + path : base + path);
    url.setQuery(query);
    return url;
}

// The object the body holds, or why it is not usable; `service` names the sender in the sentence.
Parsed<QJsonObject> object(const QByteArray& body, const QString& service)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return Parsed<QJsonObject>::failure(QStringLiteral("The %1 sent an answer that is not JSON.").arg(service));
    const QJsonObject root = document.object();
    if (root.value(QLatin1String("error")).toBool()) {
        const QString reason = root.value(QLatin1String("reason")).toString();
        return Parsed<QJsonObject>::failure(
            reason.isEmpty() ? QStringLiteral("The %1 refused the request.").arg(service)
                             : QStringLiteral("The %1 refused the request: %2").arg(service, reason));
    }
    return {root, {}};
}

std::optional<double> number(const QJsonValue& value)
{
    if (!value.isDouble())
        return std::nullopt;
    return value.toDouble();
}

std::optional<double> at(const QJsonObject& block, const char* key, qsizetype index)
{
    const QJsonArray values = block.value(QLatin1String(key)).toArray();
    if (index < 0 || index >= values.size())
        return std::nullopt;
    return number(values.at(index));
}

std::optional<double> dateTimeAt(const QJsonObject& block, const char* key, qsizetype index, const QTimeZone& zone)
{
    const QJsonValue value = block.value(QLatin1String(key)).toArray().at(index);
    // Read as wall-clock time of the report's zone, never through the machine's own zone.
    const QString text = value.toString();
    const QDate date = QDate::fromString(text.left(10), QStringLiteral("yyyy-MM-dd"));
    const QTime time = QTime::fromString(text.mid(11), QStringLiteral("HH:mm"));
    if (text.size() != 16 || text.at(10) != QLatin1Char('T') || !date.isValid() || !time.isValid())
        return std::nullopt;
    return double(QDateTime(date, time, zone).toMSecsSinceEpoch()) / 1000.0;
}

QTimeZone reportZone(const QJsonObject& root)
{
    const QTimeZone named(root.value(QLatin1String("timezone")).toString().toUtf8());
    if (named.isValid())
        return named;
    if (const auto offset = number(root.value(QLatin1String("utc_offset_seconds"))))
        return QTimeZone(int(*offset));
    return QTimeZone::systemTimeZone();
}

} // namespace

std::optional<QString> refusal(const QByteArray& body, const QString& service)
{
    const Parsed<QJsonObject> root = object(body, service);
    if (root.value || root.error.endsWith(QLatin1String("not JSON.")))
        return std::nullopt;
    return root.error;
}

QString coordinate(double value) { return QString::number(value, 'g', QLocale::FloatingPointShortest); }

QString placeName(const QString& name, const QString& admin1, const QString& country)
{
    QStringList parts;
    for (const QString& part : {name, admin1, country})
        if (!part.isEmpty())
            parts << part;
    return parts.join(QStringLiteral(", "));
}

QUrl forecastUrl(const QString& base, const WeatherLocation& location)
{
    QUrlQuery query;
    query.setQueryItems({{QStringLiteral("latitude"), coordinate(location.latitude)},
                         {QStringLiteral("longitude"), coordinate(location.longitude)},
                         {QStringLiteral("current"), currentKeys},
                         {QStringLiteral("hourly"), hourlyKeys},
                         {QStringLiteral("daily"), dailyKeys},
                         {QStringLiteral("timezone"), QStringLiteral("auto")},
                         {QStringLiteral("forecast_days"), QString::number(forecastDays)}});
    return withQuery(base, QStringLiteral("/v1/forecast"), query);
}

QUrl geocodingUrl(const QString& base, const QString& query)
{
    QUrlQuery items;
    items.setQueryItems({{QStringLiteral("name"), query}, {QStringLiteral("count"), QString::number(searchResults)}});
    return withQuery(base, QStringLiteral("/v1/search"), items);
}

QUrl ipLocationUrl(const QString& base) { return withQuery(base, QStringLiteral("/json/"), {}); }

Parsed<WeatherReport> forecast(const QByteArray& body, const WeatherLocation& location, double fetched)
{
    const QString service = QStringLiteral("weather service");
    const Parsed<QJsonObject> root = object(body, service);
    if (!root.value)
        return Parsed<WeatherReport>::failure(root.error);
    const QJsonObject current = root.value->value(QLatin1String("current")).toObject();
    const QJsonObject hourly = root.value->value(QLatin1String("hourly")).toObject();
    const QJsonObject daily = root.value->value(QLatin1String("daily")).toObject();
    const auto missing = [&](const QString& key) {
        return Parsed<WeatherReport>::failure(QStringLiteral("The %1's answer has no %2.").arg(service, key));
    };

    WeatherReport report;
    report.location = location;
    report.fetched = fetched;
    report.timeZone = reportZone(*root.value);

    const QString now = current.value(QLatin1String("time")).toString();
    if (now.size() < 13)
        return missing(QStringLiteral("current time"));
    WeatherCurrent& c = report.current;
    const struct {
        const char* key;
        double* field;
    } required[] = {{"temperature_2m", &c.temperature},       {"apparent_temperature", &c.apparent},
                    {"relative_humidity_2m", &c.humidity},    {"wind_speed_10m", &c.windSpeed},
                    {"wind_direction_10m", &c.windDirection}, {"wind_gusts_10m", &c.windGusts},
                    {"surface_pressure", &c.pressure},        {"precipitation", &c.precipitation},
                    {"cloud_cover", &c.cloudCover}};
    for (const auto& [key, field] : required) {
        const auto value = number(current.value(QLatin1String(key)));
        if (!value)
            return missing(QStringLiteral("current ") + QLatin1String(key));
        *field = *value;
    }
    const auto code = number(current.value(QLatin1String("weather_code")));
    const auto isDay = number(current.value(QLatin1String("is_day")));
    if (!code)
        return missing(QStringLiteral("current weather_code"));
    if (!isDay)
        return missing(QStringLiteral("current is_day"));
    c.code = int(std::lround(*code));
    c.isDay = *isDay == 1;

    // The hourly entry of the current hour: the first whose time starts with the same date and hour.
    const QString hour = now.left(13);
    const QJsonArray hours = hourly.value(QLatin1String("time")).toArray();
    for (qsizetype i = 0; i < hours.size(); ++i) {
        if (hours.at(i).toString().startsWith(hour)) {
            c.dewPoint = at(hourly, "dew_point_2m", i);
            c.visibility = at(hourly, "visibility", i);
            c.uvIndex = at(hourly, "uv_index", i);
            break;
        }
    }

    const QJsonValue dayTimes = daily.value(QLatin1String("time"));
    if (!dayTimes.isArray())
        return missing(QStringLiteral("daily time"));
    const QJsonArray dates = dayTimes.toArray();
    for (qsizetype i = 0; i < dates.size(); ++i) {
        WeatherDay day;
        day.date = QDate::fromString(dates.at(i).toString(), QStringLiteral("yyyy-MM-dd"));
        if (!day.date.isValid())
            return Parsed<WeatherReport>::failure(
                QStringLiteral("The %1's answer has a day that is not a date.").arg(service));
        if (const auto dayCode = at(daily, "weather_code", i))
            day.code = int(std::lround(*dayCode));
        day.high = at(daily, "temperature_2m_max", i);
        day.low = at(daily, "temperature_2m_min", i);
        day.precipitationChance = at(daily, "precipitation_probability_max", i);
        day.precipitationSum = at(daily, "precipitation_sum", i);
        day.sunrise = dateTimeAt(daily, "sunrise", i, report.timeZone);
        day.sunset = dateTimeAt(daily, "sunset", i, report.timeZone);
        report.days.push_back(day);
    }
    return {std::move(report), {}};
}

Parsed<std::vector<WeatherLocation>> places(const QByteArray& body)
{
    const Parsed<QJsonObject> root = object(body, QStringLiteral("place search"));
    if (!root.value)
        return Parsed<std::vector<WeatherLocation>>::failure(root.error);
    // The service leaves "results" out when nothing matches.
    std::vector<WeatherLocation> out;
    for (const QJsonValue& entry : root.value->value(QLatin1String("results")).toArray()) {
        const QJsonObject place = entry.toObject();
        const auto latitude = number(place.value(QLatin1String("latitude")));
        const auto longitude = number(place.value(QLatin1String("longitude")));
        const QString name = place.value(QLatin1String("name")).toString();
        if (!latitude || !longitude || name.isEmpty())
            continue;
        out.push_back({placeName(name, place.value(QLatin1String("admin1")).toString(),
                                 place.value(QLatin1String("country")).toString()),
                       *latitude, *longitude});
    }
    return {std::move(out), {}};
}

Parsed<WeatherLocation> ipLocation(const QByteArray& body)
{
    const QJsonObject raw = QJsonDocument::fromJson(body).object();
    if (raw.value(QLatin1String("error")).toBool() && raw.value(QLatin1String("reason")).toString() == QLatin1String("RateLimited"))
        return Parsed<WeatherLocation>::failure(rateLimited());
    const Parsed<QJsonObject> root = object(body, QStringLiteral("location service"));
    if (!root.value)
        return Parsed<WeatherLocation>::failure(root.error);
    const auto latitude = number(root.value->value(QLatin1String("latitude")));
    const auto longitude = number(root.value->value(QLatin1String("longitude")));
    if (!latitude || !longitude)
        return Parsed<WeatherLocation>::failure(
            QStringLiteral("The location service could not place this computer's address."));
    QString city = root.value->value(QLatin1String("city")).toString();
    if (city.isEmpty())
        city = QStringLiteral("Current Location");
    return {WeatherLocation{city, *latitude, *longitude}, {}};
}

QString rateLimited()
{
    return QStringLiteral("The location service has had too many requests from this address. Set a location "
                          "in Settings › Weather, or wait a while.");
}

} // namespace WeatherParse

} // namespace pulsebar
