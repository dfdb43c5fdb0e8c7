#pragma once

#include <QColor>
#include <QRectF>
#include <QString>
#include <QStringList>

class QPainter;

namespace pulsebar {

// Pulsebar's own vector icons, stored as SVG in the resources and looked up by name ("cpu",
// "cloud.sun.fill", "moonphase.full.moon"). Single-colour icons are drawn in black and tinted; the
// weather icons mark their shapes with classes (p cloud, s sun and bolt, r rain, w snow) so they can
// be drawn in their own colours or in a palette of two.
namespace Symbols {

enum class Style {
    tinted,     // every shape in the one colour given
    multicolor, // the icon's own colours, made for a dark background
    palette,    // sun and bolts in yellow, everything else in the colour given
};

bool exists(const QString& name);
QStringList names();
// True when the icon has parts in colours of their own (the weather icons).
bool hasColors(const QString& name);

// Draws the icon scaled into the box, keeping its square shape centred. A name with no icon draws nothing.
void draw(QPainter& painter, const QString& name, const QRectF& box, const QColor& color, Style style);

} // namespace Symbols

} // namespace pulsebar
