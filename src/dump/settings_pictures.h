#pragma once

#include <QImage>
#include <QString>

#include <utility>
#include <vector>

namespace pulsebar {

// Every pane of the settings window over a default configuration and sample live values, light and
// dark: ("settings-general", image), ("settings-general-dark", image), ... Changes the application's
// appearance while it draws and never touches the user's preferences.
std::vector<std::pair<QString, QImage>> settingsPictures();

} // namespace pulsebar
