// SPDX-License-Identifier: MIT
#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

// Where the panel goes, worked out from rectangles alone so every desktop layout can be tested
// without one: the tray icon's rectangle, the free area of its screen (without bars and docks)
// and the panel's size. The platform quirks that feed it live with TrayPanel.
class PanelPlacement {
public:
    // Space left between the icon and the panel.
    static constexpr int gap = 4;

    // The panel's top-left corner: hanging under an icon in a bar at the top, standing above
    // one in a bar at the bottom, beside one in a bar at either side, centred on the icon along
    // the bar; always inside `available`, its top-left corner first when it does not fit.
    static QPoint position(const QRect &icon, const QRect &available, const QSize &panel);

    // What to place against: the icon's own rectangle when the platform reports one (X11
    // trays often report none), else the point under the pointer, where the opening click was.
    static QRect anchor(const QRect &iconGeometry, const QPoint &cursor);
};
