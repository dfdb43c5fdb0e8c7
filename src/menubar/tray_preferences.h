#pragma once

#include "core/enum_names.h"
#include "core/preferences.h"

namespace pulsebar {

// How dark the panel under the tray items is: "auto" asks the desktop, the others override it.
enum class TrayPanel { automatic, dark, light };
// Whether the square icon carries the item's value itself (for trays that show no text label): "auto"
// decides from the tray host.
enum class TrayValueInIcon { automatic, on, off };

template <> struct EnumNames<TrayPanel> {
    static constexpr std::array<std::string_view, 3> names{"auto", "dark", "light"};
};
template <> struct EnumNames<TrayValueInIcon> {
    static constexpr std::array<std::string_view, 3> names{"auto", "on", "off"};
};

// The tray's own preferences. They live in the preferences file beside "appearance", outside the
// configuration record, because they describe the desktop rather than what to monitor.
struct TrayPreferences {
    static inline const QString panelKey = QStringLiteral("tray.panel");
    static inline const QString valueInIconKey = QStringLiteral("tray.valueInIcon");

    TrayPanel panel = TrayPanel::automatic;
    TrayValueInIcon valueInIcon = TrayValueInIcon::automatic;

    // A missing or unknown value reads as "auto".
    static TrayPreferences load(const Preferences& preferences);
    static void setPanel(Preferences& preferences, TrayPanel panel);
    static void setValueInIcon(Preferences& preferences, TrayValueInIcon valueInIcon);

    bool operator==(const TrayPreferences&) const = default;
};

} // namespace pulsebar
