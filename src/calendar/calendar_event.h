#pragma once

#include <QColor>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>
#include <vector>

namespace pulsebar {

class Preferences;

enum class CalendarAccess { notDetermined, granted, denied };

// One occurrence of an event in the fetched range (a recurring event gives one per occurrence).
struct CalendarEvent {
    QString id;           // the source's identifier of the occurrence; unique in one fetch
    QString title;        // "Untitled" when the event has none
    QDateTime start;
    QDateTime end;
    bool isAllDay = false;
    std::optional<QString> location;
    QString calendarID;
    QString calendarTitle;
    QColor color;
    std::optional<QUrl> meetingURL;
    // Where a click on the event goes: the calendar application that owns it, or the event's own
    // address; empty when there is nowhere to go.
    QUrl openURL;
    bool operator==(const CalendarEvent&) const = default;
};

// One calendar, for the settings list.
struct CalendarInfo {
    QString id;
    QString title;
    QString source; // the account or place it comes from ("Personal", "Google", a folder, an address)
    QColor color;
    bool operator==(const CalendarInfo&) const = default;
};

// What the panels and tiles read: the calendars and the events of the last fetch. Shared, never
// copied: the calendar publishes a new one after each fetch.
struct CalendarState {
    CalendarAccess access = CalendarAccess::notDetermined;
    std::vector<CalendarInfo> calendars; // sorted by source, then title
    std::vector<CalendarEvent> events;   // by start; all-day first on equal starts
    bool operator==(const CalendarState&) const = default;

    // The timed event to show as next at `now`: the first one not yet over, unless it has been
    // running for more than 15 minutes, in which case the first one that starts after now.
    const CalendarEvent* next(const QDateTime& now) const;
};

// Where calendars come from besides the desktop's own calendar store, as the user set them in
// Settings (kept in the preferences under "calendar.sources").
struct CalendarSources {
    QStringList files;         // .ics files
    QStringList subscriptions; // http(s) and webcal addresses
    QStringList folders;       // vdir folders (one .ics per item) added by hand
    QStringList ownAddresses;  // the user's e-mail addresses, for invitations they declined
    bool operator==(const CalendarSources&) const = default;

    // Missing or damaged entries read as empty lists.
    static CalendarSources load(const Preferences& preferences);
    bool save(Preferences& preferences) const;
};

} // namespace pulsebar
