#pragma once

#include "calendar/calendar_store.h"

#include <QColor>
#include <QString>

#include <optional>

namespace pulsebar {

// A colour as calendars write it: "#RRGGBB", "#RRGGBBAA" as CalDAV servers do, or a CSS colour name;
// invalid otherwise.
QColor calendarColor(const QString& text);
// A colour for a calendar that names none: the same for the same identifier, from a small palette.
QColor fallbackColor(const QString& id);

// A vdir, the folder layout of vdirsyncer and khal: one .ics file per item, the calendar's name in an
// optional "displayname" file and its colour in an optional "color" file. Identified as "folder:" and
// the folder's absolute path; `source` is what the settings list shows as its origin. Absent when the
// folder cannot be listed. The items are read only when `withItems`.
std::optional<CalendarFeed> readVdirFolder(const QString& path, const QString& source, bool withItems);
QString vdirCalendarID(const QString& path);

// One .ics file as one calendar, named by its X-WR-CALNAME or else `fallbackTitle`. Absent when the
// file cannot be read.
std::optional<CalendarFeed> readIcsFile(const QString& path, const QString& id, const QString& fallbackTitle,
                                        const QString& source, bool withItems);
QString fileCalendarID(const QString& path);

} // namespace pulsebar
