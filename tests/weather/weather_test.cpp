#include "hub/hub.h"
#include "hub/hub_snapshot.h"
#include "panels/panel_snapshot.h"
#include "weather/weather_code.h"
#include "weather/weather_report.h"
#include "weather/weather_service.h"

#include "../support/test_support.h"
#include "loopback_server.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

using namespace pulsebar;

namespace {

const WeatherLocation berlin{QStringLiteral("Berlin"), 52.52, 13.419998};

QByteArray forecastFixture() { return test::readFile(test::fixture(QStringLiteral("weather/forecast.json"))); }

// The fixture with one edit applied to its root object.
QByteArray editedForecast(const std::function<void(QJsonObject&)>& edit)
{
    QJsonObject root = QJsonDocument::fromJson(forecastFixture()).object();
    edit(root);
    return QJsonDocument(root).toJson();
}

double utc(int year, int month, int day, int hour, int minute)
{
    return double(QDateTime(QDate(year, month, day), QTime(hour, minute), QTimeZone::utc()).toMSecsSinceEpoch()) / 1000;
}

} // namespace

TEST(WeatherParse, ForecastFixture)
{
    const Parsed<WeatherReport> parsed = WeatherParse::forecast(forecastFixture(), berlin, 1000);
    ASSERT_TRUE(parsed.value) << parsed.error.toStdString();
    const WeatherReport& r = *parsed.value;
    EXPECT_EQ(r.timeZone.id(), "Europe/Berlin");
    EXPECT_EQ(r.location, berlin);
    EXPECT_EQ(r.fetched, 1000);
    const WeatherCurrent& c = r.current;
    EXPECT_EQ(c.temperature, 7.6);
    EXPECT_EQ(c.apparent, 4); // an integer in the answer
    EXPECT_EQ(c.humidity, 87);
    EXPECT_EQ(c.windSpeed, 14.8);
    EXPECT_EQ(c.windDirection, 225);
    EXPECT_EQ(c.windGusts, 31.3);
    EXPECT_EQ(c.pressure, 1008.3);
    EXPECT_EQ(c.precipitation, 0.2);
    EXPECT_EQ(c.cloudCover, 100);
    EXPECT_EQ(c.code, 61);
    EXPECT_FALSE(c.isDay);
    // 18:45 reads the 18:00 entry; a UV index of 0 is a value, not a missing one.
    EXPECT_EQ(c.dewPoint, 3.4);
    EXPECT_EQ(c.visibility, 18500);
    EXPECT_EQ(c.uvIndex, 0);

    ASSERT_EQ(r.days.size(), 14u);
    EXPECT_EQ(r.days[0].date, QDate(2026, 11, 14));
    EXPECT_EQ(r.days[0].code, 3);
    EXPECT_EQ(r.days[0].sunrise, utc(2026, 11, 14, 6, 36)); // 07:36 in Berlin
    EXPECT_EQ(r.days[0].sunset, utc(2026, 11, 14, 15, 29));
    EXPECT_EQ(r.days[7].low, -1.5);
    // Nulls inside the arrays are missing values.
    EXPECT_EQ(r.days[9].high, std::nullopt);
    EXPECT_EQ(r.days[9].low, 2.5);
    EXPECT_EQ(r.days[8].precipitationChance, std::nullopt);
    EXPECT_EQ(r.days[8].precipitationSum, 0);
    EXPECT_EQ(r.days[9].precipitationSum, std::nullopt);
    EXPECT_EQ(r.days[13].sunrise, std::nullopt);
    EXPECT_TRUE(r.days[13].sunset.has_value());
}

TEST(WeatherParse, TimeZoneFallsBackToTheOffsetThenTheMachine)
{
    const QDateTime localSunrise(QDate(2026, 11, 14), QTime(7, 36), QTimeZone::systemTimeZone());
    const struct {
        const char* name;
        std::function<void(QJsonObject&)> edit;
        double sunrise;
    } cases[] = {
        {"named zone wins over a wrong offset", [](QJsonObject& o) { o["utc_offset_seconds"] = -18000; },
         utc(2026, 11, 14, 6, 36)},
        {"unknown name, offset of +2 h", [](QJsonObject& o) { o["timezone"] = "Mars/Olympus"; o["utc_offset_seconds"] = 7200; },
         utc(2026, 11, 14, 5, 36)},
        {"neither", [](QJsonObject& o) { o.remove("timezone"); o.remove("utc_offset_seconds"); },
         double(localSunrise.toMSecsSinceEpoch()) / 1000},
    };
    for (const auto& c : cases) {
        const auto parsed = WeatherParse::forecast(editedForecast(c.edit), berlin, 0);
        ASSERT_TRUE(parsed.value) << c.name;
        EXPECT_EQ(parsed.value->days[0].sunrise, c.sunrise) << c.name;
    }
}

TEST(WeatherParse, HourlyValuesOfTheCurrentHour)
{
    const struct {
        const char* currentTime;
        std::optional<double> dewPoint;
    } cases[] = {{"2026-11-14T18:00", 3.4}, {"2026-11-14T19:59", 9.9}, {"2026-11-15T00:15", 4.4},
                 {"2026-11-20T18:45", std::nullopt}};
    for (const auto& c : cases) {
        const auto parsed = WeatherParse::forecast(editedForecast([&](QJsonObject& o) {
            QJsonObject current = o["current"].toObject();
            current["time"] = c.currentTime;
            o["current"] = current;
        }), berlin, 0);
        ASSERT_TRUE(parsed.value) << c.currentTime;
        EXPECT_EQ(parsed.value->current.dewPoint, c.dewPoint) << c.currentTime;
    }
    // A null at the matching hour is absent, and does not fail the parse.
    const auto nulled = WeatherParse::forecast(editedForecast([](QJsonObject& o) {
        QJsonObject hourly = o["hourly"].toObject();
        QJsonArray visibility = hourly["visibility"].toArray();
        visibility[18] = QJsonValue::Null;
        hourly["visibility"] = visibility;
        o["hourly"] = hourly;
    }), berlin, 0);
    ASSERT_TRUE(nulled.value);
    EXPECT_EQ(nulled.value->current.visibility, std::nullopt);
    EXPECT_EQ(nulled.value->current.dewPoint, 3.4);
}

TEST(WeatherParse, FailuresInWords)
{
    const auto without = [](const char* block, const char* key) {
        return editedForecast([=](QJsonObject& o) {
            QJsonObject inner = o[block].toObject();
            if (key)
                inner.remove(key);
            o[block] = key ? QJsonValue(inner) : QJsonValue(QJsonValue::Null);
        });
    };
    const struct {
        QByteArray body;
        const char* error;
    } cases[] = {
        {"<html>Bad Gateway</html>", "The weather service sent an answer that is not JSON."},
        {R"({"error": true, "reason": "Latitude must be in range of -90 to 90°. Given: 91.0."})",
         "The weather service refused the request: Latitude must be in range of -90 to 90°. Given: 91.0."},
        {without("current", nullptr), "The weather service's answer has no current time."},
        {without("current", "temperature_2m"), "The weather service's answer has no current temperature_2m."},
        {without("current", "is_day"), "The weather service's answer has no current is_day."},
        {without("daily", "time"), "The weather service's answer has no daily time."},
    };
    for (const auto& c : cases) {
        const auto parsed = WeatherParse::forecast(c.body, berlin, 0);
        EXPECT_FALSE(parsed.value);
        EXPECT_EQ(parsed.error.toStdString(), c.error);
    }
}

TEST(WeatherParse, PlacesAndIPLocation)
{
    const auto places = WeatherParse::places(R"({"results": [
        {"name": "Springfield", "latitude": 39.80172, "longitude": -89.64371, "admin1": "Illinois", "country": "United States"},
        {"name": "Springfield", "latitude": -43.3, "longitude": 171.9, "country": "New Zealand"},
        {"name": "Nowhere"}]})");
    ASSERT_TRUE(places.value);
    ASSERT_EQ(places.value->size(), 2u); // the entry without coordinates is skipped
    EXPECT_EQ((*places.value)[0], (WeatherLocation{"Springfield, Illinois, United States", 39.80172, -89.64371}));
    EXPECT_EQ((*places.value)[1].name, "Springfield, New Zealand");
    const auto none = WeatherParse::places(R"({"generationtime_ms": 0.4})");
    ASSERT_TRUE(none.value);
    EXPECT_TRUE(none.value->empty());

    const auto city = WeatherParse::ipLocation(R"({"ip": "203.0.113.9", "city": "Lyon", "latitude": 45.75, "longitude": 4.85})");
    EXPECT_EQ(city.value, (WeatherLocation{"Lyon", 45.75, 4.85}));
    const auto noCity = WeatherParse::ipLocation(R"({"latitude": 10, "longitude": -20})");
    EXPECT_EQ(noCity.value, (WeatherLocation{"Current Location", 10, -20}));
    const auto limited = WeatherParse::ipLocation(R"({"error": true, "reason": "RateLimited", "message": "..."})");
    EXPECT_EQ(limited.error, WeatherParse::rateLimited());
    const auto reserved = WeatherParse::ipLocation(R"({"ip": "127.0.0.1", "error": true, "reason": "Reserved IP Address"})");
    EXPECT_EQ(reserved.error, "The location service refused the request: Reserved IP Address");
}

TEST(WeatherParse, RequestUrls)
{
    EXPECT_EQ(WeatherParse::forecastUrl("https://api.open-meteo.com", {"x", 52.52, -0.1}).toString(),
              "https://api.open-meteo.com/v1/forecast?latitude=52.52&longitude=-0.1"
              "&current=temperature_2m,apparent_temperature,relative_humidity_2m,is_day,precipitation,weather_code,"
              "cloud_cover,surface_pressure,wind_speed_10m,wind_direction_10m,wind_gusts_10m"
              "&hourly=dew_point_2m,visibility,uv_index"
              "&daily=weather_code,temperature_2m_max,temperature_2m_min,precipitation_probability_max,"
              "precipitation_sum,sunrise,sunset&timezone=auto&forecast_days=14");
    EXPECT_EQ(WeatherParse::coordinate(13.419998), "13.419998");
    EXPECT_EQ(WeatherParse::coordinate(0.1 + 0.2), "0.30000000000000004");
    EXPECT_EQ(WeatherParse::geocodingUrl("http://127.0.0.1:8/", "São Paulo & co").toString(QUrl::FullyEncoded),
              "http://127.0.0.1:8/v1/search?name=S%C3%A3o%20Paulo%20%26%20co&count=8");
    EXPECT_EQ(WeatherParse::ipLocationUrl("https://ipapi.co").toString(), "https://ipapi.co/json/");
}

TEST(WeatherCode, TableRows)
{
    const struct {
        int code;
        const char* description;
        const char* day;
        const char* night;
    } rows[] = {
        {0, "Clear", "sun.max.fill", "moon.stars.fill"},
        {2, "Partly Cloudy", "cloud.sun.fill", "cloud.moon.fill"},
        {3, "Overcast", "cloud.fill", "cloud.fill"},
        {48, "Fog", "cloud.fog.fill", "cloud.fog.fill"},
        {57, "Freezing Drizzle", "cloud.sleet.fill", "cloud.sleet.fill"},
        {65, "Heavy Rain", "cloud.heavyrain.fill", "cloud.heavyrain.fill"},
        {77, "Snow Grains", "cloud.snow.fill", "cloud.snow.fill"},
        {81, "Rain Showers", "cloud.sun.rain.fill", "cloud.moon.rain.fill"},
        {99, "Thunderstorm with Hail", "cloud.bolt.rain.fill", "cloud.bolt.rain.fill"},
        {4, "Unknown", "cloud.fill", "cloud.fill"},
        {100, "Unknown", "cloud.fill", "cloud.fill"},
        {-1, "Unknown", "cloud.fill", "cloud.fill"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(WeatherCode::description(row.code), row.description) << row.code;
        EXPECT_EQ(WeatherCode::symbol(row.code, true), row.day) << row.code;
        EXPECT_EQ(WeatherCode::symbol(row.code, false), row.night) << row.code;
    }
}

namespace {

// A service on the loopback server with a clock the test moves.
struct ServiceOnLoopback {
    LoopbackServer server;
    WeatherService service{{server.url(), server.url(), server.url()}};
    double clock = 1'800'000'000;
    int updates = 0;

    ServiceOnLoopback()
    {
        service.now = [this] { return clock; };
        service.onUpdate = [this] { ++updates; };
        service.forecastTimeout = service.lookupTimeout = 300;
        server.answers["/v1/forecast"] = {200, forecastFixture()};
        server.answers["/json/"] = {200, R"({"city": "Lyon", "latitude": 45.75, "longitude": 4.85})"};
    }
    // Asks for a refresh and waits until the service is idle again.
    void refresh(const std::optional<WeatherLocation>& configured, bool force = false)
    {
        service.refreshIfNeeded(configured, force);
        test::waitUntil([&] { return !service.isLoading(); });
    }
};

} // namespace

TEST(WeatherService, AutomaticLocationThenTheForecastRequest)
{
    ServiceOnLoopback s;
    s.service.refreshIfNeeded(std::nullopt, false);
    EXPECT_TRUE(s.service.isLoading());
    ASSERT_TRUE(test::waitUntil([&] { return !s.service.isLoading(); }));
    ASSERT_EQ(s.server.targets.size(), 2);
    EXPECT_EQ(s.server.targets[0], "/json/");
    EXPECT_EQ(s.server.targets[1], WeatherParse::forecastUrl({}, {"", 45.75, 4.85}).toString(QUrl::FullyEncoded));
    EXPECT_TRUE(s.server.targets[1].startsWith("/v1/forecast?latitude=45.75&longitude=4.85&current="));
    ASSERT_TRUE(s.service.report());
    EXPECT_EQ(s.service.report()->current.code, 61);
    EXPECT_EQ(s.service.resolvedLocation(), (WeatherLocation{"Lyon", 45.75, 4.85}));
    EXPECT_EQ(s.service.autoLocation(), s.service.resolvedLocation());
    EXPECT_EQ(s.service.location(), s.service.resolvedLocation());
    EXPECT_EQ(s.service.lastError(), std::nullopt);
    EXPECT_EQ(s.service.lastFetch(), s.clock);
    EXPECT_EQ(s.updates, 2); // loading, then done

    // The automatic place is kept: the next refresh asks only for the forecast.
    s.clock += 1801;
    s.refresh(std::nullopt);
    EXPECT_EQ(s.server.count("/json/"), 1);
    EXPECT_EQ(s.server.count("/v1/forecast"), 2);
}

TEST(WeatherService, RefreshRules)
{
    ServiceOnLoopback s;
    s.refresh(berlin);
    EXPECT_EQ(s.server.count("/v1/forecast"), 1);
    EXPECT_EQ(s.server.count("/json/"), 0);

    const struct {
        const char* step;
        double advance;
        std::optional<WeatherLocation> configured;
        bool force;
        int forecasts; // requests so far
    } steps[] = {
        {"fresh report", 1800, berlin, false, 1},
        {"older than 30 minutes", 1, berlin, false, 2},
        {"a minute later, forced", 60, berlin, true, 3},
        {"a new city a minute later", 60, WeatherLocation{"Oslo", 59.91, 10.75}, false, 4},
        {"the same city again", 60, WeatherLocation{"Oslo", 59.91, 10.75}, false, 4},
        {"back to automatic", 60, std::nullopt, false, 5},
    };
    for (const auto& step : steps) {
        s.clock += step.advance;
        s.refresh(step.configured, step.force);
        EXPECT_EQ(s.server.count("/v1/forecast"), step.forecasts) << step.step;
    }
    EXPECT_EQ(s.service.resolvedLocation(), (WeatherLocation{"Lyon", 45.75, 4.85}));
}

TEST(WeatherService, FailuresKeepTheStaleReportAndRetryAfterFiveMinutes)
{
    ServiceOnLoopback s;
    s.refresh(berlin);
    ASSERT_TRUE(s.service.report());
    const double firstFetch = s.service.report()->fetched;

    const struct {
        const char* name;
        LoopbackServer::Answer answer;
        const char* error;
    } failures[] = {
        {"error answer", {400, R"({"error": true, "reason": "Cannot initialize WeatherVariable from invalid String value tempeture_2m"})"},
         "The weather service refused the request: Cannot initialize WeatherVariable from invalid String value tempeture_2m"},
        {"not JSON", {200, "<html>captive portal</html>"}, "The weather service sent an answer that is not JSON."},
        {"server error", {503, "<html>Service Unavailable</html>"}, "The weather service answered with HTTP status 503."},
        {"past the time-out", {200, {}, true}, "The weather service did not answer within 0.3 seconds."},
    };
    for (const auto& f : failures) {
        s.server.answers["/v1/forecast"] = f.answer;
        s.clock += 1801;
        s.refresh(berlin);
        EXPECT_EQ(s.service.lastError().value_or("none"), f.error) << f.name;
        ASSERT_TRUE(s.service.report()) << f.name;
        EXPECT_EQ(s.service.report()->fetched, firstFetch) << f.name; // the stale report stays
        EXPECT_EQ(s.service.lastFetch(), s.clock - 1500) << f.name;
    }
    // The next attempt comes five minutes after the failure, not thirty.
    s.server.answers["/v1/forecast"] = {200, forecastFixture()};
    const int before = s.server.count("/v1/forecast");
    s.clock += 299;
    s.refresh(berlin);
    EXPECT_EQ(s.server.count("/v1/forecast"), before);
    s.clock += 2;
    s.refresh(berlin);
    EXPECT_EQ(s.server.count("/v1/forecast"), before + 1);
    EXPECT_EQ(s.service.lastError(), std::nullopt);
}

TEST(WeatherService, IPLocationFailures)
{
    const struct {
        LoopbackServer::Answer answer;
        QString error;
    } cases[] = {
        {{429, R"({"error": true, "reason": "RateLimited"})"}, WeatherParse::rateLimited()},
        {{429, "Too many rapid requests"}, WeatherParse::rateLimited()},
        {{200, R"({"error": true, "reason": "RateLimited", "message": "Visit https://ipapi.co/ratelimited/"})"},
         WeatherParse::rateLimited()},
        {{200, R"({"ip": "10.0.0.1", "city": null})"}, "The location service could not place this computer's address."},
    };
    for (const auto& c : cases) {
        ServiceOnLoopback s;
        s.server.answers["/json/"] = c.answer;
        s.refresh(std::nullopt);
        EXPECT_EQ(s.service.lastError(), c.error);
        EXPECT_EQ(s.server.count("/v1/forecast"), 0);
        EXPECT_FALSE(s.service.report());
        EXPECT_FALSE(s.service.location());
    }
    // Nobody listening at all.
    WeatherService unreachable({"http://127.0.0.1:9", "http://127.0.0.1:9", "http://127.0.0.1:9"});
    unreachable.refreshIfNeeded(std::nullopt, false);
    ASSERT_TRUE(test::waitUntil([&] { return !unreachable.isLoading(); }));
    EXPECT_TRUE(unreachable.lastError().value_or("").startsWith("Cannot reach the location service: "));
}

TEST(WeatherService, PlaceSearch)
{
    ServiceOnLoopback s;
    s.server.answers["/v1/search"] = {200, R"({"results": [{"name": "Paris", "latitude": 48.85, "longitude": 2.35,
        "admin1": "Île-de-France", "country": "France"}]})"};
    std::optional<Parsed<std::vector<WeatherLocation>>> result;
    s.service.search(" Paris ", [&](Parsed<std::vector<WeatherLocation>> r) { result = std::move(r); });
    ASSERT_TRUE(test::waitUntil([&] { return result.has_value(); }));
    EXPECT_EQ(s.server.targets.value(0), "/v1/search?name=Paris&count=8");
    ASSERT_TRUE(result->value);
    EXPECT_EQ(result->value->front().name, "Paris, Île-de-France, France");

    s.server.answers["/v1/search"] = {200, {}, true};
    result.reset();
    s.service.search("Paris", [&](Parsed<std::vector<WeatherLocation>> r) { result = std::move(r); });
    ASSERT_TRUE(test::waitUntil([&] { return result.has_value(); }));
    EXPECT_FALSE(result->value);
    EXPECT_EQ(result->error, "The place search did not answer within 0.3 seconds.");
}

TEST(WeatherService, HubTickTouchesWeatherOnlyForItsModules)
{
    LoopbackServer server;
    server.answers["/v1/forecast"] = {200, forecastFixture()};
    test::ScopedEnv forecastUrl("PULSEBAR_OPEN_METEO_URL", server.url());
    test::ScopedEnv ipUrl("PULSEBAR_IPAPI_URL", server.url());

    test::IsolatedSettings isolated;
    Config config = isolated.settings.config();
    config.weatherLocation = berlin;
    for (ModuleConfig& m : config.modules)
        m.enabled = m.kind != ModuleKind::weather && m.kind != ModuleKind::astronomy && m.kind != ModuleKind::combined;
    isolated.settings.setConfig(config);
    Hub hub(isolated.settings, systemReaders());
    hub.tick();
    test::waitUntil([] { return false; }, 200);
    EXPECT_TRUE(server.targets.isEmpty());
    EXPECT_FALSE(hub.astronomy.snapshot());

    for (ModuleConfig& m : config.modules)
        m.enabled = m.kind == ModuleKind::astronomy;
    isolated.settings.setConfig(config);
    hub.tick();
    ASSERT_TRUE(test::waitUntil([&] { return hub.weather.report().has_value(); }));
    EXPECT_EQ(server.count("/v1/forecast"), 1);
    ASSERT_TRUE(hub.astronomy.snapshot());
    EXPECT_EQ(hub.astronomy.snapshot()->location, berlin);

    // What the panels and the tray read is what the service and the monitor hold.
    const PanelSnapshot panels = PanelSnapshot::from(hub);
    ASSERT_TRUE(panels.weather.report);
    EXPECT_EQ(panels.weather.report->location, berlin);
    EXPECT_TRUE(panels.weather.hasLocation);
    ASSERT_TRUE(panels.sky);
    EXPECT_EQ(panels.sky->location, berlin);
    const HubSnapshot tray = HubSnapshot::of(hub);
    ASSERT_TRUE(tray.weather);
    EXPECT_EQ(tray.weather->description, hub.weather.report()->current.description());
}
