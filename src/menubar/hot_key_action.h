#pragma once

#include "core/config.h"

#include <QString>

#include <optional>
#include <vector>

namespace pulsebar {

// What a global shortcut does. Its identifier is the key under which Config.hotKeys stores it.
struct HotKeyAction {
    enum class Kind { dropdown, keepAwake, settings };

    Kind kind = Kind::settings;
    ModuleKind module = ModuleKind::combined; // dropdown only

    // "dropdown.cpu", "keepAwake", "settings".
    QString identifier() const;
    // nullopt for an identifier that names no action.
    static std::optional<HotKeyAction> fromIdentifier(const QString& identifier);
    // The thirteen actions: a dropdown per module in module order, then keep-awake, then settings.
    static std::vector<HotKeyAction> allCases();

    bool operator==(const HotKeyAction&) const = default;
};

} // namespace pulsebar
