// SPDX-License-Identifier: MIT
import QtQuick
import QtTest
import Quillmere.Live
import Quillmere.Test

Item {
    id: root

    width: 340
    height: 700

    TestCase {
        id: testCase

        name: "LoginView"
        when: windowShown

        Component {
            id: loginType

            LoginView {
                width: 340
                viewModel: Harness.viewModel
            }
        }

        function init() {
            verify(Harness.reset())
        }

        function makeScreen() {
            const screen = createTemporaryObject(loginType, root)
            verify(screen)
            waitForRendering(screen)
            return screen
        }

        function type(text) {
            for (const character of text)
                keyClick(character)
        }

        function textsOf(item) {
            let texts = []
            for (let i = 0; i < item.children.length; ++i) {
                const child = item.children[i]
                if (child.text !== undefined && child.visible)
                    texts.push(child.text)
                texts = texts.concat(textsOf(child))
            }
            return texts
        }

        function test_texts() {
            const screen = makeScreen()
            const texts = textsOf(screen)
            verify(texts.indexOf("QUILLMERE") >= 0, texts)
            verify(texts.indexOf("EMAIL") >= 0, texts)
            verify(texts.indexOf("CONTRASEÑA") >= 0, texts)
            compare(findChild(screen, "signInLabel").text, "Iniciar Sesión")
            compare(findChild(screen, "passwordField").placeholderText, "••••••••")
            verify(findChild(screen, "emailField").placeholderText.indexOf("@") > 0)
        }

        function test_fieldsWriteTheControllerAsTheyAreTyped() {
            const screen = makeScreen()
            const email = findChild(screen, "emailField")
            mouseClick(email)
            type("ana@")
            compare(Harness.viewModel.email, "ana@")
            const password = findChild(screen, "passwordField")
            mouseClick(password)
            type("s3cr")
            compare(Harness.viewModel.password, "s3cr")
            compare(password.echoMode, TextInput.Password)
            verify(password.displayText.indexOf("s3cr") < 0)
        }

        function test_fieldShowsTheControllersEmail() {
            Harness.viewModel.email = "recordada@estudio.ejemplo"
            const screen = makeScreen()
            compare(findChild(screen, "emailField").text, "recordada@estudio.ejemplo")
        }

        function test_errorLineOnlyWithAnError() {
            const screen = makeScreen()
            const error = findChild(screen, "errorLine")
            const button = findChild(screen, "signInButton")
            const passwordGroup = findChild(screen, "passwordField").parent
            verify(!error.visible)
            // Without an error the button follows the password field at the stack's spacing.
            compare(button.y - (passwordGroup.y + passwordGroup.height), 20)

            Harness.viewModel.email = "demo@quillmere.test"
            Harness.viewModel.password = "no-es-esta"
            mouseClick(button)
            tryCompare(Harness.viewModel, "isAuthenticating", false, 10000)
            verify(error.visible)
            compare(error.text, "Email o contraseña incorrectos")
            compare(error.color, Theme.red)
            compare(error.font.pixelSize, 12)
            // The stack moves the button down when it next lays itself out, before the next frame.
            tryVerify(() => button.y - (passwordGroup.y + passwordGroup.height) === 20 + error.height + 20,
                      5000, "the button follows the error line")
            // The typed values stay.
            compare(findChild(screen, "passwordField").text, "no-es-esta")
        }

        function test_spinnerWhileSigningInKeepsTheButtonsSize() {
            const screen = makeScreen()
            const button = findChild(screen, "signInButton")
            const spinner = findChild(screen, "signInSpinner")
            const label = findChild(screen, "signInLabel")
            compare(button.width, 340 - 48)
            compare(button.height, 44)
            verify(label.visible)
            verify(!spinner.visible)

            verify(Harness.delaySignIn(1500))
            Harness.viewModel.email = "demo@quillmere.test"
            Harness.viewModel.password = "demo1234"
            mouseClick(button)
            verify(Harness.viewModel.isAuthenticating)
            verify(spinner.visible)
            verify(spinner.running)
            compare(spinner.scale, 0.7)
            verify(!label.visible)
            compare(button.width, 340 - 48)
            compare(button.height, 44)
            tryCompare(Harness.viewModel, "isAuthenticating", false, 10000)
            verify(Harness.hasStoredToken())
            verify(label.visible)
        }

        function test_buttonIsNeverDisabled() {
            const screen = makeScreen()
            const button = findChild(screen, "signInButton")
            // Empty fields go to the service as they are.
            const before = Harness.requestCount("authenticate")
            mouseClick(button)
            verify(Harness.viewModel.isAuthenticating)
            // A second press while the first is under way starts a second sign-in.
            mouseClick(button)
            tryCompare(Harness.viewModel, "isAuthenticating", false, 10000)
            tryVerify(() => Harness.requestCount("authenticate") === before + 2, 5000)
            verify(Harness.viewModel.error !== undefined)
        }

        function test_returnInAFieldDoesNotSignIn() {
            const screen = makeScreen()
            const before = Harness.requestCount("authenticate")
            mouseClick(findChild(screen, "emailField"))
            keyClick(Qt.Key_Return)
            mouseClick(findChild(screen, "passwordField"))
            keyClick(Qt.Key_Return)
            wait(200)
            verify(!Harness.viewModel.isAuthenticating)
            compare(Harness.requestCount("authenticate"), before)
        }

        function test_accessibility() {
            const screen = makeScreen()
            const email = findChild(screen, "emailField")
            const password = findChild(screen, "passwordField")
            const button = findChild(screen, "signInButton")
            compare(email.Accessible.name, "Email")
            compare(email.Accessible.role, Accessible.EditableText)
            // Qt Quick hides a password field's Accessible.name; assistive tools read it here.
            compare(Harness.accessibleReading(password).name, "Contraseña")
            compare(password.Accessible.role, Accessible.EditableText)
            compare(password.echoMode, TextInput.Password)
            compare(button.Accessible.name, "Iniciar Sesión")
            compare(button.Accessible.role, Accessible.Button)

            verify(Harness.pressAccessibly(password))
            verify(password.activeFocus)
            Harness.viewModel.email = "demo@quillmere.test"
            Harness.viewModel.password = "demo1234"
            verify(Harness.pressAccessibly(button))
            verify(Harness.viewModel.isAuthenticating)
            tryVerify(() => Harness.hasStoredToken(), 10000)
        }

        // A screen reader reads what the field holds through the accessibility interface: the
        // typed e-mail is there, the typed password is not, and the field says it is one.
        function test_passwordIsNotReadableByAssistiveTools() {
            const screen = makeScreen()
            const email = findChild(screen, "emailField")
            const password = findChild(screen, "passwordField")
            mouseClick(email)
            type("ana@estudio.test")
            mouseClick(password)
            type("Zq7-secreto")
            compare(Harness.viewModel.password, "Zq7-secreto")

            const emailReading = Harness.accessibleReading(email)
            verify(emailReading.value.indexOf("ana@estudio.test") >= 0, JSON.stringify(emailReading))
            verify(!emailReading.password)

            const reading = Harness.accessibleReading(password)
            compare(reading.name, "Contraseña")
            verify(reading.password, JSON.stringify(reading))
            compare(reading.value, "•••••••••••")
            for (const key of ["name", "value", "description", "text"]) {
                const text = reading[key] === undefined ? "" : reading[key]
                verify(text.indexOf("Zq7") < 0 && text.indexOf("secreto") < 0,
                       key + ": " + JSON.stringify(reading))
            }
        }
    }
}
