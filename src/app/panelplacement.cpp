// SPDX-License-Identifier: MIT
#include "panelplacement.h"

#include <algorithm>

namespace {

enum class Bar { top, bottom, left, right };

// Which bar the icon sits in: a bar is outside the free area, so the icon is beside it on
// that side. An icon inside the free area (a bar that reserves no room, or the pointer) counts
// as in the top or bottom bar by the half of the screen it is in.
Bar barOf(const QRect &icon, const QRect &available) {
    const int iconBottom = icon.y() + icon.height();
    const int iconRight = icon.x() + icon.width();
    if (iconBottom <= available.y())
        return Bar::top;
    if (icon.y() >= available.y() + available.height())
        return Bar::bottom;
    if (iconRight <= available.x())
        return Bar::left;
    if (icon.x() >= available.x() + available.width())
        return Bar::right;
    return 2 * icon.center().y() < 2 * available.y() + available.height() ? Bar::top : Bar::bottom;
}

// Half of a difference, rounded down also when it is negative, so a centred panel lands on the
// same pixel whichever way the sizes differ.
int halfDown(int difference) {
    return difference >= 0 ? difference / 2 : -((1 - difference) / 2);
}

int clampInto(int start, int length, int areaStart, int areaLength) {
    // When the panel is longer than the area, its start stays in view rather than its end.
    return std::max(areaStart, std::min(start, areaStart + areaLength - length));
}

} // namespace

QPoint PanelPlacement::position(const QRect &icon, const QRect &available, const QSize &panel) {
    const int centredX = icon.x() + halfDown(icon.width() - panel.width());
    const int centredY = icon.y() + halfDown(icon.height() - panel.height());
    QPoint corner;
    switch (barOf(icon, available)) {
    case Bar::top:
        corner = {centredX, icon.y() + icon.height() + gap};
        break;
    case Bar::bottom:
        corner = {centredX, icon.y() - gap - panel.height()};
        break;
    case Bar::left:
        corner = {icon.x() + icon.width() + gap, centredY};
        break;
    case Bar::right:
        corner = {icon.x() - gap - panel.width(), centredY};
        break;
    }
    return {clampInto(corner.x(), panel.width(), available.x(), available.width()),
            clampInto(corner.y(), panel.height(), available.y(), available.height())};
}

QRect PanelPlacement::anchor(const QRect &iconGeometry, const QPoint &cursor) {
    if (iconGeometry.isValid() && !iconGeometry.isEmpty())
        return iconGeometry;
    return {cursor, QSize(1, 1)};
}
