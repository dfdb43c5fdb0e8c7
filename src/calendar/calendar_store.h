#pragma once

#include "calendar/calendar_event.h"

#include <QByteArray>
#include <QDateTime>
#include <QSet>

#include <vector>

namespace pulsebar {

// One calendar as a source read it: what the settings list shows, and the raw iCalendar items of its
// events (whole VCALENDAR objects, or bare VEVENTs as a store hands them out). A calendar the user
// hid is listed with no items.
struct CalendarFeed {
    CalendarInfo info;
    std::vector<QByteArray> items;
    // The address a click on one of its events opens when the event has none of its own; empty for none.
    QUrl openURL;
};

// The span of one fetch: from the start of a local day, a whole number of days.
struct CalendarRange {
    QDateTime from;
    QDateTime to;
    // From the start of the local day of `now` for `days` days; fewer than 2 days means today only.
    static CalendarRange startingToday(const QDateTime& now, int days);
};

// The calendars this computer's calendar store keeps (the desktop's own store, and the calendar folders
// that synchronisation tools keep up to date). The platform provides it; tests give fakes. read() runs
// on the calendar's worker thread, one call at a time, and may block for a while; it never throws.
class CalendarStore {
public:
    struct Reading {
        std::vector<CalendarFeed> feeds; // every calendar that could be read
        QStringList ownAddresses;        // the user's e-mail addresses the store knows from its accounts
        int unreadable = 0;              // calendars found that could not be read
    };
    virtual ~CalendarStore() = default;
    // Events overlapping the range, on every calendar whose identifier is not in `hidden`.
    virtual Reading read(const CalendarRange& range, const QSet<QString>& hidden) = 0;
};

} // namespace pulsebar
