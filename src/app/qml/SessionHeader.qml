// SPDX-License-Identifier: MIT
import QtQuick
import QtQuick.Layouts
import Quillmere.Live

// "SESIÓN" over the client's name at the leading edge; whatever the header holds (a status
// pill) goes to the trailing edge.
RowLayout {
    property string clientName

    spacing: 8

    ColumnLayout {
        Layout.fillWidth: true
        spacing: 2

        SectionLabel {
            text: "SESIÓN"
        }

        Text {
            objectName: "clientName"
            Layout.fillWidth: true
            text: clientName
            color: Theme.primary
            font.pixelSize: 18
            font.weight: Font.Bold
            elide: Text.ElideRight

            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }
    }
}
