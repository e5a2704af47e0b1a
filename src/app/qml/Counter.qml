// SPDX-License-Identifier: MIT
import QtQuick
import Quillmere.Live

// A count whose digits each take the width of the widest digit, so the number keeps its place
// while it grows. The system font has no tabular figures to switch on in Qt Quick here.
Row {
    id: counter

    property double value: 0
    property alias font: metrics.font
    property color color: Theme.primary
    readonly property string text: counter.value.toFixed(0)
    readonly property real digitWidth: {
        let widest = 0
        for (let digit = 0; digit <= 9; ++digit)
            widest = Math.max(widest, metrics.advanceWidth(String(digit)))
        return Math.ceil(widest)
    }

    Accessible.role: Accessible.StaticText
    Accessible.name: counter.text

    FontMetrics {
        id: metrics
    }

    Repeater {
        model: counter.text.split("")

        Text {
            required property string modelData

            width: counter.digitWidth
            horizontalAlignment: Text.AlignHCenter
            text: modelData
            color: counter.color
            font: counter.font
            // Read as one number, through the counter.
            Accessible.ignored: true
        }
    }
}
