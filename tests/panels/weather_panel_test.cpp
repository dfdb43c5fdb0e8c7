#include "core/fmt.h"
#include "panels/panel_content.h"

#include "../support/test_support.h"

#include <gtest/gtest.h>

using namespace pulsebar;

namespace {

// The rows of a panel as "section/label=value" lines, with the detail after a bar when there is one.
QStringList texts(const PanelModel& model)
{
    QStringList out;
    for (const PanelSection& section : model.sections)
        for (const PanelRow& row : section.rows)
            out << section.title + "/" + row.label + "=" + row.value + (row.detail.isEmpty() ? "" : "|" + row.detail);
    return out;
}

const QString waitingDetail = "Set a location in Settings › Weather, or wait for it to be detected.";
const QString footer = "/=Weather data from Open-Meteo.com (free, no account needed). The same location is used for "
                       "sun and moon times.";

} // namespace

TEST(WeatherPanel, StatesWithoutAReportSayWhatIsHappening)
{
    const struct {
        bool loading, located;
        std::optional<QString> error;
        QString heading, detail;
    } cases[] = {
        {true, false, std::nullopt, "Loading weather…", ""},
        {true, true, QString("old error"), "Loading weather…", ""},
        {false, true, std::nullopt, "Weather will load shortly.", ""},
        {false, false, std::nullopt, "Waiting for location", waitingDetail},
        {false, false, QString("The location service did not answer within 10 seconds."), "Weather unavailable",
         "The location service did not answer within 10 seconds."},
    };
    for (const auto& c : cases) {
        PanelSnapshot s;
        s.weather = {std::nullopt, c.error, c.loading, c.located};
        QStringList expected{"/" + c.heading + "=—"};
        if (!c.detail.isEmpty())
            expected << "/=" + c.detail;
        expected << footer;
        const PanelModel panel = PanelContent::weather(s, Config{});
        EXPECT_EQ(texts(panel), expected);
        EXPECT_TRUE(panel.headline.isEmpty());
        const auto tile = PanelContent::weatherTile(s, Config{});
        ASSERT_TRUE(tile);
        EXPECT_EQ(QStringList({tile->symbol, tile->value, tile->detail}), QStringList({"cloud", "—", c.heading}));
        EXPECT_EQ(tile->target, ModuleKind::weather);
    }
}

TEST(WeatherPanel, ReportInTheUsersUnitsWithTheStaleError)
{
    auto parsed = WeatherParse::forecast(test::readFile(test::fixture("weather/forecast.json")), {"Berlin", 52.52, 13.42},
                                         1'794'678'300); // 2026-11-14 17:45 UTC
    ASSERT_TRUE(parsed.value);
    PanelSnapshot s;
    s.now = parsed.value->fetched + 720;
    s.timeZone = QTimeZone("Europe/Berlin");
    s.weather = {parsed.value, QString("The weather service did not answer within 15 seconds."), false, true};
    Config config;
    config.temperatureUnit = TempUnit::fahrenheit;
    config.windUnit = WindUnit::mph;
    const PanelModel panel = PanelContent::weather(s, config);
    EXPECT_EQ(panel.subtitle, "Berlin");
    EXPECT_EQ(panel.headline, "46°");
    const QStringList rows = texts(panel);
    const auto at = [&rows](const QString& prefix) {
        for (const QString& row : rows)
            if (row.startsWith(prefix))
                return row;
        return QString();
    };
    EXPECT_EQ(rows[0], "/Light Rain=H 52°  L 39°|Updated 12m ago");
    EXPECT_EQ(rows[1], "/=Could not refresh: The weather service did not answer within 15 seconds.");
    EXPECT_EQ(rows.mid(2, 9), (QStringList{"Now/Feels like=39°", "Now/Humidity=87%", "Now/Dew point=38°",
                                           "Now/Wind=9 mph SW|Gusts 19 mph", "Now/Pressure=1008 hPa",
                                           "Now/Visibility=18 km", "Now/UV index=0", "Now/Precipitation=0.2 mm",
                                           "Now/Cloud cover=100%"}));
    EXPECT_EQ(rows.filter("14 Days/").size(), 14);
    EXPECT_EQ(at("14 Days/Today="), "14 Days/Today=52° / 39°|10% · 0.0 mm");
    // A null in the forecast is a missing value, never 0.
    const PanelSection& days = panel.sections[2];
    EXPECT_EQ(days.rows[9].value.left(1), "—");
    EXPECT_FALSE(days.rows[8].detail.contains("%"));
    EXPECT_EQ(days.rows[1].symbol, "cloud.rain.fill");
    const auto berlin = [&s](int hour, int minute) {
        return Fmt::time(QDateTime(QDate(2026, 11, 14), QTime(hour, minute), s.timeZone), s.timeZone);
    };
    EXPECT_EQ(at("Sun/Sunrise"), "Sun/Sunrise=" + berlin(7, 36));
    EXPECT_EQ(at("Sun/Sunset"), "Sun/Sunset=" + berlin(16, 29));
    EXPECT_EQ(rows.last(), footer);

    const auto tile = PanelContent::weatherTile(s, config);
    EXPECT_EQ(QStringList({tile->symbol, tile->value, tile->detail}),
              QStringList({"cloud.rain.fill", "46°", "Light Rain · Berlin"}));
}

TEST(AstronomyPanel, PolarSummerHasNoSunsetAndWaitsWithoutAPlace)
{
    PanelSnapshot s;
    s.timeZone = QTimeZone("Europe/Oslo");
    s.now = SunCalc::sunTimes(1782043200, 69.6492, 18.9553).solarNoon; // 21 June 2026, Tromsø
    s.sky = AstronomyMonitor::compute({"Tromsø", 69.6492, 18.9553}, s.now, s.timeZone);
    const QStringList rows = texts(PanelContent::astronomy(s, Config{}));
    EXPECT_EQ(rows[0], "/The sun does not set=|No sunrise or sunset within a day");
    EXPECT_EQ(rows[1], "/Day length=24h 0m");
    EXPECT_TRUE(rows[3].startsWith("/Sun azimuth=180° S")) << rows[3].toStdString(); // noon: due south
    EXPECT_TRUE(rows.contains("Morning/Sunrise=—"));
    EXPECT_TRUE(rows.contains("Evening/Civil dusk=—"));
    EXPECT_TRUE(rows.filter("Moon/Next full moon=").front().contains(", "));

    // A day with a sunset ahead: the tile counts down to it.
    s.now -= 6 * 3600;
    s.sky = AstronomyMonitor::compute({"Berlin", 52.52, 13.41}, s.now, s.timeZone);
    EXPECT_TRUE(texts(PanelContent::astronomy(s, Config{}))[0].startsWith("/Sunset=")) << texts(PanelContent::astronomy(s, Config{}))[0].toStdString();

    s.sky.reset();
    EXPECT_EQ(texts(PanelContent::astronomy(s, Config{})), (QStringList{"/Waiting for location=—", "/=" + waitingDetail}));
}

TEST(AstronomyPanel, CompassPointsAndPhaseNames)
{
    const struct {
        double degrees;
        const char* point;
    } bearings[] = {{0, "N"}, {11.2, "N"}, {11.3, "NNE"}, {225, "SW"}, {348.8, "N"}, {-90, "W"}, {720, "N"}};
    for (const auto& b : bearings)
        EXPECT_EQ(Fmt::compass(b.degrees), b.point) << b.degrees;
    EXPECT_EQ(SunCalc::phaseName(0.5), "Full Moon");
    EXPECT_EQ(SunCalc::phaseName(0.9), "Waning Crescent");
    EXPECT_EQ(SunCalc::phaseName(0.98), "New Moon");
}
