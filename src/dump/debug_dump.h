#pragma once

#include <QString>

#include <optional>

namespace pulsebar {

// Renders the menu-bar items for built-in sample states into image files: every module in every
// display style per state, one strip per state with the default row of items, the symbol set, every
// pane of the settings window in light and dark (settings-PANE.png, settings-PANE-dark.png), and an
// index.html that shows them all. Needs a QApplication (the offscreen platform is enough).
class DebugDump {
public:
    // The ratio the images are drawn at, so they stay sharp when viewed on a HiDPI screen.
    static constexpr double devicePixelRatio = 2;

    // Prints the folder and answers 0; answers 1 (with a sentence on standard error) when the folder
    // or a file cannot be written. Without a folder a new pulsebar-dump-TIMESTAMP is made here.
    static int run(const std::optional<QString>& outputDirectory);
};

} // namespace pulsebar
