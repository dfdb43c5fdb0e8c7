#include "platform/linux/linux_calendar_store.h"

#include "calendar/calendar_files.h"
#include "core/paths.h"
#include "platform/linux/eds_calendars.h"
#include "platform/linux/vdir_calendars.h"


namespace pulsebar {

LinuxCalendarStore::Folders LinuxCalendarStore::Folders::fromEnvironment()
{
    const QString home = Paths::home();
    return {Paths::env("XDG_DATA_HOME", home + QStringLiteral("/.local/share")),
            Paths::env("XDG_CONFIG_HOME", home + QStringLiteral("/.config")), home};
}

LinuxCalendarStore::LinuxCalendarStore(EdsOpener openEds, Folders folders)
    : m_openEds(std::move(openEds)), m_folders(std::move(folders))
{
}

LinuxCalendarStore::~LinuxCalendarStore() = default;

CalendarStore::Reading LinuxCalendarStore::read(const CalendarRange& range, const QSet<QString>& hidden)
{
    Reading reading;
    if (m_openEds)
        m_eds = std::exchange(m_openEds, nullptr)();
    if (m_eds)
        reading = m_eds->read(range, hidden);
    for (const VdirLocation& location : findVdirCalendars(m_folders.dataHome, m_folders.configHome, m_folders.home)) {
        if (auto feed = readVdirFolder(location.path, location.source, !hidden.contains(vdirCalendarID(location.path))))
            reading.feeds.push_back(std::move(*feed));
        else
            ++reading.unreadable;
    }
    return reading;
}

std::shared_ptr<CalendarStore> systemCalendarStore()
{
    return std::make_shared<LinuxCalendarStore>(&EdsCalendars::load, LinuxCalendarStore::Folders::fromEnvironment());
}

} // namespace pulsebar
