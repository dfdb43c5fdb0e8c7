#include "settings/settings_panes.h"

namespace pulsebar {

const std::vector<SettingsPaneEntry>& settingsPanes()
{
    static const std::vector<SettingsPaneEntry> panes{
        {QStringLiteral("general"), QStringLiteral("General"), makeGeneralPane},
        {QStringLiteral("menubar"), QStringLiteral("Menu bar"), makeMenuBarPane},
        {QStringLiteral("overview"), QStringLiteral("Overview"), makeOverviewPane},
        {QStringLiteral("sensors"), QStringLiteral("Sensors"), makeSensorsPane},
        {QStringLiteral("network"), QStringLiteral("Network"), makeNetworkPane},
        {QStringLiteral("disks"), QStringLiteral("Disks"), makeDisksPane},
        {QStringLiteral("devices"), QStringLiteral("Devices"), makeDevicesPane},
        {QStringLiteral("weather"), QStringLiteral("Weather"), makeWeatherPane},
        {QStringLiteral("worldclock"), QStringLiteral("World Clock"), makeWorldClockPane},
        {QStringLiteral("calendar"), QStringLiteral("Calendar"), makeCalendarPane},
        {QStringLiteral("notifications"), QStringLiteral("Notifications"), makeNotificationsPane},
        {QStringLiteral("hotkeys"), QStringLiteral("Hot keys"), makeHotKeysPane},
        {QStringLiteral("agents"), QStringLiteral("Agents"), makeAgentsPane},
        {QStringLiteral("history"), QStringLiteral("History"), makeHistoryPane},
        {QStringLiteral("about"), QStringLiteral("About"), makeAboutPane},
    };
    return panes;
}

} // namespace pulsebar
