// SPDX-License-Identifier: MIT
import QtQuick
import QtQuick.Layouts
import Quillmere.Live

// A running live session: the pulsing badge, the photos sent so far, the live link to share,
// and pause and stop.
ScreenStack {
    id: screen

    required property SessionViewModel viewModel
    // The session's upload manager, or anything else that has an uploadedCount.
    required property QtObject uploadManager
    // Starts true and is put to false once, when the screen first shows: the pulse runs from
    // then on, in both the live and the paused colours.
    property bool badgeVisible: true

    readonly property bool paused: viewModel.isPaused
    readonly property var liveURL: viewModel.session.liveURL
    readonly property bool hasLiveURL: liveURL !== undefined && liveURL !== null
    // The live link as a QR code, for the client's phone; Escape hides it as its button does.
    property bool qrShown: false
    readonly property bool holdsEscape: qrShown && hasLiveURL

    objectName: "recordingView"

    Component.onCompleted: badgeVisible = false
    Keys.onEscapePressed: event => {
        event.accepted = screen.holdsEscape
        screen.qrShown = false
    }

    SessionHeader {
        Layout.fillWidth: true
        clientName: screen.viewModel.session.clientName

        StatusPill {
            id: badge

            objectName: "liveBadge"
            tint: screen.paused ? Theme.orange : Theme.red
            text: screen.paused ? "PAUSADO" : "EN VIVO"
            dot: true

            SequentialAnimation on opacity {
                // Not while nobody sees it: a hidden panel costs no wake-ups.
                running: !screen.badgeVisible && screen.Window.visibility !== Window.Hidden
                         && screen.Window.visibility !== Window.Minimized
                loops: Animation.Infinite
                onStopped: badge.opacity = 1.0

                NumberAnimation {
                    from: 1.0
                    to: 0.2
                    duration: 600
                    easing.type: Easing.BezierSpline
                    easing.bezierCurve: [0.42, 0, 0.58, 1, 1, 1]
                }
                NumberAnimation {
                    from: 0.2
                    to: 1.0
                    duration: 600
                    easing.type: Easing.BezierSpline
                    easing.bezierCurve: [0.42, 0, 0.58, 1, 1, 1]
                }
            }
        }
    }

    ColumnLayout {
        Layout.alignment: Qt.AlignHCenter
        Layout.topMargin: 8
        Layout.bottomMargin: 8
        spacing: 4

        Counter {
            objectName: "uploadedCounter"
            Layout.alignment: Qt.AlignHCenter
            value: screen.uploadManager ? screen.uploadManager.uploadedCount : 0
            font.pixelSize: 72
            font.weight: Font.ExtraBold
            color: Theme.primary
        }

        ScreenText {
            Layout.alignment: Qt.AlignHCenter
            text: "fotos subidas"
            color: Theme.secondary
            font.pixelSize: 14
            font.weight: Font.Medium
        }
    }

    Rectangle {
        objectName: "linkRow"
        Layout.fillWidth: true
        visible: screen.hasLiveURL
        implicitHeight: linkRow.implicitHeight + 32
        radius: Theme.linkBoxRadius
        color: Theme.windowBackgroundColor

        RowLayout {
            id: linkRow

            anchors.fill: parent
            anchors.margins: Theme.boxPadding
            spacing: 8

            LinkText {
                objectName: "liveLink"
                Layout.fillWidth: true
                url: screen.hasLiveURL ? screen.liveURL : ""
                elide: Text.ElideRight
                maximumLineCount: 1
            }

            // The whole address goes to the clipboard, scheme included; only the screen
            // leaves the scheme out.
            PlainButton {
                objectName: "copyButton"
                implicitWidth: 17
                implicitHeight: 17
                accessibleName: "Copiar enlace en vivo"
                onActivated: Clipboard.setText(screen.liveURL)

                Glyph {
                    anchors.fill: parent
                    name: "doc.on.clipboard"
                    color: Theme.secondary
                }
            }

            QrCodeButton {
                objectName: "liveQrButton"
                accessibleName: "Código QR del enlace en vivo"
                shown: screen.qrShown
                onToggled: screen.qrShown = !screen.qrShown
            }
        }
    }

    QrCodeCard {
        objectName: "liveQrCard"
        Layout.fillWidth: true
        visible: screen.holdsEscape
        url: screen.hasLiveURL ? screen.liveURL : ""
    }

    // Taken up again after the program went away: said once, in the quiet colour of a caption.
    DeliveryLine {
        objectName: "resumeLine"
        message: screen.viewModel.resumeNotice
        color: Theme.secondary
    }

    DeliveryLine {
        objectName: "folderLine"
        message: screen.viewModel.folderNotice
    }

    DeliveryLine {
        message: screen.viewModel.deliveryNotice
    }

    DeliveryLine {
        objectName: "refusedLine"
        message: screen.viewModel.refusedNotice
        color: Theme.red
    }

    DeliveryLine {
        objectName: "journalLine"
        message: screen.viewModel.journalNotice
        color: Theme.red
    }

    ErrorLine {
        message: screen.viewModel.error
    }

    RowLayout {
        Layout.alignment: Qt.AlignHCenter
        spacing: 16

        ControlGroup {
            caption: screen.paused ? "Reanudar" : "Pausar"

            PlainButton {
                objectName: "pauseButton"
                anchors.centerIn: parent
                width: 24
                height: 24
                accessibleName: screen.paused ? "Reanudar" : "Pausar"
                onActivated: screen.viewModel.isPaused = !screen.viewModel.isPaused

                Glyph {
                    objectName: "pauseGlyph"
                    anchors.fill: parent
                    name: screen.paused ? "play.fill" : "pause.fill"
                    color: Theme.primary
                }
            }
        }

        ControlGroup {
            caption: "Detener"

            PlainButton {
                objectName: "stopButton"
                anchors.centerIn: parent
                width: 22
                height: 22
                accessibleName: "Detener"
                onActivated: screen.viewModel.stopSession()

                Rectangle {
                    anchors.fill: parent
                    radius: 4
                    color: Theme.primary
                }
            }
        }
    }
}
