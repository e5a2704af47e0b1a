// SPDX-License-Identifier: MIT
import QtQuick
import Quillmere.Live

// A button with no bezel and no background of its own: it is drawn by what it holds. The mouse,
// Space or Return while it has the keyboard focus, and the accessibility press action of
// assistive tools all press it.
Item {
    id: control

    property string accessibleName
    property bool dimsWhenPressed: true
    property real focusRadius: 6
    readonly property alias pressed: mouseArea.pressed

    signal activated()

    activeFocusOnTab: true
    opacity: dimsWhenPressed && pressed ? 0.6 : 1.0

    Accessible.role: Accessible.Button
    Accessible.name: control.accessibleName
    Accessible.focusable: true
    Accessible.onPressAction: control.activated()

    Keys.onPressed: event => {
        if (event.isAutoRepeat)
            return
        if (event.key === Qt.Key_Space || event.key === Qt.Key_Return
                || event.key === Qt.Key_Enter) {
            event.accepted = true
            control.activated()
        }
    }

    MouseArea {
        id: mouseArea
        anchors.fill: parent
        z: 1
        cursorShape: Qt.PointingHandCursor
        onClicked: control.activated()
    }

    // Only the keyboard gives a button the focus here, so the ring shows where Tab has gone.
    Rectangle {
        anchors.fill: parent
        anchors.margins: -3
        z: 2
        visible: control.activeFocus
        radius: control.focusRadius + 3
        color: "transparent"
        border.color: Theme.accentColor
        border.width: 2
    }
}
