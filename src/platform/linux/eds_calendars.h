#pragma once

#include "calendar/calendar_store.h"

#include <memory>

namespace pulsebar {

// The calendars of Evolution Data Server, where GNOME keeps the user's calendars and those of the
// online accounts of GNOME Settings: every enabled calendar source with its name, colour and account,
// and its events in the range as iCalendar items. libecal is opened at run time, so Pulsebar starts
// and reads its other calendars where it is not installed. Every call must come from the same thread
// (the calendar's worker): the registry and the calendar connections are made there and kept.
class EdsCalendars {
public:
    // nullptr when libecal or a required entry point is missing.
    static std::unique_ptr<EdsCalendars> load();
    ~EdsCalendars();

    // Nothing when the registry service cannot be reached (no session bus, no EDS); a calendar whose
    // backend cannot be opened is left out.
    CalendarStore::Reading read(const CalendarRange& range, const QSet<QString>& hidden);

private:
    struct State;
    explicit EdsCalendars(std::shared_ptr<State> state);
    bool connectRegistry();
    QStringList accountAddresses();
    void* client(void* source, const QString& uid);
    QByteArray timezoneItem(void* client, const std::vector<QByteArray>& events);

    std::shared_ptr<State> m_state;
};

} // namespace pulsebar
