#pragma once

#include "panels/panel_model.h"
#include "panels/panel_snapshot.h"

#include <optional>
#include <set>
#include <vector>

namespace pulsebar {

// The content of every panel, as pure functions of a snapshot and the configuration.
//
// Adding a panel: write `PanelModel name(const PanelSnapshot&, const Config&)` and add one line to
// registry() with its module. Adding an overview tile: write a TileBuilder that answers nothing when
// the machine lacks what it shows, and add one line to tiles() with its OverviewItem. Adding a section
// to an existing panel: append a PanelSection in its builder. Widgets lay out whatever the model holds.
namespace PanelContent {

using Builder = PanelModel (*)(const PanelSnapshot&, const Config&);
struct Entry {
    ModuleKind kind;
    Builder build;
};
// The panels in module order; a module without an entry has no panel.
const std::vector<Entry>& registry();
bool hasPanel(ModuleKind kind);
std::optional<PanelModel> build(ModuleKind kind, const PanelSnapshot& snapshot, const Config& config);

using TileBuilder = std::optional<PanelRow> (*)(const PanelSnapshot&, const Config&);
struct Tile {
    OverviewItem item;
    TileBuilder build;
};
// The overview's tiles by item; items without a tile (not built yet) are left out of the overview.
const std::vector<Tile>& tiles();

// Panels that no module has, each opened from its overview tile (the devices).
struct TilePanel {
    OverviewItem item;
    Builder build;
};
const std::vector<TilePanel>& tilePanels();
std::optional<PanelModel> buildTilePanel(OverviewItem item, const PanelSnapshot& snapshot, const Config& config);

PanelModel overview(const PanelSnapshot& s, const Config& config);
PanelModel cpu(const PanelSnapshot& s, const Config& config);
PanelModel gpu(const PanelSnapshot& s, const Config& config);
PanelModel memory(const PanelSnapshot& s, const Config& config);
PanelModel disks(const PanelSnapshot& s, const Config& config);
PanelModel network(const PanelSnapshot& s, const Config& config);

// What the network panel's speed-test rows run.
inline const QString runSpeedTest = QStringLiteral("speedTest.start");
inline const QString cancelSpeedTest = QStringLiteral("speedTest.cancel");
PanelModel sensors(const PanelSnapshot& s, const Config& config);
PanelModel battery(const PanelSnapshot& s, const Config& config);
PanelModel weather(const PanelSnapshot& s, const Config& config);
PanelModel astronomy(const PanelSnapshot& s, const Config& config);
PanelModel devices(const PanelSnapshot& s, const Config& config);
// The time: the fuzzy clock, the world clocks, the month and the coming events.
PanelModel time(const PanelSnapshot& s, const Config& config);

// The weather tile: symbol, temperature, conditions and place, or the state's heading before a report.
std::optional<PanelRow> weatherTile(const PanelSnapshot& s, const Config& config);

// The devices tile: the one device's name, charge and model, or how many are connected; none without any.
std::optional<PanelRow> devicesTile(const PanelSnapshot& s, const Config& config);

// The world-clock tile: the first clock, with the others' times under it; none without a known zone.
std::optional<PanelRow> worldClocksTile(const PanelSnapshot& s, const Config& config);
// The next-event tile: title, how soon it starts, a Join button; none while events are off or unreadable.
std::optional<PanelRow> nextEventTile(const PanelSnapshot& s, const Config& config);

// The events of one day of the list: those not over yet, and how many are.
struct DayOfEvents {
    QDate date;
    std::vector<const CalendarEvent*> events;
    int past = 0;
};
// `days` days from the date of `now` (at least one), in the zone of `now`; an event spanning several
// days is in each of them.
std::vector<DayOfEvents> eventsByDay(const CalendarState& state, const QDateTime& now, int days);
// "now" once it has started, "in 12 min" within the day or the hour, else "Tomorrow 09:00".
QString timeUntil(const CalendarEvent& event, const QDateTime& now);
// The month of `today`, with dots on `eventDays` and ISO week numbers when asked for.
MonthGrid monthGrid(const QDate& today, const std::set<QDate>& eventDays, bool weekNumbers);

// A process row ranked by one figure; Quit is offered unless the process is protected or ourselves.
PanelRow processRow(const ProcessSample& process, const QString& figure);

// "Normal", "Warning", "Critical".
QString pressureLevelName(MemoryPressureLevel level);

} // namespace PanelContent

} // namespace pulsebar
