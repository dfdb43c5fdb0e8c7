#pragma once

#include "calendar/calendar_store.h"

#include <QString>

#include <functional>
#include <memory>

namespace pulsebar {

class EdsCalendars;

// This computer's calendars: Evolution Data Server's (when libecal is installed), then the vdir folders
// of vdirsyncer and khal found under the given XDG folders. EDS is opened at the first read, so a
// Pulsebar that never shows events neither loads libecal nor starts the calendar service.
class LinuxCalendarStore : public CalendarStore {
public:
    struct Folders {
        QString dataHome;   // $XDG_DATA_HOME
        QString configHome; // $XDG_CONFIG_HOME
        QString home;       // $HOME, for "~" in khal's configuration
        static Folders fromEnvironment();
    };
    using EdsOpener = std::function<std::unique_ptr<EdsCalendars>()>;
    LinuxCalendarStore(EdsOpener openEds, Folders folders);
    ~LinuxCalendarStore() override;

    Reading read(const CalendarRange& range, const QSet<QString>& hidden) override;

private:
    EdsOpener m_openEds; // emptied once called
    std::unique_ptr<EdsCalendars> m_eds;
    Folders m_folders;
};

// The store of the running system: EDS if installed, and the folders of this user's XDG variables.
std::shared_ptr<CalendarStore> systemCalendarStore();

} // namespace pulsebar
