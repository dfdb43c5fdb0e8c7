#include "panels/panel_placement.h"

#include <algorithm>

namespace pulsebar {

namespace {

constexpr int gap = 5;

int clampInto(int position, int length, int low, int high)
{
    return std::max(low, std::min(position, high - length + 1));
}

} // namespace

QRect panelGeometry(QSize size, QRect anchor, QRect available, QRect screen)
{
    QRect frame(QPoint(0, 0), size.boundedTo(available.size()));
    const bool sideBar = anchor.right() < available.left() || anchor.left() > available.right();
    if (sideBar) {
        const bool left = anchor.right() < available.left();
        frame.moveLeft(left ? available.left() + gap : available.right() - gap - frame.width() + 1);
        frame.moveTop(anchor.center().y() - frame.height() / 2);
    } else {
        const bool below = anchor.center().y() < screen.center().y();
        frame.moveTop(below ? anchor.bottom() + 1 + gap : anchor.top() - gap - frame.height());
        frame.moveLeft(anchor.center().x() - frame.width() / 2);
    }
    frame.moveLeft(clampInto(frame.left(), frame.width(), available.left(), available.right()));
    frame.moveTop(clampInto(frame.top(), frame.height(), available.top(), available.bottom()));
    return frame;
}

} // namespace pulsebar
