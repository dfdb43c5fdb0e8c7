#pragma once

#include "core/config.h"
#include "core/enum_names.h"

#include <QString>

#include <cstdint>
#include <optional>

namespace pulsebar {

// The insight line: one plain-English sentence about what is loading the computer.
struct Insight {
    enum class Kind { memory, cpu, disk, network, battery, storage, quiet };
    enum class Severity { info, warning, critical };

    Kind kind = Kind::quiet;
    QString text = QStringLiteral("All quiet.");
    Severity severity = Severity::info;
    std::optional<ModuleKind> module; // the dropdown that clicking the line opens
    std::optional<int32_t> pid;       // the process named in the sentence

    bool operator==(const Insight&) const = default;

    static Insight quiet() { return {}; }
};

template <> struct EnumNames<Insight::Kind> {
    static constexpr std::array<std::string_view, 7> names{"memory", "cpu", "disk", "network", "battery", "storage",
                                                           "quiet"};
};
template <> struct EnumNames<Insight::Severity> {
    static constexpr std::array<std::string_view, 3> names{"info", "warning", "critical"};
};

} // namespace pulsebar
