#include "panels/panel_body.h"
#include "panels/panel_content.h"
#include "panels/panel_style.h"
#include "panels/panel_view.h"

#include <QTest>

#include <gtest/gtest.h>

using namespace pulsebar;

namespace {

const QTimeZone berlin("Europe/Berlin");
// Saturday 14 March 2026, 10:41 in Berlin.
const QDateTime now(QDate(2026, 3, 14), QTime(10, 41), berlin);

QDateTime at(int dayOffset, int hour, int minute = 0)
{
    return QDateTime(now.date().addDays(dayOffset), QTime(hour, minute), berlin);
}

CalendarEvent event(const QString& title, const QDateTime& start, const QDateTime& end, bool allDay = false)
{
    CalendarEvent e;
    e.id = title;
    e.title = title;
    e.start = start;
    e.end = end;
    e.isAllDay = allDay;
    e.calendarID = "work";
    e.calendarTitle = "Work";
    return e;
}

// All-day events carry their dates, the end being the first day after.
CalendarEvent allDay(const QString& title, int firstDay, int days)
{
    return event(title, QDateTime(now.date().addDays(firstDay), QTime(0, 0), QTimeZone::utc()),
                 QDateTime(now.date().addDays(firstDay + days), QTime(0, 0), QTimeZone::utc()), true);
}

PanelSnapshot snapshot(CalendarAccess access, std::vector<CalendarEvent> events)
{
    auto state = std::make_shared<CalendarState>();
    state->access = access;
    state->events = std::move(events);
    PanelSnapshot s;
    s.now = double(now.toSecsSinceEpoch());
    s.timeZone = berlin;
    s.calendar = state;
    return s;
}

// The event part of the panel: "section/title=time|detail" lines after the month.
QStringList eventTexts(const PanelModel& model)
{
    QStringList out;
    bool afterMonth = false;
    for (const PanelSection& section : model.sections)
        for (const PanelRow& row : section.rows) {
            if (afterMonth)
                out << section.title + "/" + row.label + "=" + row.value + (row.detail.isEmpty() ? "" : "|" + row.detail) +
                           (row.joinURL.isEmpty() ? "" : " [Join]");
            afterMonth = afterMonth || row.kind == PanelRow::Kind::month;
        }
    return out;
}

} // namespace

TEST(TimePanel, EventsGroupedByDay)
{
    CalendarEvent call = event("Review", at(0, 10, 30), at(0, 11, 15));
    call.location = "https://meet.google.com/abc-defg-hij";
    call.meetingURL = QUrl("https://meet.google.com/abc-defg-hij");
    CalendarEvent lunch = event("Lunch", at(0, 12), at(0, 13));
    lunch.location = "  Café  Einstein ";
    const std::vector<CalendarEvent> events{
        allDay("Trip", 0, 2),
        event("Stand-up", at(0, 9), at(0, 9, 15)), // over
        call,
        lunch,
        event("Night train", at(0, 22), at(1, 6)),
        event("Dentist", at(1, 9), at(1, 9, 45)),
        event("Planning", at(2, 10), at(2, 11)),
        event("Beyond the range", at(3, 10), at(3, 11)),
    };
    const PanelSnapshot s = snapshot(CalendarAccess::granted, events);
    Config config; // three days
    EXPECT_EQ(eventTexts(PanelContent::time(s, config)),
              QStringList({"Today/Trip=All day|Work", "Today/Review=10:30 – 11:15|Work [Join]",
                           "Today/Lunch=12:00 – 13:00|Café Einstein", "Today/Night train=From 22:00|Work",
                           "Tomorrow/Trip=All day|Work", "Tomorrow/Night train=Until 06:00|Work",
                           "Tomorrow/Dentist=09:00 – 09:45|Work", "Monday 16 March/Planning=10:00 – 11:00|Work"}));

    const std::vector<PanelContent::DayOfEvents> days = PanelContent::eventsByDay(*s.calendar, now, 3);
    ASSERT_EQ(days.size(), 3u);
    EXPECT_EQ(days[0].past, 1);

    // Below two days lists today only; with events off the list and the dots go.
    for (int64_t eventDays : {0, 1}) {
        config.eventDays = eventDays;
        EXPECT_EQ(eventTexts(PanelContent::time(s, config)).size(), 4) << eventDays;
    }
    config.showEvents = false;
    const PanelModel quiet = PanelContent::time(s, config);
    EXPECT_TRUE(eventTexts(quiet).isEmpty());
    for (const PanelSection& section : quiet.sections)
        for (const PanelRow& row : section.rows)
            if (row.month)
                for (const MonthGrid::Week& week : row.month->weeks)
                    for (const MonthGrid::Day& day : week.days)
                        EXPECT_FALSE(day.hasEvents);
}

TEST(TimePanel, EmptyDaysAndAccess)
{
    Config config;
    const struct {
        CalendarAccess access;
        std::vector<CalendarEvent> events;
        QStringList expected;
    } cases[] = {
        {CalendarAccess::granted, {}, {"Today/=No events today.", "/=Nothing scheduled for the next 2 days."}},
        {CalendarAccess::granted,
         {event("Stand-up", at(0, 9), at(0, 9, 15)), event("Dentist", at(1, 9), at(1, 10))},
         {"Today/=Nothing else today.", "Tomorrow/Dentist=09:00 – 10:00|Work"}},
        {CalendarAccess::notDetermined,
         {},
         {"Events/No calendars found.=",
          "Events/=Add a calendar in GNOME Calendar or GNOME Online Accounts, sync a folder with vdirsyncer or khal, "
          "or add an .ics file or a subscription in Settings › Calendar."}},
        {CalendarAccess::denied,
         {},
         {"Events/Calendars cannot be read.=", "Events/=None of the calendars Pulsebar found could be read. Check the "
                                               "files and subscriptions in Settings › Calendar."}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(eventTexts(PanelContent::time(snapshot(c.access, c.events), config)), c.expected);
}

TEST(TimePanel, NextEventTileSaysHowSoon)
{
    const struct {
        QDateTime start;
        QString until;
    } cases[] = {
        {at(0, 10, 30), "now"},             // started 11 minutes ago: still the next one
        {now.addSecs(30), "in 1 min"},
        {now.addSecs(12 * 60 + 59), "in 12 min"},
        {at(0, 15), "in 4 h"},
        {at(1, 0, 20), "Tomorrow 00:20"},
        {at(2, 9), "Monday 16 March 09:00"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(PanelContent::timeUntil(event("Call", c.start, c.start.addSecs(3600)), now), c.until);
    // Shortly before midnight, what starts within the hour is counted in minutes all the same.
    EXPECT_EQ(PanelContent::timeUntil(event("Call", at(1, 0, 10), at(1, 1)), at(0, 23, 50)), "in 20 min");

    Config config;

    CalendarEvent call = event("Review", at(0, 11), at(0, 11, 30));
    call.meetingURL = QUrl("https://us02web.zoom.us/j/1");
    const auto tile = PanelContent::nextEventTile(
        snapshot(CalendarAccess::granted, {event("Stand-up", at(0, 9), at(0, 9, 15)), call}), config);
    ASSERT_TRUE(tile);
    EXPECT_EQ(QStringList({tile->label, tile->value, tile->detail, tile->joinURL.toString()}),
              QStringList({"Review", "in 19 min", "11:00 – 11:30", "https://us02web.zoom.us/j/1"}));
    EXPECT_EQ(tile->target, ModuleKind::time);
    EXPECT_EQ(PanelContent::nextEventTile(snapshot(CalendarAccess::granted, {}), config)->detail, "No upcoming events");
    EXPECT_FALSE(PanelContent::nextEventTile(snapshot(CalendarAccess::notDetermined, {}), config));
    config.showEvents = false;
    EXPECT_FALSE(PanelContent::nextEventTile(snapshot(CalendarAccess::granted, {call}), config));
}

TEST(TimePanel, MonthWithIsoWeeks)
{
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedKingdom)); // weeks from Monday
    // January 2027 starts on a Friday, in ISO week 53 of 2026.
    const MonthGrid grid = PanelContent::monthGrid(QDate(2027, 1, 6), {QDate(2027, 1, 7)}, true);
    QLocale::setDefault(QLocale::c());
    ASSERT_EQ(grid.weeks.size(), 5u);
    EXPECT_EQ(grid.weekdays.first(), "M");
    QStringList numbers;
    for (const MonthGrid::Week& week : grid.weeks)
        numbers << week.number;
    EXPECT_EQ(numbers, QStringList({"53", "1", "2", "3", "4"}));
    const MonthGrid::Day& firstCell = grid.weeks[0].days[0]; // Monday 28 December
    EXPECT_EQ(firstCell.text, "28");
    EXPECT_FALSE(firstCell.inMonth);
    const MonthGrid::Day& today = grid.weeks[1].days[2];
    EXPECT_TRUE(today.isToday);
    EXPECT_TRUE(grid.weeks[1].days[3].hasEvents);
    EXPECT_EQ(grid.weeks.back().days[6].text, "31");
    EXPECT_TRUE(PanelContent::monthGrid(QDate(2027, 1, 6), {}, false).weeks[0].number.isEmpty());
}

TEST(TimePanel, EventsOpenWhereTheyCameFromAndJoinOpensTheCall)
{
    CalendarEvent call = event("Review", at(0, 11), at(0, 11, 30));
    call.openURL = QUrl("https://calendar.example.org/event/review");
    call.meetingURL = QUrl("https://meet.google.com/abc-defg-hij");
    const PanelSnapshot s = snapshot(CalendarAccess::granted, {call});
    PanelView view([](auto...) {}, nullptr);
    QList<QUrl> opened;
    view.actions.openURL = [&](const QUrl& url) { opened << url; };
    view.setContent(PanelContent::time(s, Config{}), s, Config{});
    view.show();
    QTest::keyClick(view.body(), Qt::Key_Down); // the first row that does something: the event
    QTest::keyClick(view.body(), Qt::Key_Return);
    ASSERT_EQ(opened.size(), 1);

    // The overview's tile has the Join button at the right of its second line.
    view.setContent(PanelContent::overview(s, Config{}), s, Config{});
    for (int y = 0; y < view.body()->height() && opened.size() < 2; y += 4)
        QTest::mouseClick(view.body(), Qt::LeftButton, {}, QPoint(PanelStyle::width - PanelStyle::margin - 8, y));
    EXPECT_EQ(opened, QList<QUrl>({call.openURL, *call.meetingURL}));
}
