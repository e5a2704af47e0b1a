// SPDX-License-Identifier: MIT
import QtQuick
import QtQuick.Layouts
import Quillmere.Live

// The frame of every screen: a centred vertical stack, 20 apart, 24 in from every edge. An item
// that is not visible takes no place and no spacing.
FocusScope {
    id: stack

    default property alias content: column.data

    implicitWidth: Theme.panelWidth
    implicitHeight: column.implicitHeight + 2 * Theme.screenPadding

    ColumnLayout {
        id: column

        x: Theme.screenPadding
        y: Theme.screenPadding
        width: stack.width - 2 * Theme.screenPadding
        spacing: Theme.screenSpacing
    }
}
