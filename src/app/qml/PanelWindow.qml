// SPDX-License-Identifier: MIT
import QtQuick
import QtQuick.Window
import Quillmere.Live

// The panel under the tray icon (or, on a desktop without a tray, a small window of its own):
// 340 wide, as high as its content. The application places, shows and hides it.
Window {
    id: panel

    required property SessionViewModel viewModel

    // The quit row: the application decides, asking first when photos are still owed.
    signal quitRequested()
    // Escape closes what the screen has open (a QR code) before it closes the panel.
    readonly property bool holdsEscape: content.holdsEscape

    title: "Quillmere Live"
    width: Theme.panelWidth
    // As high as the content, which no limit holds: Qt 6.4's Wayland window keeps to the limits
    // it is first shown with, before the content is laid out.
    height: content.implicitHeight
    minimumWidth: Theme.panelWidth
    maximumWidth: Theme.panelWidth
    color: Theme.controlBackgroundColor

    ContentView {
        id: content

        objectName: "contentView"
        width: parent.width
        height: implicitHeight
        focus: true
        viewModel: panel.viewModel
        onQuitRequested: panel.quitRequested()
    }
}
