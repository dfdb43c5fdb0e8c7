#pragma once

#include "core/config.h"
#include "dump/sample_states.h"
#include "panels/history_graph.h"
#include "panels/panel_snapshot.h"

#include <QDir>
#include <QImage>

#include <vector>

namespace pulsebar {

// The panels part of the dump: every panel of a state drawn as STATE/panel-MODULE.png (a tile's own
// panel as STATE/panel-ITEM.png), and the texts each panel shows in STATE/panels.json.
namespace PanelDump {

// One panel as it looks on screen, drawn off screen in the light or dark appearance.
QImage render(ModuleKind kind, const PanelSnapshot& snapshot, const Config& config, bool dark,
              const HistoryGraph::Loader& loader, double devicePixelRatio);
QImage render(const PanelModel& model, const PanelSnapshot& snapshot, const Config& config, bool dark,
              const HistoryGraph::Loader& loader, double devicePixelRatio);

// Writes the images and panels.json into `stateFolder`; returns the modules drawn, in order. Throws
// std::runtime_error with a finished sentence when a file cannot be written.
std::vector<ModuleKind> write(const QDir& stateFolder, const PanelSnapshot& snapshot, const Config& config, bool dark,
                              const HistoryGraph::Loader& loader, double devicePixelRatio);

// The "live" state: this computer after three ticks of a real hub, with its recorded history.
struct Live {
    SampleState state;
    PanelSnapshot snapshot;
    HistoryGraph::Loader loader;
};
Live live();

} // namespace PanelDump

} // namespace pulsebar
