#include "sky/astronomy_panel_content.h"
#include "weather/weather_panel_content.h"

#include "../support/test_support.h"

#include <gtest/gtest.h>

using namespace pulsebar;

namespace pulsebar {
void PrintTo(const InfoRow& row, std::ostream* out) { *out << row.label.toStdString() << ": " << row.value.toStdString(); }
} // namespace pulsebar

TEST(WeatherPanel, StatesWithoutAReport)
{
    const QString waitingDetail = "Set a location in Settings › Weather, or wait for it to be detected.";
    const struct {
        bool loading, located;
        std::optional<QString> error;
        WeatherPanelView::State state;
        QString message, detail;
    } cases[] = {
        {true, false, std::nullopt, WeatherPanelView::State::loading, "Loading weather…", ""},
        {true, true, QString("old error"), WeatherPanelView::State::loading, "Loading weather…", ""},
        {false, true, std::nullopt, WeatherPanelView::State::pending, "Weather will load shortly.", ""},
        {false, false, std::nullopt, WeatherPanelView::State::waitingForLocation, "Waiting for location", waitingDetail},
        {false, false, QString("The location service did not answer within 10 seconds."),
         WeatherPanelView::State::unavailable, "Weather unavailable",
         "The location service did not answer within 10 seconds."},
    };
    for (const auto& c : cases) {
        WeatherPanelInput in;
        in.isLoading = c.loading;
        in.hasLocation = c.located;
        in.lastError = c.error;
        const WeatherPanelView v = WeatherPanelContent::view(in);
        EXPECT_EQ(v.state, c.state);
        EXPECT_EQ(v.message, c.message);
        EXPECT_EQ(v.detail, c.detail);
        EXPECT_TRUE(v.days.empty());
        EXPECT_EQ(WeatherPanelContent::tile(in), (WeatherTileView{"cloud", "—", c.message}));
    }
}

TEST(WeatherPanel, ReportInTheUsersUnits)
{
    const auto parsed = WeatherParse::forecast(test::readFile(test::fixture("weather/forecast.json")),
                                               {"Berlin", 52.52, 13.42}, 1'794'678'300); // 2026-11-14 17:45 UTC
    ASSERT_TRUE(parsed.value);
    WeatherPanelInput in;
    in.report = &*parsed.value;
    in.temperatureUnit = TempUnit::fahrenheit;
    in.windUnit = WindUnit::mph;
    in.now = parsed.value->fetched + 720;
    in.lastError = "The weather service did not answer within 15 seconds.";
    in.displayZone = QTimeZone("Europe/Berlin");
    const WeatherPanelView v = WeatherPanelContent::view(in);
    EXPECT_EQ(v.state, WeatherPanelView::State::report);
    EXPECT_EQ(v.title, "Berlin");
    EXPECT_EQ(v.symbol, "cloud.rain.fill");
    EXPECT_EQ(v.temperature, "46°");
    EXPECT_EQ(v.description, "Light Rain");
    const std::vector<InfoRow> conditions{{"Feels like", "39°"},  {"Humidity", "87%"},
                                          {"Dew point", "38°"},   {"Wind", "9 mph SW, gusts 19 mph"},
                                          {"Pressure", "1008 hPa"}, {"Visibility", "18 km"},
                                          {"UV index", "0"},      {"Precipitation", "0.2 mm"},
                                          {"Cloud cover", "100%"}};
    EXPECT_EQ(v.conditions, conditions);
    ASSERT_EQ(v.days.size(), 14u);
    EXPECT_EQ(v.days[0].weekday, "Today");
    EXPECT_EQ(v.days[9].high, "—"); // a null in the forecast
    EXPECT_EQ(v.days[8].chance, "—");
    EXPECT_EQ(v.days[1].symbol, "cloud.rain.fill");
    EXPECT_EQ(v.sun, (std::vector<InfoRow>{{"Sunrise", QLocale().toString(QTime(7, 36), QLocale::ShortFormat)},
                                           {"Sunset", QLocale().toString(QTime(16, 29), QLocale::ShortFormat)}}));
    EXPECT_EQ(v.age, "Updated 12m ago");
    EXPECT_EQ(v.staleError, "The weather service did not answer within 15 seconds.");
    EXPECT_EQ(WeatherPanelContent::tile(in), (WeatherTileView{"cloud.rain.fill", "46°", "Light Rain · Berlin"}));
}

TEST(AstronomyPanel, PolarSummerAndCompassBearings)
{
    const double noon = SunCalc::sunTimes(1782043200, 69.6492, 18.9553).solarNoon; // 21 June 2026
    const auto snapshot = AstronomyMonitor::compute({"Tromsø", 69.6492, 18.9553}, noon, QTimeZone("Europe/Oslo"));
    const AstronomyPanelView v = AstronomyPanelContent::view(snapshot, QTimeZone("Europe/Oslo"));
    EXPECT_EQ(v.sun[0], (InfoRow{"Sunrise", "—"}));
    EXPECT_EQ(v.sun[2], (InfoRow{"Day length", "The sun does not set"}));
    EXPECT_TRUE(v.position[0].value.endsWith(" S")) << v.position[0].value.toStdString(); // noon: due south
    EXPECT_TRUE(AstronomyPanelContent::view(std::nullopt, QTimeZone::utc()).message == "Waiting for location");

    const struct {
        double degrees;
        const char* point;
    } bearings[] = {{0, "N"}, {11.2, "N"}, {11.3, "NNE"}, {225, "SW"}, {348.8, "N"}, {-90, "W"}, {720, "N"}};
    for (const auto& b : bearings)
        EXPECT_EQ(WeatherPanelContent::compass(b.degrees), b.point) << b.degrees;
    EXPECT_EQ(AstronomyPanelContent::phaseName(0.5), "Full Moon");
    EXPECT_EQ(AstronomyPanelContent::phaseName(0.9), "Waning Crescent");
}
