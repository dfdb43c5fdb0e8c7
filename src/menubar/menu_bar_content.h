#pragma once

#include "core/config.h"
#include "hub/hub_snapshot.h"
#include "menubar/menu_bar_part.h"

#include <QString>

#include <optional>
#include <vector>

namespace pulsebar {

class Hub;

// What each module's item shows, as parts for MenuBarRenderer.
namespace MenuBarContent {

inline const QString percentTemplate = QStringLiteral("100%");
inline const QString uploadArrow = QStringLiteral("↑");
inline const QString downloadArrow = QStringLiteral("↓");

MenuBarParts parts(const ModuleConfig& module, const Hub& hub, const Config& config);
// What an item shows of a snapshot; `readings.time` is the time the clocks show.
MenuBarParts parts(const ModuleConfig& module, const HubSnapshot& readings, const Config& config);

// Every part of the module, before the display style picks among them.
MenuBarParts allParts(ModuleKind kind, const HubSnapshot& readings, const Config& config);

// text: the text parts; graph: the graphic; graphAndText: both; icon: the symbol or glyph; iconAndText:
// the symbol and the text. A style that would leave the item empty shows its text instead (then its icon),
// so an item never vanishes because its module lacks one kind of part. The battery glyph is both the
// battery's icon and its graphic.
MenuBarParts select(const MenuBarParts& parts, DisplayStyle style);

// The colour of the memory-pressure gauge: green, yellow, red by level.
PartColor pressureColor(MemoryPressureLevel level);

// "CPU", "Memory", …: how the module is named to the user.
QString title(ModuleKind kind);
// The module's texts, one per line (a stacked part gives two).
QStringList lines(ModuleKind kind, const HubSnapshot& readings, const Config& config);
// Why the module's value can never come on this computer ("No temperature sensors found on this
// computer"); nullopt while it has one or may still get one.
std::optional<QString> unavailableReason(ModuleKind kind, const HubSnapshot& readings);
// The body of the item's tooltip: its values one per line, or why there are none.
QString toolTip(ModuleKind kind, const HubSnapshot& readings, const Config& config);

} // namespace MenuBarContent

} // namespace pulsebar
