#pragma once

#include <QRect>
#include <QSize>

namespace pulsebar {

// Where a panel of `size` opens for an item at `anchor` (screen coordinates: the item's geometry, or a
// 1×1 rectangle at the point the tray host reported). `available` is the screen without its bars and
// docks, `screen` the whole screen. The panel hangs 5 px below the anchor, or stands 5 px above it when
// the anchor is in the lower half (a bottom bar), centred on it; it is then moved wholly into `available`,
// so it is kept on screen and never covers a bar. A bar at the left or right edge puts the panel
// beside it. A panel taller than the available area is cut to fit (its rows scroll).
QRect panelGeometry(QSize size, QRect anchor, QRect available, QRect screen);

} // namespace pulsebar
