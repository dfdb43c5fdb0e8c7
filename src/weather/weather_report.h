#pragma once

#include "core/config.h"

#include <QByteArray>
#include <QDate>
#include <QString>
#include <QTimeZone>
#include <QUrl>

#include <optional>
#include <vector>

namespace pulsebar {

// Current conditions, in the units the forecast service delivers without unit parameters:
// °C, km/h, hPa, metres, millimetres, percent.
struct WeatherCurrent {
    double temperature = 0;
    double apparent = 0;
    double humidity = 0;
    std::optional<double> dewPoint; // the current hour's, from the hourly block
    double windSpeed = 0;
    double windDirection = 0; // degrees, where the wind comes from
    double windGusts = 0;
    double pressure = 0;
    std::optional<double> visibility; // metres, the current hour's
    std::optional<double> uvIndex;    // the current hour's
    double precipitation = 0;
    double cloudCover = 0;
    int code = 0;
    bool isDay = true;

    QString description() const;
    QString symbol() const;
};

// One day of the forecast. A null in the service's arrays is a missing value, never 0.
struct WeatherDay {
    QDate date;
    std::optional<int> code;
    std::optional<double> high;
    std::optional<double> low;
    std::optional<double> precipitationChance; // percent
    std::optional<double> precipitationSum;    // mm
    std::optional<double> sunrise;             // seconds since 1970
    std::optional<double> sunset;
};

struct WeatherReport {
    WeatherLocation location;
    QTimeZone timeZone;
    WeatherCurrent current;
    std::vector<WeatherDay> days; // in date order, 14 when complete
    double fetched = 0;           // seconds since 1970

    // The day the report calls today, when it has it.
    const WeatherDay* today() const;
};

// A value or the sentence that says why there is none.
template <typename T> struct Parsed {
    std::optional<T> value;
    QString error;

    static Parsed failure(QString text) { return {std::nullopt, std::move(text)}; }
};

namespace WeatherParse {

inline constexpr int forecastDays = 14;
inline constexpr int searchResults = 8;

// The requests, built on the services' base URLs (scheme, host and optional port; no path).
QUrl forecastUrl(const QString& base, const WeatherLocation& location);
QUrl geocodingUrl(const QString& base, const QString& query);
QUrl ipLocationUrl(const QString& base);

Parsed<WeatherReport> forecast(const QByteArray& body, const WeatherLocation& location, double fetched);
Parsed<std::vector<WeatherLocation>> places(const QByteArray& body);
Parsed<WeatherLocation> ipLocation(const QByteArray& body);

// The service's own explanation when the body is its error answer {"error": true, "reason": …}.
std::optional<QString> refusal(const QByteArray& body, const QString& service);

// The shortest decimal text that reads back as the same double, as the request carries coordinates.
QString coordinate(double value);
// "name, admin1, country", with the parts that are present.
QString placeName(const QString& name, const QString& admin1, const QString& country);
// What a person reads when the IP-location service says it has had too many requests.
QString rateLimited();

} // namespace WeatherParse

} // namespace pulsebar
