#pragma once

#include "dump/sample_states.h"
#include "history/history_range.h"
#include "history/history_series.h"
#include "panels/panel_snapshot.h"

#include <vector>

namespace pulsebar {

// The panels' view of a sample state: the state's tray figures, with the detail a panel shows (cores,
// processes, volumes, interfaces, sensors, battery health) filled in around them. Fixed values, so two
// dumps of one build are identical.
PanelSnapshot samplePanelSnapshot(const SampleState& state);

// A recorded history for the sample graphs: a wave per metric over the whole range, with a stretch in
// the middle where nothing was recorded (the computer slept). The "offline" state has none, so the
// gallery also shows the empty graph.
HistorySeries sampleHistory(const SampleState& state, const std::vector<HistoryMetric>& metrics, HistoryRange range);

} // namespace pulsebar
