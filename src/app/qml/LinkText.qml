// SPDX-License-Identifier: MIT
import QtQuick
import Quillmere.Live

// A web address as the photographer reads it: without its "https://".
Text {
    property string url

    text: url.replace(/https:\/\//g, "")
    color: Theme.blue
    font.pixelSize: 15
    font.weight: Font.DemiBold

    Accessible.role: Accessible.StaticText
    Accessible.name: text
}
