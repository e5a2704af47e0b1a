// SPDX-License-Identifier: MIT
import QtQuick
import QtQuick.Layouts
import Quillmere.Live

// The session the photographer quit from while it recorded, offered to go on with in one press:
// same client, same link. Starting a new one below leaves it as the service has it.
PlainButton {
    id: offer

    // The client's name of the session offered.
    required property string clientName

    objectName: "resumeOffer"
    implicitHeight: offerRow.implicitHeight + 28
    focusRadius: Theme.fieldRadius
    accessibleName: "Continuar la sesión de " + offer.clientName

    Rectangle {
        anchors.fill: parent
        radius: Theme.fieldRadius
        color: Theme.windowBackgroundColor
    }

    RowLayout {
        id: offerRow

        anchors.fill: parent
        anchors.margins: 14
        spacing: 12

        Glyph {
            implicitWidth: 17
            implicitHeight: 17
            name: "play.fill"
            color: Theme.red
        }

        ColumnLayout {
            Layout.fillWidth: true
            spacing: 2

            Text {
                objectName: "resumeOfferTitle"
                Layout.fillWidth: true
                text: offer.accessibleName
                color: Theme.primary
                font.pixelSize: 13
                font.weight: Font.DemiBold
                wrapMode: Text.Wrap
            }

            Text {
                Layout.fillWidth: true
                text: "Mismo enlace para el cliente; las fotos nuevas de la carpeta se envían"
                color: Theme.secondary
                font.pixelSize: 11
                wrapMode: Text.Wrap
            }
        }
    }
}
