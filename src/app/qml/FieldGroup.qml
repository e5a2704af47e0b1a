// SPDX-License-Identifier: MIT
import QtQuick
import QtQuick.Layouts
import Quillmere.Live

// A section label above the field box that the group holds, leading aligned.
ColumnLayout {
    property alias label: sectionLabel.text

    spacing: 4

    SectionLabel {
        id: sectionLabel
    }
}
