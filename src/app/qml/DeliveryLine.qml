// SPDX-License-Identifier: MIT
import QtQuick
import QtQuick.Layouts
import Quillmere.Live

// What waits to be delivered and why ("3 fotos en espera — sin conexión"), or nothing at all:
// no text, no space. Orange, as a paused badge: the photos are safe, only late.
Text {
    id: line

    // A string, or undefined when nothing waits.
    required property var message

    objectName: "deliveryLine"
    visible: line.message !== undefined && line.message !== null
    text: visible ? line.message : ""
    color: Theme.orange
    font.pixelSize: 12
    font.weight: Font.Medium
    wrapMode: Text.Wrap
    horizontalAlignment: implicitWidth > width ? Text.AlignLeft : Text.AlignHCenter
    Layout.fillWidth: true

    Accessible.role: Accessible.StaticText
    Accessible.name: text
}
