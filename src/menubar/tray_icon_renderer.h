#pragma once

#include "core/tray_host.h"
#include "menubar/tray_face.h"

#include <QImage>

#include <vector>

namespace pulsebar {

// Draws a TrayFace into a square icon, designed for the 16 to 24 px that trays show, for a dark or a
// light panel. Graphs fill the square with fewer, wider bars than the wide renderer so each bar
// stays at least a pixel and a half wide; symbols fill it; values are digits as large as fit.
class TrayIconRenderer {
public:
    // The sizes every item offers the tray; it picks the one closest to its own.
    static constexpr int sizes[] = {16, 22, 24, 32, 48, 64};

    static QImage image(const TrayFace& face, int size, bool darkPanel, bool monochrome);
    static std::vector<TrayPixmap> pixmaps(const TrayFace& face, bool darkPanel, bool monochrome);
    // The image as the tray protocol carries it: ARGB32, big-endian.
    static TrayPixmap pixmap(const QImage& image);

    // Text and outlines: near-white on a dark panel, near-black on a light one.
    static QColor foreground(bool darkPanel);
};

} // namespace pulsebar
