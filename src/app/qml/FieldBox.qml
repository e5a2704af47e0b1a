// SPDX-License-Identifier: MIT
import QtQuick
import QtQuick.Controls.Basic
import Quillmere.Live

// An editable text field without bezel or focus ring of its own, on the window background
// colour, clipped to a rounded rectangle. `inset` is its padding on all four sides.
TextField {
    id: field

    property string accessibleName
    property int inset: 12

    padding: inset
    leftPadding: inset
    rightPadding: inset
    topPadding: inset
    bottomPadding: inset
    color: Theme.primary
    placeholderTextColor: Theme.tertiaryLabelColor
    selectionColor: Theme.accentColor
    selectedTextColor: "white"
    selectByMouse: true

    background: Rectangle {
        radius: Theme.fieldRadius
        color: Theme.windowBackgroundColor
    }

    Accessible.role: Accessible.EditableText
    Accessible.name: field.accessibleName
    Accessible.description: field.placeholderText
    Accessible.onPressAction: field.forceActiveFocus()
}
