#include "weather/weather_service.h"

#include "core/clock.h"
#include "core/paths.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

namespace pulsebar {

WeatherService::Urls WeatherService::Urls::fromEnvironment()
{
    return {Paths::env("PULSEBAR_OPEN_METEO_URL", QStringLiteral("https://api.open-meteo.com")),
            Paths::env("PULSEBAR_GEOCODING_URL", QStringLiteral("https://geocoding-api.open-meteo.com")),
            Paths::env("PULSEBAR_IPAPI_URL", QStringLiteral("https://ipapi.co"))};
}

WeatherService::WeatherService(Urls urls, QObject* parent)
    : QObject(parent), now(systemClock()),
      m_urls(std::move(urls))
{
}

WeatherService::~WeatherService() = default;

QNetworkAccessManager& WeatherService::network()
{
    if (!m_network)
        m_network = new QNetworkAccessManager(this);
    return *m_network;
}

std::optional<WeatherLocation> WeatherService::location() const
{
    if (m_lastConfigured)
        return m_lastConfigured;
    if (m_autoLocation)
        return m_autoLocation;
    return m_resolvedLocation;
}

void WeatherService::refreshIfNeeded(const std::optional<WeatherLocation>& configured, bool force)
{
    if (configured != m_lastConfigured) {
        m_lastConfigured = configured;
        force = true;
        m_placeChangedWhileLoading = m_isLoading;
    } else if (m_placeChangedWhileLoading && !m_isLoading) {
        force = true;
    }
    if (!force && now() - m_lastFetch <= maxAge)
        return;
    if (m_isLoading)
        return;
    m_isLoading = true;
    m_placeChangedWhileLoading = false;
    if (onUpdate)
        onUpdate();

    const auto fetchFor = [this](const WeatherLocation& place) {
        fetch(place, [this, place](const Parsed<WeatherReport>& result) { fetched(place, result); });
    };
    if (configured)
        fetchFor(*configured);
    else if (m_autoLocation)
        fetchFor(*m_autoLocation);
    else
        locateByIP([this, fetchFor](const Parsed<WeatherLocation>& found) {
            if (!found.value)
                return failed(found.error);
            m_autoLocation = found.value;
            fetchFor(*found.value);
        });
}

void WeatherService::fetched(const WeatherLocation& location, const Parsed<WeatherReport>& result)
{
    if (!result.value)
        return failed(result.error);
    m_report = result.value;
    m_resolvedLocation = location;
    m_lastError.reset();
    m_lastFetch = now();
    finish();
}

void WeatherService::failed(const QString& error)
{
    m_lastError = error;
    // Pretend the last fetch was 25 minutes ago, so the 30-minute rule retries in 5.
    m_lastFetch = now() - (maxAge - retryAfter);
    finish();
}

void WeatherService::finish()
{
    m_isLoading = false;
    if (onUpdate)
        onUpdate();
}

void WeatherService::fetch(const WeatherLocation& location, std::function<void(Parsed<WeatherReport>)> done)
{
    get(WeatherParse::forecastUrl(m_urls.forecast, location), Service::forecast,
        [this, location, done = std::move(done)](const Answer& answer) {
            if (!answer.error.isEmpty())
                return done(Parsed<WeatherReport>::failure(answer.error));
            done(WeatherParse::forecast(answer.body, location, now()));
        });
}

void WeatherService::locateByIP(std::function<void(Parsed<WeatherLocation>)> done)
{
    get(WeatherParse::ipLocationUrl(m_urls.ipLocation), Service::ipLocation,
        [done = std::move(done)](const Answer& answer) {
            if (answer.status == 429)
                return done(Parsed<WeatherLocation>::failure(WeatherParse::rateLimited()));
            if (!answer.error.isEmpty())
                return done(Parsed<WeatherLocation>::failure(answer.error));
            done(WeatherParse::ipLocation(answer.body));
        });
}

void WeatherService::search(const QString& query, std::function<void(Parsed<std::vector<WeatherLocation>>)> done)
{
    if (query.trimmed().isEmpty())
        return done({std::vector<WeatherLocation>{}, {}});
    get(WeatherParse::geocodingUrl(m_urls.geocoding, query.trimmed()), Service::geocoding,
        [done = std::move(done)](const Answer& answer) {
            if (!answer.error.isEmpty())
                return done(Parsed<std::vector<WeatherLocation>>::failure(answer.error));
            done(WeatherParse::places(answer.body));
        });
}

QString WeatherService::serviceName(Service service)
{
    switch (service) {
    case Service::forecast: return QStringLiteral("weather service");
    case Service::geocoding: return QStringLiteral("place search");
    case Service::ipLocation: return QStringLiteral("location service");
    }
    return {};
}

void WeatherService::get(const QUrl& url, Service service, std::function<void(const Answer&)> done)
{
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::UserAgentHeader, QStringLiteral("Pulsebar/" PULSEBAR_VERSION));
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    QNetworkReply* reply = network().get(request);
    const int timeout = service == Service::forecast ? forecastTimeout : lookupTimeout;
    auto timedOut = std::make_shared<bool>(false);
    QTimer::singleShot(timeout, reply, [reply, timedOut] {
        *timedOut = true;
        reply->abort();
    });
    connect(reply, &QNetworkReply::finished, this, [reply, service, timeout, timedOut, done = std::move(done)] {
        reply->deleteLater();
        Answer answer;
        answer.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        const QString name = serviceName(service);
        if (*timedOut)
            answer.error = QStringLiteral("The %1 did not answer within %2 seconds.").arg(name).arg(timeout / 1000.0);
        else if (reply->error() != QNetworkReply::NoError && answer.status == 0)
            answer.error = QStringLiteral("Cannot reach the %1: %2.").arg(name, reply->errorString());
        else if (answer.status >= 400)
            // An error answer that explains itself keeps its explanation.
            answer.error = WeatherParse::refusal(reply->readAll(), name)
                               .value_or(QStringLiteral("The %1 answered with HTTP status %2.").arg(name).arg(answer.status));
        else
            answer.body = reply->readAll();
        done(answer);
    });
}

} // namespace pulsebar
