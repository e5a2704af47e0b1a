// SPDX-License-Identifier: MIT
import QtQuick
import Quillmere.Live

// The panel's content: the screen the controller calls for, a divider, and the quit row. No
// screen is kept: coming back to one builds it afresh from the controller.
FocusScope {
    id: root

    required property SessionViewModel viewModel
    // What the slot above the divider shows; follows the controller.
    property int screen: screenSwitch.screen
    // Where the recording screen reads its count: the session's upload manager.
    property QtObject uploadManager: viewModel.uploadManager
    // The screen shown has something open that Escape closes before it closes the panel.
    readonly property bool holdsEscape: screenSlot.item ? screenSlot.item.holdsEscape === true
                                                        : false

    signal quitRequested()

    implicitWidth: Theme.panelWidth
    implicitHeight: column.implicitHeight

    Rectangle {
        objectName: "panelBackground"
        anchors.fill: parent
        color: Theme.controlBackgroundColor
    }

    ScreenSwitch {
        id: screenSwitch

        viewModel: root.viewModel
    }

    Component {
        id: loginScreen

        LoginView {
            focus: true
            viewModel: root.viewModel
        }
    }

    Component {
        id: setupScreen

        SetupView {
            focus: true
            viewModel: root.viewModel
        }
    }

    Component {
        id: recordingScreen

        RecordingView {
            focus: true
            viewModel: root.viewModel
            uploadManager: root.uploadManager
            badgeVisible: true
        }
    }

    Component {
        id: finishedScreen

        FinishedView {
            focus: true
            viewModel: root.viewModel
        }
    }

    Column {
        id: column

        width: parent.width

        Loader {
            id: screenSlot

            objectName: "screenSlot"
            width: parent.width
            height: item ? item.implicitHeight : 0
            focus: true
            sourceComponent: {
                switch (root.screen) {
                case ScreenSwitch.Login:
                    return loginScreen
                case ScreenSwitch.Setup:
                    return setupScreen
                case ScreenSwitch.Recording:
                    return recordingScreen
                case ScreenSwitch.Finished:
                    return finishedScreen
                }
                return null
            }
        }

        Rectangle {
            objectName: "divider"
            width: parent.width
            height: 1
            color: Theme.separatorColor
        }

        // Quits, even in the middle of a recording, asking first only while photos are still
        // owed; the session is not ended on the service.
        Item {
            width: parent.width
            implicitHeight: quitButton.implicitHeight + 8

            PlainButton {
                id: quitButton

                objectName: "quitButton"
                x: 16
                y: 4
                width: parent.width - 32
                implicitHeight: quitLabel.implicitHeight + 12
                accessibleName: "Salir"
                onActivated: root.quitRequested()

                Text {
                    id: quitLabel

                    anchors.centerIn: parent
                    text: "Salir"
                    color: Theme.secondary
                    font.pixelSize: 10
                }
            }
        }
    }
}
