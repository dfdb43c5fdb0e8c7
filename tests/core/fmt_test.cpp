#include "core/config.h"
#include "core/fmt.h"

#include <QLocale>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace pulsebar;

TEST(Fmt, PercentRoundsHalfAwayFromZero)
{
    const std::pair<double, const char*> cases[] = {
        {42.4, "42%"}, {42.5, "43%"}, {-0.5, "-1%"}, {0.49, "0%"}, {100, "100%"}, {250.5, "251%"}};
    for (const auto& [value, text] : cases)
        EXPECT_EQ(Fmt::percent(value), text) << value;
}

TEST(Fmt, BytesStepsAndDecimals)
{
    const std::tuple<double, double, const char*> cases[] = {
        {0, 1024, "0 B"},          {512, 1024, "512 B"},        {1023, 1024, "1023 B"},
        {1024, 1024, "1.0 KB"},    {1536, 1024, "1.5 KB"},      {102400, 1024, "100 KB"},
        {101887, 1024, "99.5 KB"}, {-2048, 1024, "-2.0 KB"},    {999, 1000, "999 B"},
        {1000, 1000, "1.0 KB"},    {120e6, 1000, "120 MB"},     {3.2e9, 1000, "3.2 GB"},
        {5e15, 1000, "5.0 PB"},    {5e18, 1000, "5000 PB"},     {1280, 1024, "1.2 KB"}, // a tie rounds as printf does
        {99.96 * 1024, 1024, "100.0 KB"},
    };
    for (const auto& [value, base, text] : cases)
        EXPECT_EQ(Fmt::bytes(value, base), text) << value << " base " << base;
}

TEST(Fmt, RateInBitsAndBytes)
{
    const std::tuple<double, bool, const char*> cases[] = {
        {100, true, "800 b/s"},       {125, true, "1.0 Kb/s"},      {0, false, "0 B/s"},
        {1562500, true, "12.5 Mb/s"}, {348160, false, "340 KB/s"},  {1.2 * 1048576, false, "1.2 MB/s"},
        {1023, false, "1023 B/s"},    {1024, false, "1.0 KB/s"},    {12.5e3, true, "100 Kb/s"},
        {1e12, true, "8000 Gb/s"},    {5e12, false, "4657 GB/s"},   {-5000, false, "-5000 B/s"},
    };
    for (const auto& [value, bits, text] : cases)
        EXPECT_EQ(Fmt::rate(value, bits), text) << value << (bits ? " bits" : " bytes");
}

TEST(Fmt, NumberUsesCLocaleDigits)
{
    QLocale::setDefault(QLocale(QLocale::German));
    EXPECT_EQ(Fmt::number(3.14159, 2), "3.14");
    EXPECT_EQ(Fmt::number(2.5, 0), "2");
    EXPECT_EQ(Fmt::number(-1, 1), "-1.0");
    EXPECT_EQ(Fmt::number(-0.3, 0), "0"); // no "-0" for a value that rounds to zero
    EXPECT_EQ(Fmt::number(-0.04, 1), "0.0");
    QLocale::setDefault(QLocale::c());
}

TEST(Fmt, DurationComponents)
{
    const std::pair<double, const char*> cases[] = {
        {0, "0m"},          {59, "0m"},        {59.99, "0m"},       {60, "1m"},        {2700, "45m"},
        {3600, "1h 0m"},    {11100, "3h 5m"},  {86399, "23h 59m"},  {86400, "1d 0h 0m"},
        {90000, "1d 1h 0m"}, {173220, "2d 0h 7m"}, {std::nan(""), "0m"},
        {std::numeric_limits<double>::infinity(), "0m"}, {1e300, "1157407407d 9h 46m"},
    };
    for (const auto& [seconds, text] : cases)
        EXPECT_EQ(Fmt::duration(seconds), text) << seconds;
}

TEST(Fmt, TimeInZoneOrDash)
{
    EXPECT_EQ(Fmt::time(std::nullopt, QTimeZone::utc()), "—");
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedKingdom));
    const QDateTime noonUtc(QDate(2026, 1, 15), QTime(12, 5), QTimeZone::utc());
    EXPECT_EQ(Fmt::time(noonUtc, QTimeZone("Asia/Tokyo")), "21:05");
    EXPECT_EQ(Fmt::time(noonUtc, QTimeZone::utc()), "12:05");
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    EXPECT_EQ(Fmt::time(noonUtc, QTimeZone("America/New_York")).remove(QChar(0x202F)).remove(' '), "7:05AM");
    QLocale::setDefault(QLocale::c());
}

TEST(Fmt, TemperatureUnits)
{
    EXPECT_EQ(format(TempUnit::celsius, 23.4, 0), "23°");
    EXPECT_EQ(format(TempUnit::fahrenheit, 23.4, 0), "74°");
    EXPECT_EQ(format(TempUnit::kelvin, 23.4, 0), "297 K");
    EXPECT_EQ(format(TempUnit::celsius, 23.45, 1), "23.4°"); // 23.45 is stored just below the tie
    EXPECT_EQ(format(TempUnit::fahrenheit, -40, 1), "-40.0°");
    for (TempUnit unit : allCases<TempUnit>())
        EXPECT_EQ(format(unit, std::nullopt, 1), "—");
}

TEST(Fmt, WindUnits)
{
    EXPECT_EQ(format(WindUnit::kmh, 18), "18 km/h");
    EXPECT_EQ(format(WindUnit::mph, 18), "11 mph");
    EXPECT_EQ(format(WindUnit::ms, 18), "5 m/s");
    EXPECT_EQ(format(WindUnit::knots, 18), "10 kn");
    EXPECT_EQ(format(WindUnit::kmh, 2.5), "3 km/h");
    EXPECT_EQ(format(WindUnit::ms, 9), "3 m/s"); // 2.5 rounds away from zero
}
