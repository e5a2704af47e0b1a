// SPDX-License-Identifier: MIT
import QtQuick
import QtQuick.Layouts
import Quillmere.Live

// A round control over its caption. The rounded square is decoration only: the button it holds,
// centred in it, is the click target.
ColumnLayout {
    id: group

    property string caption
    property int captionPixelSize: 11
    default property alias control: square.data

    spacing: 6

    Rectangle {
        id: square

        Layout.alignment: Qt.AlignHCenter
        implicitWidth: Theme.roundControlSize
        implicitHeight: Theme.roundControlSize
        radius: Theme.roundControlRadius
        color: Theme.windowBackgroundColor
    }

    ScreenText {
        objectName: "caption"
        Layout.alignment: Qt.AlignHCenter
        text: group.caption
        color: Theme.secondary
        font.pixelSize: group.captionPixelSize
        font.weight: Font.Medium
    }
}
