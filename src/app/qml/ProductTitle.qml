// SPDX-License-Identifier: MIT
import QtQuick
import Quillmere.Live

Text {
    text: "QUILLMERE"
    color: Theme.secondary
    font.pixelSize: 13
    font.weight: Font.DemiBold
    font.letterSpacing: 1

    Accessible.role: Accessible.Heading
    Accessible.name: text
}
