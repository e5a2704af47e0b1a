// SPDX-License-Identifier: MIT
// macOS. Not compiled or run on the machines this was written on: written from the documents
// cited, untried.
//
// A status item's menu: with a context menu set, Qt hands it to the NSStatusItem, which then
// opens it on any click (https://doc.qt.io/qt-6/qsystemtrayicon.html#setContextMenu,
// https://developer.apple.com/documentation/appkit/nsstatusitem/menu), and the panel could not
// be reached. So no menu is set: Qt then reports a left click as Trigger (the panel) and a
// right click as Context (https://doc.qt.io/qt-6/qsystemtrayicon.html#ActivationReason-enum),
// on which the menu pops up under the pointer.
//
// The panel is a Qt::Tool window of an LSUIElement app (no Dock icon), which macOS does not
// make active by showing it: the app is activated (NSApplication activateIgnoringOtherApps:,
// https://developer.apple.com/documentation/appkit/nsapplication/1428468-activateignoringotherapps)
// and its window may join a full-screen space, over a full-screen editor
// (NSWindowCollectionBehaviorFullScreenAuxiliary and CanJoinAllSpaces,
// https://developer.apple.com/documentation/appkit/nswindow/collectionbehavior).
#include "trayplatform.h"

#include <QCursor>
#include <QMenu>
#include <QSystemTrayIcon>
#include <QWindow>

#import <AppKit/AppKit.h>

void TrayPlatform::attachMenu(QSystemTrayIcon &tray, QMenu &menu) {
    QObject::connect(&tray, &QSystemTrayIcon::activated, &menu,
                     [&menu](QSystemTrayIcon::ActivationReason reason) {
                         if (reason == QSystemTrayIcon::Context)
                             menu.popup(QCursor::pos());
                     });
}

void TrayPlatform::activate(QWindow &panel) {
    auto *view = reinterpret_cast<NSView *>(panel.winId());
    NSWindow *window = [view window];
    window.collectionBehavior |= NSWindowCollectionBehaviorCanJoinAllSpaces |
                                 NSWindowCollectionBehaviorFullScreenAuxiliary;
    [NSApp activateIgnoringOtherApps:YES];
    [window makeKeyAndOrderFront:nil];
    panel.requestActivate();
}

std::optional<bool> TrayPlatform::lightTray() {
    // The status item's template image is drawn by the menu bar in its own colours; the
    // application palette is right for the panel.
    return std::nullopt;
}

void TrayPlatform::watchLightTray(QObject *, std::function<void()>) {}
