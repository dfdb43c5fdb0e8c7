#pragma once

#include "settings/settings_pane.h"

#include <QString>

#include <functional>
#include <vector>

namespace pulsebar {

// The panes of the settings window, in sidebar order. Adding a pane is one file that defines its
// SettingsPane subclass and a make function, declared below, plus one row in settingsPanes(). The id is
// what "settings.pane" remembers and what --dump names the picture after (settings-ID.png).
struct SettingsPaneEntry {
    QString id;
    QString title;
    std::function<SettingsPane*(SettingsContext&)> make;
};

const std::vector<SettingsPaneEntry>& settingsPanes();

SettingsPane* makeGeneralPane(SettingsContext& context);
SettingsPane* makeMenuBarPane(SettingsContext& context);
SettingsPane* makeOverviewPane(SettingsContext& context);
SettingsPane* makeSensorsPane(SettingsContext& context);
SettingsPane* makeNetworkPane(SettingsContext& context);
SettingsPane* makeDisksPane(SettingsContext& context);
SettingsPane* makeDevicesPane(SettingsContext& context);
SettingsPane* makeWeatherPane(SettingsContext& context);
SettingsPane* makeWorldClockPane(SettingsContext& context);
SettingsPane* makeCalendarPane(SettingsContext& context);
SettingsPane* makeNotificationsPane(SettingsContext& context);
SettingsPane* makeHotKeysPane(SettingsContext& context);
SettingsPane* makeAgentsPane(SettingsContext& context);
SettingsPane* makeHistoryPane(SettingsContext& context);
SettingsPane* makeAboutPane(SettingsContext& context);

// Empty when the text is a host name or an IP address; otherwise the sentence the Network pane shows.
QString pingHostError(const QString& text);
// Empty when the text is an http, https or webcal address with a server; otherwise the sentence the
// Calendar pane shows.
QString subscriptionError(const QString& text);

} // namespace pulsebar
