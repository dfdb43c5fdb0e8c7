#include "panels/panel_content.h"

#include "calendar/world_clock.h"
#include "core/fmt.h"
#include "panels/panel_rows.h"
#include "sky/fuzzy_clock.h"

#include <QLocale>

#include <set>

namespace pulsebar::PanelContent {

namespace {

using PanelRows::note;
using PanelRows::tile;

const QString separator = QStringLiteral(" · ");

QDateTime instant(const PanelSnapshot& s)
{
    return QDateTime::fromMSecsSinceEpoch(qint64(s.now * 1000.0), QTimeZone::utc()).toTimeZone(s.timeZone);
}

// "Today", "Tomorrow", "Yesterday" or the weekday and date.
QString dayName(const QDate& day, const QDate& today)
{
    switch (today.daysTo(day)) {
    case 0: return QStringLiteral("Today");
    case 1: return QStringLiteral("Tomorrow");
    case -1: return QStringLiteral("Yesterday");
    default: return Fmt::day(day);
    }
}

// The days an event covers in the panel's zone. An all-day event keeps its own dates, its end being
// the first day after it.
std::pair<QDate, QDate> coveredDays(const CalendarEvent& event, const QTimeZone& zone)
{
    if (event.isAllDay) {
        const QDate first = event.start.date();
        return {first, std::max(first, event.end.date().addDays(-1))};
    }
    const QDateTime start = event.start.toTimeZone(zone);
    const QDateTime end = event.end.toTimeZone(zone);
    // An event ending at midnight does not reach into the next day.
    const QDate last = end > start && end.time() == QTime(0, 0) ? end.date().addDays(-1) : end.date();
    return {start.date(), std::max(start.date(), last)};
}

// How many days the event list covers: below two means today only.
int listedDays(const Config& config)
{
    return config.eventDays < 2 ? 1 : int(std::min<int64_t>(config.eventDays, 366));
}

// "09:00 – 09:30" on the event's day; "Until 10:00" or "From 23:00" for the part of a longer one.
QString timeRange(const CalendarEvent& event, const QDate& day, const QTimeZone& zone)
{
    if (event.isAllDay)
        return QStringLiteral("All day");
    const auto [first, last] = coveredDays(event, zone);
    if (first < day && last > day)
        return QStringLiteral("All day");
    if (first < day)
        return QStringLiteral("Until ") + Fmt::time(event.end, zone);
    if (last > day)
        return QStringLiteral("From ") + Fmt::time(event.start, zone);
    return Fmt::time(event.start, zone) + QStringLiteral(" – ") + Fmt::time(event.end, zone);
}

// Where the event is, for its detail line; a bare web address (the call's link, in most invitations) is
// left to the Join button.
QString place(const CalendarEvent& event)
{
    const QString text = event.location.value_or(QString()).simplified();
    return text.startsWith(QLatin1String("http://")) || text.startsWith(QLatin1String("https://")) ? QString() : text;
}

PanelRow eventRow(const CalendarEvent& event, const QDate& day, const PanelSnapshot& s)
{
    PanelRow row;
    row.kind = PanelRow::Kind::event;
    row.label = event.title;
    row.value = timeRange(event, day, s.timeZone);
    row.detail = place(event);
    if (row.detail.isEmpty())
        row.detail = event.calendarTitle;
    row.swatch = event.color;
    row.openURL = event.openURL;
    if (event.meetingURL)
        row.joinURL = *event.meetingURL;
    return row;
}

PanelSection clocksSection(const QDateTime& now, const PanelSnapshot& s, const Config& config)
{
    PanelSection section{QStringLiteral("World Clocks"), {}};
    const QDate today = now.date();
    for (const WorldClock::Clock& clock : WorldClock::clocks(config.worldClocks)) {
        const QDateTime there = now.toTimeZone(clock.zone);
        QString detail = WorldClock::offset(clock.zone, now, s.timeZone);
        if (there.date() != today)
            detail += separator + dayName(there.date(), today);
        section.rows.push_back(tile(WorldClock::isDaytime(clock.zone, now) ? QStringLiteral("sun.max.fill")
                                                                           : QStringLiteral("moon.stars.fill"),
                                    WorldClock::label(clock.id, config.clockLabel, now), Fmt::time(now, clock.zone),
                                    detail, std::nullopt));
    }
    if (section.rows.empty())
        section.rows.push_back(note(QStringLiteral("Add clocks in Settings › World Clock.")));
    return section;
}

} // namespace

MonthGrid monthGrid(const QDate& today, const std::set<QDate>& eventDays, bool weekNumbers)
{
    MonthGrid grid;
    const QLocale locale;
    const Qt::DayOfWeek firstDay = locale.firstDayOfWeek();
    for (int i = 0; i < 7; ++i)
        grid.weekdays << locale.standaloneDayName((int(firstDay) - 1 + i) % 7 + 1, QLocale::NarrowFormat);
    const QDate first(today.year(), today.month(), 1);
    QDate day = first.addDays(-((first.dayOfWeek() - int(firstDay) + 7) % 7));
    while (day.month() == today.month() || day < first) {
        MonthGrid::Week week;
        for (MonthGrid::Day& cell : week.days) {
            cell = {Fmt::number(day.day(), 0), day.month() == today.month(), day == today, eventDays.count(day) > 0};
            // ISO weeks start on Monday: the number belongs to the week's Monday.
            if (weekNumbers && day.dayOfWeek() == Qt::Monday)
                week.number = Fmt::number(day.weekNumber(), 0);
            day = day.addDays(1);
        }
        grid.weeks.push_back(week);
    }
    return grid;
}

std::vector<DayOfEvents> eventsByDay(const CalendarState& state, const QDateTime& now, int days)
{
    const QTimeZone zone = now.timeZone();
    const QDate today = now.date();
    std::vector<DayOfEvents> out;
    for (int i = 0; i < std::max(days, 1); ++i)
        out.push_back({today.addDays(i), {}, 0});
    for (const CalendarEvent& event : state.events) {
        const auto [first, last] = coveredDays(event, zone);
        for (DayOfEvents& day : out) {
            if (day.date < first || day.date > last)
                continue;
            if (!event.isAllDay && event.end <= now)
                ++day.past; // over already: counted, not listed
            else
                day.events.push_back(&event);
        }
    }
    return out;
}

PanelModel time(const PanelSnapshot& s, const Config& config)
{
    const QDateTime now = instant(s);
    const QDate today = now.date();
    PanelModel model{ModuleKind::time, QStringLiteral("World Clock"), Fmt::day(today), Fmt::time(now, s.timeZone),
                     {}, {}};
    QString fuzzy = FuzzyClock::string(now);
    if (!fuzzy.isEmpty())
        fuzzy[0] = fuzzy[0].toUpper();
    model.sections.push_back({{},
                              {tile(QStringLiteral("clock"), fuzzy, {},
                                    WorldClock::city(QString::fromUtf8(s.timeZone.id())) + separator +
                                        s.timeZone.abbreviation(now),
                                    std::nullopt)}});
    model.sections.push_back(clocksSection(now, s, config));

    const CalendarState& calendar = *s.calendar;
    const bool showEvents = config.showEvents && calendar.access == CalendarAccess::granted;
    const std::vector<DayOfEvents> days = eventsByDay(calendar, now, listedDays(config));

    std::set<QDate> dotted;
    if (showEvents)
        for (const DayOfEvents& day : eventsByDay(calendar, now, today.daysInMonth() - today.day() + 1))
            if (!day.events.empty() || day.past > 0)
                dotted.insert(day.date);
    PanelRow month;
    month.kind = PanelRow::Kind::month;
    month.label = Fmt::month(today);
    month.month = monthGrid(today, dotted, config.showWeekNumbers);
    model.sections.push_back({{}, {month}});

    if (!config.showEvents)
        return model;
    if (calendar.access != CalendarAccess::granted) {
        const bool denied = calendar.access == CalendarAccess::denied;
        model.sections.push_back(
            {QStringLiteral("Events"),
             {tile(QStringLiteral("calendar"),
                   denied ? QStringLiteral("Calendars cannot be read.") : QStringLiteral("No calendars found."), {},
                   {}, std::nullopt),
              note(denied ? QStringLiteral("None of the calendars Pulsebar found could be read. Check the files "
                                           "and subscriptions in Settings › Calendar.")
                          : QStringLiteral("Add a calendar in GNOME Calendar or GNOME Online Accounts, sync a "
                                           "folder with vdirsyncer or khal, or add an .ics file or a subscription "
                                           "in Settings › Calendar."))}});
        return model;
    }
    bool laterEvents = false;
    for (const DayOfEvents& day : days) {
        PanelSection section{dayName(day.date, today), {}};
        for (const CalendarEvent* event : day.events)
            section.rows.push_back(eventRow(*event, day.date, s));
        if (day.date == today && section.rows.empty())
            section.rows.push_back(
                note(day.past > 0 ? QStringLiteral("Nothing else today.") : QStringLiteral("No events today.")));
        laterEvents = laterEvents || (day.date != today && !day.events.empty());
        model.sections.push_back(section);
    }
    if (!laterEvents && days.size() > 1)
        model.sections.push_back(
            {{},
             {note(days.size() == 2 ? QStringLiteral("Nothing scheduled for tomorrow.")
                                    : QStringLiteral("Nothing scheduled for the next %1 days.").arg(days.size() - 1))}});
    return model;
}

QString timeUntil(const CalendarEvent& event, const QDateTime& now)
{
    if (event.start <= now)
        return QStringLiteral("now");
    const QDate day = event.start.toTimeZone(now.timeZone()).date();
    if (day == now.date() || now.secsTo(event.start) < 3600)
        return QStringLiteral("in ") + Fmt::minutes(double(now.secsTo(event.start)));
    return dayName(day, now.date()) + QLatin1Char(' ') + Fmt::time(event.start, now.timeZone());
}

std::optional<PanelRow> worldClocksTile(const PanelSnapshot& s, const Config& config)
{
    const std::vector<WorldClock::Clock> clocks = WorldClock::clocks(config.worldClocks);
    if (clocks.empty())
        return std::nullopt;
    const QDateTime now = instant(s);
    QStringList others;
    for (size_t i = 1; i < clocks.size(); ++i)
        others << WorldClock::label(clocks[i].id, config.clockLabel, now) + QLatin1Char(' ') +
                      Fmt::time(now, clocks[i].zone);
    const WorldClock::Clock& first = clocks.front();
    return tile(QStringLiteral("globe"), WorldClock::label(first.id, config.clockLabel, now),
                Fmt::time(now, first.zone),
                others.isEmpty() ? WorldClock::offset(first.zone, now, s.timeZone) : others.join(separator),
                ModuleKind::time);
}

std::optional<PanelRow> nextEventTile(const PanelSnapshot& s, const Config& config)
{
    if (!config.showEvents || s.calendar->access != CalendarAccess::granted)
        return std::nullopt;
    const QDateTime now = instant(s);
    const CalendarEvent* next = s.calendar->next(now);
    if (!next)
        return tile(QStringLiteral("calendar"), QStringLiteral("Calendar"), {},
                    QStringLiteral("No upcoming events"), ModuleKind::time);
    QString detail = timeRange(*next, next->start.toTimeZone(s.timeZone).date(), s.timeZone);
    if (const QString where = place(*next); !where.isEmpty())
        detail += separator + where;
    PanelRow row = tile(QStringLiteral("calendar"), next->title, timeUntil(*next, now), detail, ModuleKind::time);
    if (next->meetingURL)
        row.joinURL = *next->meetingURL;
    return row;
}

} // namespace pulsebar::PanelContent
