// SPDX-License-Identifier: MIT
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import Quillmere.Live

// The stopped session as the stop left it: counts, the originals still on their way, the
// gallery link, and the way to the next session. There is no error line here.
ScreenStack {
    id: screen

    required property SessionViewModel viewModel

    readonly property var session: viewModel.session
    readonly property double fullResUploaded: session.fullResUploaded
    readonly property double fullResTotal: session.fullResTotal
    readonly property var galleryURL: session.galleryURL
    readonly property bool hasGalleryURL: galleryURL !== undefined && galleryURL !== null
    // The gallery link as a QR code, for the client's phone; Escape hides it as its button does.
    property bool qrShown: false
    readonly property bool holdsEscape: qrShown && hasGalleryURL

    objectName: "finishedView"

    Keys.onEscapePressed: event => {
        event.accepted = screen.holdsEscape
        screen.qrShown = false
    }

    SessionHeader {
        Layout.fillWidth: true
        clientName: screen.session.clientName

        StatusPill {
            objectName: "finishedBadge"
            tint: Theme.green
            text: "✓ Terminada"
        }
    }

    RowLayout {
        Layout.alignment: Qt.AlignHCenter
        Layout.topMargin: 8
        Layout.bottomMargin: 8
        spacing: 40

        ColumnLayout {
            Layout.alignment: Qt.AlignTop
            spacing: 4

            Counter {
                objectName: "uploadedCount"
                Layout.alignment: Qt.AlignHCenter
                value: screen.session.uploadedCount
                font.pixelSize: 56
                font.weight: Font.ExtraBold
                color: Theme.primary
            }

            ScreenText {
                Layout.alignment: Qt.AlignHCenter
                text: "fotos"
                color: Theme.secondary
                font.pixelSize: 12
                font.weight: Font.Medium
            }
        }

        ColumnLayout {
            Layout.alignment: Qt.AlignTop
            spacing: 4

            Counter {
                objectName: "selectedCount"
                Layout.alignment: Qt.AlignHCenter
                value: screen.session.selectedCount
                font.pixelSize: 56
                font.weight: Font.ExtraBold
                color: Theme.blue
            }

            ScreenText {
                Layout.alignment: Qt.AlignHCenter
                text: "seleccionadas"
                color: Theme.secondary
                font.pixelSize: 12
                font.weight: Font.Medium
            }
        }
    }

    // Only while some originals were still on their way when the session stopped.
    Rectangle {
        objectName: "originalsBox"
        Layout.fillWidth: true
        visible: screen.fullResTotal >= 1 && screen.fullResUploaded < screen.fullResTotal
        implicitHeight: originals.implicitHeight + 2 * Theme.boxPadding
        radius: Theme.fieldRadius
        color: Theme.windowBackgroundColor

        ColumnLayout {
            id: originals

            anchors.fill: parent
            anchors.margins: Theme.boxPadding
            spacing: 6

            RowLayout {
                Layout.fillWidth: true

                ScreenText {
                    Layout.fillWidth: true
                    text: "Subiendo originales"
                    color: Theme.secondary
                    font.pixelSize: 12
                    font.weight: Font.Medium
                }

                ScreenText {
                    objectName: "originalsCount"
                    text: screen.fullResUploaded.toFixed(0) + "/" + screen.fullResTotal.toFixed(0)
                    color: Theme.primary
                    font.pixelSize: 12
                    font.weight: Font.DemiBold
                }
            }

            ProgressBar {
                id: bar

                objectName: "originalsProgress"
                Layout.fillWidth: true
                from: 0
                to: Math.max(1, screen.fullResTotal)
                value: screen.fullResUploaded
                padding: 0

                Accessible.role: Accessible.ProgressBar
                Accessible.name: "Subiendo originales"

                background: Rectangle {
                    implicitHeight: 6
                    radius: 3
                    color: Theme.progressTrackColor
                }

                contentItem: Item {
                    implicitHeight: 6

                    Rectangle {
                        objectName: "originalsFill"
                        width: parent.width * bar.visualPosition
                        height: parent.height
                        radius: 3
                        color: Theme.orange
                    }
                }
            }
        }
    }

    // Live, unlike the counts above: whether every original has gone through, or how many photos
    // are still to go and why.
    ScreenText {
        objectName: "deliveryState"
        readonly property int owed: screen.viewModel.originalsOwed

        Layout.fillWidth: true
        visible: owed > 0 || screen.session.uploadedCount > 0
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.Wrap
        text: owed === 0 ? "✓ Todos los originales enviados"
              : (owed === 1 ? "Falta 1 foto por enviar" : "Faltan " + owed + " fotos por enviar")
                + " — " + screen.viewModel.deliveryReason
        color: owed === 0 ? Theme.green : Theme.orange
        font.pixelSize: 12
        font.weight: Font.Medium
    }

    DeliveryLine {
        objectName: "refusedLine"
        message: screen.viewModel.refusedNotice
        color: Theme.red
    }

    Rectangle {
        objectName: "galleryBox"
        Layout.fillWidth: true
        visible: screen.hasGalleryURL
        implicitHeight: gallery.implicitHeight + 2 * Theme.boxPadding
        radius: Theme.linkBoxRadius
        color: Theme.windowBackgroundColor

        ColumnLayout {
            id: gallery

            anchors.fill: parent
            anchors.margins: Theme.boxPadding
            spacing: 4

            RowLayout {
                Layout.fillWidth: true

                ScreenText {
                    Layout.fillWidth: true
                    text: "GALERÍA"
                    color: Theme.tertiaryLabelColor
                    font.pixelSize: 10
                    font.weight: Font.DemiBold
                    font.letterSpacing: 0.5
                }

                QrCodeButton {
                    objectName: "galleryQrButton"
                    accessibleName: "Código QR de la galería"
                    shown: screen.qrShown
                    onToggled: screen.qrShown = !screen.qrShown
                }
            }

            LinkText {
                objectName: "galleryLink"
                Layout.fillWidth: true
                url: screen.hasGalleryURL ? screen.galleryURL : ""
                wrapMode: Text.WrapAnywhere
            }
        }
    }

    QrCodeCard {
        objectName: "galleryQrCard"
        Layout.fillWidth: true
        visible: screen.holdsEscape
        url: screen.hasGalleryURL ? screen.galleryURL : ""
    }

    ControlGroup {
        Layout.alignment: Qt.AlignHCenter
        caption: "Nueva Sesión"

        PlainButton {
            objectName: "newSessionButton"
            anchors.centerIn: parent
            width: 24
            height: 24
            accessibleName: "Nueva Sesión"
            onActivated: screen.viewModel.newSession()

            Glyph {
                anchors.fill: parent
                name: "arrow.counterclockwise"
                color: Theme.primary
            }
        }
    }
}
