// SPDX-License-Identifier: MIT
import QtQuick
import Quillmere.Live

// A short status in its colour, with an optional dot before it, on the same colour at 10 %.
Rectangle {
    id: pill

    property color tint
    property string text
    property bool dot: false

    implicitWidth: content.implicitWidth + 24
    implicitHeight: content.implicitHeight + 10
    radius: Theme.pillRadius
    color: Qt.rgba(tint.r, tint.g, tint.b, 0.1)

    Accessible.role: Accessible.StaticText
    Accessible.name: pill.text

    Row {
        id: content

        anchors.centerIn: parent
        spacing: 5

        Rectangle {
            anchors.verticalCenter: parent.verticalCenter
            visible: pill.dot
            width: 7
            height: 7
            radius: 3.5
            color: pill.tint
        }

        Text {
            objectName: "pillText"
            anchors.verticalCenter: parent.verticalCenter
            text: pill.text
            color: pill.tint
            font.pixelSize: 12
            font.weight: Font.DemiBold
        }
    }
}
