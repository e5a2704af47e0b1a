// SPDX-License-Identifier: MIT
import QtQuick
import QtQuick.Layouts
import Quillmere.Live

// The client's name and the watch folder, then the start. Nothing here is ever disabled: the
// controller refuses a start without a name or a folder and says why in its error.
ScreenStack {
    id: screen

    required property SessionViewModel viewModel
    readonly property var folderPath: viewModel.session.watchFolderPath
    readonly property bool folderChosen: folderPath !== undefined && folderPath !== null

    objectName: "setupView"

    ProductTitle {
        Layout.alignment: Qt.AlignHCenter
    }

    ResumeOffer {
        Layout.fillWidth: true
        visible: screen.viewModel.resumeOffer !== undefined && screen.viewModel.resumeOffer !== null
        clientName: visible ? screen.viewModel.resumeOffer : ""
        onActivated: screen.viewModel.continueSession()
    }

    FieldGroup {
        Layout.fillWidth: true
        label: "CLIENTE"

        FieldBox {
            objectName: "clientField"
            Layout.fillWidth: true
            focus: true
            inset: 14
            accessibleName: "Cliente"
            placeholderText: "Nombre del cliente"
            font.pixelSize: 20
            font.weight: Font.Bold
            text: screen.viewModel.session.clientName
            onTextEdited: screen.viewModel.setClientName(text)
        }
    }

    FieldGroup {
        Layout.fillWidth: true
        label: "CARPETA"

        PlainButton {
            objectName: "folderButton"
            Layout.fillWidth: true
            implicitHeight: folderRow.implicitHeight + 28
            focusRadius: 12
            accessibleName: folderText.text
            onActivated: screen.viewModel.pickFolder()

            Rectangle {
                anchors.fill: parent
                radius: Theme.fieldRadius
                color: Theme.windowBackgroundColor
            }

            RowLayout {
                id: folderRow

                anchors.fill: parent
                anchors.margins: 14
                spacing: 8

                Text {
                    id: folderText

                    objectName: "folderText"
                    Layout.fillWidth: true
                    text: screen.folderChosen ? screen.folderPath : "Seleccionar carpeta..."
                    color: screen.folderChosen ? Theme.primary : Theme.secondary
                    font.pixelSize: 13
                    font.weight: Font.Medium
                    elide: Text.ElideMiddle
                    maximumLineCount: 1
                }

                Glyph {
                    implicitWidth: 17
                    implicitHeight: 17
                    name: "folder"
                    color: Theme.secondary
                }
            }
        }
    }

    DeliveryLine {
        message: screen.viewModel.deliveryNotice
    }

    DeliveryLine {
        objectName: "journalLine"
        message: screen.viewModel.journalNotice
        color: Theme.red
    }

    ErrorLine {
        message: screen.viewModel.error
    }

    ControlGroup {
        Layout.alignment: Qt.AlignHCenter
        caption: "Iniciar"
        captionPixelSize: 12

        PlainButton {
            objectName: "startButton"
            anchors.centerIn: parent
            width: 32
            height: 32
            focusRadius: 16
            accessibleName: "Iniciar"
            onActivated: screen.viewModel.startSession()

            Rectangle {
                anchors.fill: parent
                radius: width / 2
                color: Theme.red
            }
        }
    }
}
