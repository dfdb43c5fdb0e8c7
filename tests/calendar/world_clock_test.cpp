#include "calendar/world_clock.h"

#include <gtest/gtest.h>

using namespace pulsebar;

namespace {

QDateTime utc(int year, int month, int day, int hour = 12)
{
    return QDateTime(QDate(year, month, day), QTime(hour, 0), QTimeZone::utc());
}

} // namespace

TEST(WorldClock, OffsetFromTheLocalZone)
{
    const struct {
        const char* zone;
        const char* local;
        QDateTime at;
        QString expected;
    } cases[] = {
        {"Europe/Berlin", "Europe/Berlin", utc(2026, 3, 14), "Same time"},
        {"Asia/Tokyo", "UTC", utc(2026, 3, 14), "+9 h"},
        {"UTC", "Asia/Kolkata", utc(2026, 3, 14), QString::fromUtf8("\u22125.5 h")},
        {"Asia/Kolkata", "Asia/Karachi", utc(2026, 3, 14), "+0.5 h"},
        {"Asia/Kathmandu", "UTC", utc(2026, 3, 14), "+5.8 h"},           // 5 h 45 min
        {"Pacific/Chatham", "Pacific/Auckland", utc(2026, 7, 1), "+0.8 h"}, // 45 minutes ahead
        // New York moves to summer time three weeks before Berlin does.
        {"America/New_York", "Europe/Berlin", utc(2026, 3, 1), QString::fromUtf8("\u22126 h")},
        {"America/New_York", "Europe/Berlin", utc(2026, 3, 14), QString::fromUtf8("\u22125 h")},
        {"America/New_York", "Europe/Berlin", utc(2026, 4, 1), QString::fromUtf8("\u22126 h")},
        // Sydney's summer is the northern winter: the gap to London is 11 h in January, 9 h in July.
        {"Australia/Sydney", "Europe/London", utc(2026, 1, 15), "+11 h"},
        {"Australia/Sydney", "Europe/London", utc(2026, 7, 15), "+9 h"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(WorldClock::offset(QTimeZone(c.zone), c.at, QTimeZone(c.local)), c.expected)
            << c.zone << " from " << c.local << " at " << c.at.toString(Qt::ISODate).toStdString();
}

TEST(WorldClock, LabelsAndUnknownZones)
{
    const std::vector<WorldClock::Clock> clocks =
        WorldClock::clocks({"Mars/Olympus_Mons", "Asia/Tokyo", "", "America/Argentina/Buenos_Aires"});
    ASSERT_EQ(clocks.size(), 2u);
    EXPECT_EQ(clocks[0].id, "Asia/Tokyo");
    EXPECT_EQ(WorldClock::label(clocks[1].id, ClockLabel::city, utc(2026, 3, 14)), "Buenos Aires");
    // The abbreviation of the instant, and the city for a zone that has none to give.
    EXPECT_EQ(WorldClock::label("America/New_York", ClockLabel::abbreviation, utc(2026, 1, 10)), "EST");
    EXPECT_EQ(WorldClock::label("America/New_York", ClockLabel::abbreviation, utc(2026, 7, 10)), "EDT");
    EXPECT_EQ(WorldClock::label("Mars/Olympus_Mons", ClockLabel::abbreviation, utc(2026, 7, 10)), "Olympus Mons");
    EXPECT_TRUE(WorldClock::isDaytime(QTimeZone("Asia/Tokyo"), utc(2026, 3, 14, 3)));   // 12:00 there
    EXPECT_FALSE(WorldClock::isDaytime(QTimeZone("Asia/Tokyo"), utc(2026, 3, 14, 12))); // 21:00 there
}
