#pragma once

#include <QString>

#include <optional>

namespace pulsebar {

// Renders the menu-bar items for built-in sample states into image files. Needs a QApplication.
class DebugDump {
public:
    static int run(const std::optional<QString>& outputDirectory);
};

} // namespace pulsebar
