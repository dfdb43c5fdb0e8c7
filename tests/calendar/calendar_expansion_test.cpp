#include "calendar/calendar_files.h"
#include "calendar/ical_expansion.h"
#include "calendar/meeting_link.h"

#include "../support/test_support.h"
#include "london_time.h"

#include <gtest/gtest.h>


using namespace pulsebar;

namespace {

// Every expectation below is written in London time; its change to summer time (29 March) is after
// the range, New York's (8 March) inside it.
QDateTime local(const QString& text)
{
    return test::londonTime(text);
}

QString describe(const CalendarEvent& event)
{
    QString line = event.start.toLocalTime().toString(QStringLiteral("ddd dd HH:mm")) + QStringLiteral("–")
                   + event.end.toLocalTime().toString(QStringLiteral("ddd dd HH:mm"));
    if (event.isAllDay)
        line += QStringLiteral(" all-day");
    return line + QStringLiteral(" ") + event.title;
}

} // namespace

TEST(CalendarExpansion, AFolderOfEventsExpandsOverTheRangeInLocalTime)
{
    const auto feed = readVdirFolder(test::fixture("calendar/work"), QStringLiteral("tests"), true);
    ASSERT_TRUE(feed);
    EXPECT_EQ(feed->info.title, "Work");
    EXPECT_EQ(feed->info.color, QColor(0xFF8800));

    const CalendarRange range{local("2026-03-06 00:00"), local("2026-03-11 00:00")};
    CalendarExpansion expansion = expandFeed(*feed, range, {QStringLiteral("me@example.org")});
    EXPECT_EQ(expansion.skippedItems, 2); // garbage.ics and broken.ics, sibling event and all
    std::sort(expansion.events.begin(), expansion.events.end(), [](const auto& a, const auto& b) {
        return a.start != b.start ? a.start < b.start : a.isAllDay > b.isAllDay;
    });
    QStringList lines;
    for (const CalendarEvent& event : expansion.events)
        lines << describe(event);
    const QStringList expected{
        "Fri 06 00:00–Sun 08 00:00 all-day Offsite",      // DATE values, the end exclusive
        "Fri 06 00:00–Fri 06 00:30 Midnight deploy",       // UTC
        "Fri 06 07:00–Fri 06 08:00 Gym",                   // floating: local
        "Fri 06 09:00–Fri 06 09:30 Untitled",              // no SUMMARY
        "Fri 06 11:00–Fri 06 12:00 Design review (moved)", // an instance of 2 March moved into the range
        "Fri 06 14:00–Fri 06 14:15 Standup",               // VTIMEZONE, New York still on EST
        "Fri 06 17:00–Fri 06 17:30 Retro",
        "Fri 06 18:00–Fri 06 19:00 Mars time",             // unknown TZID: local
        "Fri 06 23:00–Sat 07 00:00 Tokyo call",            // TZID from the zone database
        "Sat 07 09:00–Sat 07 10:00 Windows zone",          // a Windows zone name
        "Sat 07 17:00–Sat 07 17:30 Retro",                 // (7 March's standup: EXDATE)
        "Sun 08 13:00–Sun 08 13:15 Standup",               // New York on EDT: an hour earlier here
        "Sun 08 18:00–Sun 08 18:30 Retro (later)",         // RANGE=THISANDFUTURE from the 8th
        "Mon 09 11:00–Mon 09 12:00 Roadmap",               // someone else declined; Budget sync was ours
        "Mon 09 14:30–Mon 09 14:45 Standup (moved)",       // RECURRENCE-ID override
        "Mon 09 15:00–Mon 09 16:00 Design review",
        "Mon 09 18:00–Mon 09 18:30 Retro (later)",
        "Tue 10 15:00–Tue 10 15:30 Dentist",               // RDATE; the 10th's standup is cancelled
        "Tue 10 18:00–Tue 10 18:30 Retro (later)",
    };
    EXPECT_EQ(lines, expected);

    QSet<QString> ids;
    for (const CalendarEvent& event : expansion.events) {
        ids.insert(event.id);
        EXPECT_EQ(event.calendarID, feed->info.id);
        EXPECT_EQ(event.calendarTitle, "Work");
    }
    EXPECT_EQ(ids.size(), qsizetype(expansion.events.size())) << "each occurrence has an identifier of its own";
    const auto roadmap = std::find_if(expansion.events.begin(), expansion.events.end(),
                                      [](const CalendarEvent& e) { return e.title == "Roadmap"; });
    ASSERT_NE(roadmap, expansion.events.end());
    EXPECT_EQ(roadmap->meetingURL, QUrl("https://us02web.zoom.us/j/123456?pwd=abc"));
    EXPECT_EQ(roadmap->location, "Join at https://us02web.zoom.us/j/123456?pwd=abc.");

    // Without the user's address, the invitation they declined stays.
    const CalendarExpansion anyone = expandFeed(*feed, range, {});
    EXPECT_TRUE(std::any_of(anyone.events.begin(), anyone.events.end(),
                            [](const CalendarEvent& e) { return e.title == "Budget sync"; }));
}

TEST(CalendarExpansion, TheRangeStartsAtTheStartOfTodayForAtLeastOneDay)
{
    const struct {
        int days;
        const char* from;
        const char* to;
    } cases[] = {
        {0, "2026-03-06 00:00", "2026-03-07 00:00"},  // days = 0 is today only
        {1, "2026-03-06 00:00", "2026-03-07 00:00"},
        {-4, "2026-03-06 00:00", "2026-03-07 00:00"},
        {3, "2026-03-06 00:00", "2026-03-09 00:00"},
        {30, "2026-03-06 00:00", "2026-04-05 00:00"}, // a whole local day across the change to summer time
    };
    for (const auto& c : cases) {
        const CalendarRange range = CalendarRange::startingToday(local("2026-03-06 15:42"), c.days);
        EXPECT_EQ(range.from, local(c.from)) << c.days;
        EXPECT_EQ(range.to, local(c.to)) << c.days;
    }
}

TEST(CalendarExpansion, MeetingLinksComeFromTheListedHostsInOrderOfPlace)
{
    const struct {
        const char* url;
        const char* location;
        const char* notes;
        const char* expected; // "" for none
    } cases[] = {
        {"", "https://zoom.us/j/1", "", "https://zoom.us/j/1"}, // a host equal to a listed one
        {"", "https://teams.microsoft.com.example/x", "", ""},  // must end with the listed name
        {"", "https://evilzoom.us/j/1", "", "https://evilzoom.us/j/1"}, // the loose suffix test
        {"https://meet.google.com/abc-defg-hij", "https://zoom.us/j/1", "", "https://meet.google.com/abc-defg-hij"},
        {"https://example.org/agenda", "Room 4, https://zoom.us/j/2", "", "https://zoom.us/j/2"},
        {"", "https://example.org/room", "Dial in: https://teams.live.com/meet/9.", "https://teams.live.com/meet/9"},
        {"", "https://zoom.us/j/3", "https://meet.google.com/x", "https://zoom.us/j/3"}, // location before notes
        {"", "", "(www.webex.com/meet/me)", "https://www.webex.com/meet/me"},
        {"", "Board room", "no link here", ""},
    };
    for (const auto& c : cases) {
        const std::optional<QUrl> url = *c.url ? std::optional<QUrl>(QUrl(c.url)) : std::nullopt;
        const std::optional<QUrl> found = meetingURL(url, c.location, c.notes);
        EXPECT_EQ(found.value_or(QUrl()).toString(), QString(c.expected)) << c.location << " / " << c.notes;
    }
}

TEST(CalendarExpansion, TheNextEventStaysForFifteenMinutesAfterItStarts)
{
    auto timed = [](const QString& title, const QString& start, int minutes) {
        CalendarEvent event;
        event.title = title;
        event.start = local(start);
        event.end = event.start.addSecs(minutes * 60);
        return event;
    };
    CalendarState state;
    CalendarEvent allDay = timed("Holiday", "2026-03-06 00:00", 24 * 60);
    allDay.isAllDay = true;
    state.events = {allDay, timed("Planning", "2026-03-06 10:00", 60), timed("Lunch", "2026-03-06 12:30", 60)};
    const struct {
        const char* now;
        const char* expected;
    } cases[] = {
        {"2026-03-06 09:00", "Planning"}, // all-day events never count
        {"2026-03-06 10:10", "Planning"}, // started 10 minutes ago
        {"2026-03-06 10:20", "Lunch"},    // started 20 minutes ago
        {"2026-03-06 12:40", "Lunch"},
        {"2026-03-06 13:31", ""},
    };
    for (const auto& c : cases) {
        const CalendarEvent* next = state.next(local(c.now));
        EXPECT_EQ(next ? next->title : QString(), QString(c.expected)) << c.now;
    }
}
