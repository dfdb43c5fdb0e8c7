#pragma once

#include "menubar/menu_bar_part.h"

#include <QColor>
#include <QFont>
#include <QPalette>

namespace pulsebar::PanelStyle {

// Sizes in device-independent pixels; fonts follow the application font, so the panel scales with the
// desktop's text size and the screen's ratio.
constexpr int width = 340;
constexpr int margin = 14;    // left and right of every row
constexpr int trailHeight = 40;
constexpr int columnsHeight = 34;
constexpr int chartHeight = 84;

bool isDark(const QPalette& palette);
QColor text(const QPalette& palette);
QColor secondary(const QPalette& palette); // labels, captions
QColor track(const QPalette& palette);     // the empty part of bars and graph backgrounds
QColor hover(const QPalette& palette);     // the row under the pointer
QColor color(PartColor color, const QPalette& palette);

QFont smallFont(const QFont& base);    // captions, details, axis labels
QFont headingFont(const QFont& base);  // section titles
QFont titleFont(const QFont& base);    // the panel's title
QFont headlineFont(const QFont& base); // the panel's main figure

} // namespace pulsebar::PanelStyle
