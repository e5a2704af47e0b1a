// SPDX-License-Identifier: MIT
import QtQuick
import Quillmere.Live

Text {
    color: Theme.tertiaryLabelColor
    font.pixelSize: 11
    font.weight: Font.DemiBold
    font.letterSpacing: 0.5
    font.capitalization: Font.AllUppercase

    Accessible.role: Accessible.StaticText
    Accessible.name: text
}
