// SPDX-License-Identifier: MIT
import QtQuick
import Quillmere.Live

// An indeterminate progress spinner: a ring of ticks fading behind the leading one, turning.
Item {
    id: spinner

    property color color: Theme.primary
    property bool running: true
    readonly property int ticks: 12

    implicitWidth: 32
    implicitHeight: 32

    Accessible.role: Accessible.Animation
    Accessible.name: "En curso"

    Repeater {
        model: spinner.ticks

        Rectangle {
            required property int index

            x: (spinner.width - width) / 2
            width: Math.max(2, spinner.width * 0.09)
            height: spinner.height * 0.28
            radius: width / 2
            color: spinner.color
            opacity: 1 - 0.8 * index / spinner.ticks
            transform: Rotation {
                origin.x: width / 2
                origin.y: spinner.height / 2
                angle: -index * 360 / spinner.ticks
            }
        }
    }

    RotationAnimator on rotation {
        from: 0
        to: 360
        duration: 1000
        loops: Animation.Infinite
        // Not while nobody sees it: a hidden panel costs no wake-ups.
        running: spinner.running && spinner.visible && spinner.Window.visibility !== Window.Hidden
                 && spinner.Window.visibility !== Window.Minimized
    }
}
