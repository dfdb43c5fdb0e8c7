#include "calendar/calendar_event.h"

namespace pulsebar {

namespace {
constexpr qint64 stillNextForSeconds = 15 * 60;
}

const CalendarEvent* CalendarState::next(const QDateTime& now) const
{
    const CalendarEvent* current = nullptr;
    for (const CalendarEvent& event : events) {
        if (!event.isAllDay && event.end > now) {
            current = &event;
            break;
        }
    }
    if (!current || current->start.secsTo(now) <= stillNextForSeconds)
        return current;
    for (const CalendarEvent& event : events)
        if (!event.isAllDay && event.start > now)
            return &event;
    return nullptr;
}

} // namespace pulsebar
