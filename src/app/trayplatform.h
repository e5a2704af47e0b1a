// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <optional>

class QMenu;
class QObject;
class QSystemTrayIcon;
class QWindow;

// What the tray icon and its panel do differently on each desktop system, one source file per
// system (trayplatform_mac.mm, trayplatform_win.cpp, trayplatform_other.cpp), each written from
// the documentation it cites.
class TrayPlatform {
public:
    // Gives the icon its menu the way the system's users reach it.
    static void attachMenu(QSystemTrayIcon &tray, QMenu &menu);
    // Brings the program forward with the panel, so that the panel takes the typing.
    static void activate(QWindow &panel);
    // Whether the icon stands on a light background, where the system says so for the tray
    // itself rather than for the applications; nothing where the application palette says it.
    static std::optional<bool> lightTray();
    // Calls `changed` (in `context`) whenever lightTray() may have changed.
    static void watchLightTray(QObject *context, std::function<void()> changed);
};
