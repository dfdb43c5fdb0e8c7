#pragma once

#include "menubar/menu_bar_part.h"

#include <QFont>
#include <QImage>

namespace pulsebar {

// Draws a row of parts into one image 22 pt high. Sizes are in points (device-independent pixels);
// the image carries the device pixel ratio, so it has ratio × size pixels and stays sharp on HiDPI.
class MenuBarRenderer {
public:
    static constexpr qreal height = 22;
    static constexpr qreal gap = 4;
    static constexpr qreal graphWidth = 26;
    static constexpr qreal graphHeight = 14;
    static constexpr qreal barWidth = 4;
    static constexpr qreal symbolSize = 16;
    static constexpr qreal glyphSize = 15;
    static constexpr qreal batteryWidth = 24; // 21 pt body, 1 pt gap, 2 pt nib
    static constexpr int graphSlots = 20;

    struct Context {
        qreal devicePixelRatio = 1;
        bool dark = false; // the appearance the item is drawn for
        // The screen's ratio and whether the application's palette is dark.
        static Context current();
    };

    static QImage image(const MenuBarParts& parts, bool monochrome);
    static QImage image(const MenuBarParts& parts, bool monochrome, const Context& context);

    static qreal width(const MenuBarPart& part);
    static qreal width(const MenuBarParts& parts);

    // The colour of text and outlines: the label colour, or black for a template image.
    static QColor foreground(bool monochrome, bool dark);
    static QColor color(PartColor color, bool dark);

    // A template image re-coloured for the panel it sits on (trays do not tint images themselves).
    static QImage tinted(const QImage& templateImage, const QColor& color);

    static QFont textFont();
    static QFont stackedFont();
};

} // namespace pulsebar
