// SPDX-License-Identifier: MIT
// Linux and the other X11 and Wayland desktops: Qt's defaults are what those trays expect
// (https://doc.qt.io/qt-6/qsystemtrayicon.html): the context menu on a right click, and on
// trays that open a menu for every click (some StatusNotifierItem hosts), the menu alone.
#include "trayplatform.h"

#include <QMenu>
#include <QSystemTrayIcon>
#include <QWindow>

void TrayPlatform::attachMenu(QSystemTrayIcon &tray, QMenu &menu) {
    tray.setContextMenu(&menu);
}

void TrayPlatform::activate(QWindow &panel) {
    panel.requestActivate();
}

std::optional<bool> TrayPlatform::lightTray() {
    return std::nullopt;
}

void TrayPlatform::watchLightTray(QObject *, std::function<void()>) {}
