// SPDX-License-Identifier: MIT
import QtQuick
import QtQuick.Layouts
import Quillmere.Live

// A link as a QR code for the client's phone, and the address under it for whoever would rather
// type it. Dark on white in both appearances, as readers expect; as wide as the screen allows,
// so that a phone reads it at arm's length off a laptop's screen.
Rectangle {
    id: card

    required property string url
    readonly property string shownURL: url.replace(/https:\/\//g, "")

    implicitHeight: column.implicitHeight + 2 * padding.y
    radius: Theme.fieldRadius
    color: "#FFFFFF"

    Accessible.role: Accessible.Graphic
    Accessible.name: "Código QR de " + card.shownURL

    QtObject {
        id: padding

        // The code brings its own white margin: a little more is enough around it.
        readonly property int x: 4
        readonly property int y: 8
    }

    ColumnLayout {
        id: column

        x: padding.x
        y: padding.y
        width: card.width - 2 * padding.x
        spacing: 2

        QrCode {
            objectName: "qrCode"
            Layout.fillWidth: true
            Layout.preferredHeight: width
            text: card.url
        }

        Text {
            objectName: "qrLink"
            Layout.fillWidth: true
            Layout.leftMargin: 12
            Layout.rightMargin: 12
            text: card.shownURL
            color: "#1D1D1F"
            font.pixelSize: 13
            font.weight: Font.DemiBold
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.WrapAtWordBoundaryOrAnywhere
        }
    }
}
