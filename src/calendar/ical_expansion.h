#pragma once

#include "calendar/calendar_store.h"

#include <QStringList>

#include <vector>

namespace pulsebar {

struct CalendarExpansion {
    std::vector<CalendarEvent> events; // unsorted
    int skippedItems = 0;              // items that were not iCalendar or had a damaged event
};

// Every occurrence of the feed's events that overlaps the range: recurrence rules and dates expanded,
// EXDATE removed, instances moved or changed by a RECURRENCE-ID override of the same UID (also one with
// RANGE=THISANDFUTURE) replaced by the override. Cancelled events and those that one of `ownAddresses`
// declined are left out. Times with a TZID follow the item's VTIMEZONE, else the zone database under
// that name; floating times and unknown zones are local. A damaged item is skipped whole and counted;
// the rest of the feed is kept.
CalendarExpansion expandFeed(const CalendarFeed& feed, const CalendarRange& range, const QStringList& ownAddresses);

// The calendar name and colour an iCalendar object gives itself (X-WR-CALNAME, COLOR or
// X-APPLE-CALENDAR-COLOR); empty when it names none.
struct CalendarHeader {
    QString name;
    QString color;
};
CalendarHeader calendarHeader(const QByteArray& text);

} // namespace pulsebar
