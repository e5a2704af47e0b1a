// SPDX-License-Identifier: MIT
import QtQuick
import Quillmere.Live

// Shows the QR code of a link, beside which it stands, and hides it again. The screen holds
// whether the code is shown, so that Escape closes it too.
PlainButton {
    id: button

    property bool shown: false

    signal toggled()

    implicitWidth: 17
    implicitHeight: 17
    onActivated: button.toggled()

    Accessible.checkable: true
    Accessible.checked: button.shown

    Glyph {
        anchors.fill: parent
        name: "qrcode"
        color: button.shown ? Theme.accentColor : Theme.secondary
    }
}
