// SPDX-License-Identifier: MIT
import QtQuick
import QtQuick.Layouts
import Quillmere.Live

// Sign-in: e-mail and password go to the controller as they are typed; only the button signs in.
ScreenStack {
    id: screen

    required property SessionViewModel viewModel

    objectName: "loginView"

    ProductTitle {
        Layout.alignment: Qt.AlignHCenter
    }

    FieldGroup {
        Layout.fillWidth: true
        label: "EMAIL"

        FieldBox {
            objectName: "emailField"
            Layout.fillWidth: true
            focus: true
            accessibleName: "Email"
            placeholderText: "nombre@estudio.ejemplo"
            inputMethodHints: Qt.ImhEmailCharactersOnly | Qt.ImhNoAutoUppercase
            font.pixelSize: 14
            font.weight: Font.Medium
            text: screen.viewModel.email
            onTextEdited: screen.viewModel.email = text
        }
    }

    FieldGroup {
        Layout.fillWidth: true
        label: "CONTRASEÑA"

        FieldBox {
            objectName: "passwordField"
            Layout.fillWidth: true
            accessibleName: "Contraseña"
            // Assistive tools read the field's text back unless it is declared a password.
            Accessible.passwordEdit: true
            placeholderText: "••••••••"
            echoMode: TextInput.Password
            passwordCharacter: "•"
            font.pixelSize: 14
            font.weight: Font.Medium
            text: screen.viewModel.password
            onTextEdited: screen.viewModel.password = text
        }
    }

    DeliveryLine {
        message: screen.viewModel.deliveryNotice
    }

    ErrorLine {
        message: screen.viewModel.error
    }

    // Never disabled: a press while a sign-in is under way starts another one.
    PlainButton {
        id: signIn

        objectName: "signInButton"
        Layout.fillWidth: true
        implicitHeight: Math.max(44, label.implicitHeight)
        accessibleName: "Iniciar Sesión"
        dimsWhenPressed: false
        focusRadius: 12
        onActivated: screen.viewModel.login()

        Rectangle {
            anchors.fill: parent
            radius: 12
            color: signIn.pressed ? Qt.darker(Theme.accentColor, 1.2) : Theme.accentColor
        }

        Text {
            id: label

            objectName: "signInLabel"
            anchors.centerIn: parent
            visible: !screen.viewModel.isAuthenticating
            text: "Iniciar Sesión"
            color: "white"
            font.pixelSize: 15
            font.weight: Font.DemiBold
        }

        Spinner {
            objectName: "signInSpinner"
            anchors.centerIn: parent
            scale: 0.7
            visible: screen.viewModel.isAuthenticating
            running: visible
            color: "white"
        }
    }
}
