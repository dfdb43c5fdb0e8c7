#pragma once

#include "core/config.h"
#include "weather/weather_report.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <functional>
#include <optional>
#include <vector>

class QNetworkAccessManager;

namespace pulsebar {

// The current conditions and 14-day forecast for one place, from the Open-Meteo forecast service.
// The place is the configured one, else the one ipapi finds for this computer's public address. The
// hub polls refreshIfNeeded() every tick; the service decides itself when a fetch is due: a report is
// at most 30 minutes old, and after a failure the next attempt comes 5 minutes later. Requests run in
// Qt's network thread; every state change and onUpdate happen on the main thread.
class WeatherService : public QObject {
    Q_OBJECT
public:
    struct Urls {
        QString forecast;   // PULSEBAR_OPEN_METEO_URL, else https://api.open-meteo.com
        QString geocoding;  // PULSEBAR_GEOCODING_URL, else https://geocoding-api.open-meteo.com
        QString ipLocation; // PULSEBAR_IPAPI_URL, else https://ipapi.co
        static Urls fromEnvironment();
    };

    static constexpr double maxAge = 1800;        // seconds a report stays fresh
    static constexpr double retryAfter = 300;     // seconds from a failure to the next attempt
    static constexpr int forecastTimeoutMs = 15000;
    static constexpr int lookupTimeoutMs = 10000; // geocoding and IP location

    explicit WeatherService(Urls urls = Urls::fromEnvironment(), QObject* parent = nullptr);
    ~WeatherService() override;

    // Seconds since 1970; tests replace it.
    std::function<double()> now;
    // Run on the main thread after every change of the state below.
    std::function<void()> onUpdate;
    // Time-outs in milliseconds; tests shorten them.
    int forecastTimeout = forecastTimeoutMs;
    int lookupTimeout = lookupTimeoutMs;

    void refreshIfNeeded(const std::optional<WeatherLocation>& configured, bool force);

    // The building blocks of a refresh; each calls back on the main thread with a value or an error text.
    void fetch(const WeatherLocation& location, std::function<void(Parsed<WeatherReport>)> done);
    void locateByIP(std::function<void(Parsed<WeatherLocation>)> done);
    // The settings' place search: up to 8 places, named "name, admin1, country".
    void search(const QString& query, std::function<void(Parsed<std::vector<WeatherLocation>>)> done);

    const std::optional<WeatherReport>& report() const { return m_report; }
    const std::optional<WeatherLocation>& resolvedLocation() const { return m_resolvedLocation; }
    const std::optional<QString>& lastError() const { return m_lastError; }
    bool isLoading() const { return m_isLoading; }
    double lastFetch() const { return m_lastFetch; }
    const std::optional<WeatherLocation>& autoLocation() const { return m_autoLocation; }
    // The place sun and moon are computed for: the configured one, else the one found by IP, else the
    // one the report is for.
    std::optional<WeatherLocation> location() const;

private:
    enum class Service { forecast, geocoding, ipLocation };
    struct Answer {
        QByteArray body;
        int status = 0;
        QString error; // a network failure or time-out, in words; empty when a body arrived
    };
    void get(const QUrl& url, Service service, std::function<void(const Answer&)> done);
    static QString serviceName(Service service);
    void fetched(const WeatherLocation& location, const Parsed<WeatherReport>& result);
    void failed(const QString& error);
    void finish();
    QNetworkAccessManager& network();

    Urls m_urls;
    QPointer<QNetworkAccessManager> m_network;
    std::optional<WeatherReport> m_report;
    std::optional<WeatherLocation> m_resolvedLocation;
    std::optional<QString> m_lastError;
    bool m_isLoading = false;
    double m_lastFetch = 0;
    std::optional<WeatherLocation> m_lastConfigured;
    std::optional<WeatherLocation> m_autoLocation;
    // A new place chosen while a fetch for the old one was under way: fetch again once it ends.
    bool m_placeChangedWhileLoading = false;
};

} // namespace pulsebar
