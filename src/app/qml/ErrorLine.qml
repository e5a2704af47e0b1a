// SPDX-License-Identifier: MIT
import QtQuick
import QtQuick.Layouts
import Quillmere.Live

// The controller's error, or nothing at all: no text, no space, no spacing around it.
Text {
    id: line

    // A string, or undefined for no error.
    required property var message

    objectName: "errorLine"
    visible: line.message !== undefined && line.message !== null
    text: visible ? line.message : ""
    color: Theme.red
    font.pixelSize: 12
    wrapMode: Text.Wrap
    // One line sits in the middle; a message that wraps reads from the leading edge.
    horizontalAlignment: implicitWidth > width ? Text.AlignLeft : Text.AlignHCenter
    Layout.fillWidth: true

    Accessible.role: Accessible.AlertMessage
    Accessible.name: text
}
