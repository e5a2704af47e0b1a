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

        name: "SetupView"
        when: windowShown

        readonly property string refusal: "Ingresa el nombre del cliente y selecciona una carpeta"

        Component {
            id: setupType

            SetupView {
                width: 340
                viewModel: Harness.viewModel
            }
        }

        function init() {
            verify(Harness.reset())
            verify(Harness.signIn())
        }

        function type(text) {
            for (const character of text)
                keyClick(character)
        }

        function makeScreen() {
            const screen = createTemporaryObject(setupType, root)
            verify(screen)
            waitForRendering(screen)
            return screen
        }

        function test_textsWithNothingChosen() {
            const screen = makeScreen()
            const client = findChild(screen, "clientField")
            compare(client.placeholderText, "Nombre del cliente")
            compare(client.font.pixelSize, 20)
            compare(client.font.weight, Font.Bold)
            const folder = findChild(screen, "folderText")
            compare(folder.text, "Seleccionar carpeta...")
            compare(folder.color, Theme.secondary)
            compare(findChild(screen, "caption").text, "Iniciar")
            compare(findChild(screen, "caption").font.pixelSize, 12)
            verify(!findChild(screen, "errorLine").visible)
        }

        function test_clientFieldWritesTheName() {
            const screen = makeScreen()
            mouseClick(findChild(screen, "clientField"))
            type("Eva")
            compare(Harness.viewModel.session.clientName, "Eva")
            // Blanks only are the controller's to judge, not the field's.
            Harness.viewModel.setClientName("")
            type("   ")
            compare(Harness.viewModel.session.clientName, "   ")
        }

        function test_folderButtonShowsTheChosenPathShortenedInTheMiddle() {
            const screen = makeScreen()
            const path = Harness.makeFolder(
                    "Clientes/2026/Noviembre/Boda en la finca de los almendros/Ceremonia/Tethering")
            Harness.answerFolderPanel(path)
            mouseClick(findChild(screen, "folderButton"))
            compare(Harness.folderPanelShown(), 1)
            const folder = findChild(screen, "folderText")
            compare(folder.text, path)
            compare(folder.color, Theme.primary)
            compare(folder.elide, Text.ElideMiddle)
            verify(folder.truncated)
            compare(folder.lineCount, 1)
            // Both ends of the path stay in view.
            verify(folder.width < folder.implicitWidth)

            // A cancelled panel changes nothing.
            Harness.answerFolderPanel("")
            mouseClick(findChild(screen, "folderButton"))
            compare(Harness.folderPanelShown(), 2)
            compare(folder.text, path)
        }

        function test_startWithoutANameShowsTheRefusal() {
            const screen = makeScreen()
            Harness.answerFolderPanel(Harness.makeFolder("fotos"))
            mouseClick(findChild(screen, "folderButton"))
            const before = Harness.requestCount("createSession")
            mouseClick(findChild(screen, "startButton"))
            const error = findChild(screen, "errorLine")
            verify(error.visible)
            compare(error.text, refusal)
            compare(error.color, Theme.red)
            compare(Harness.stateName(), "setup")
            compare(Harness.requestCount("createSession"), before)
        }

        function test_startWithoutAFolderShowsTheRefusal() {
            const screen = makeScreen()
            Harness.viewModel.setClientName("Eva")
            mouseClick(findChild(screen, "startButton"))
            compare(findChild(screen, "errorLine").text, refusal)
            compare(Harness.stateName(), "setup")
        }

        function test_startWithNameAndFolderStartsTheSession() {
            const screen = makeScreen()
            Harness.answerFolderPanel(Harness.makeFolder("sesion-eva"))
            mouseClick(findChild(screen, "folderButton"))
            mouseClick(findChild(screen, "clientField"))
            type("Eva")
            mouseClick(findChild(screen, "startButton"))
            tryVerify(() => Harness.stateName() === "recording", 10000)
        }

        function test_returnInTheClientFieldDoesNotStart() {
            const screen = makeScreen()
            Harness.answerFolderPanel(Harness.makeFolder("sesion-return"))
            mouseClick(findChild(screen, "folderButton"))
            mouseClick(findChild(screen, "clientField"))
            type("Eva")
            keyClick(Qt.Key_Return)
            wait(200)
            compare(Harness.stateName(), "setup")
            verify(!findChild(screen, "errorLine").visible)
        }

        function test_accessibility() {
            const screen = makeScreen()
            const client = findChild(screen, "clientField")
            const folderButton = findChild(screen, "folderButton")
            const start = findChild(screen, "startButton")
            compare(client.Accessible.name, "Cliente")
            compare(client.Accessible.role, Accessible.EditableText)
            compare(folderButton.Accessible.name, "Seleccionar carpeta...")
            compare(folderButton.Accessible.role, Accessible.Button)
            compare(start.Accessible.name, "Iniciar")
            compare(start.Accessible.role, Accessible.Button)

            Harness.answerFolderPanel(Harness.makeFolder("accesible"))
            verify(Harness.pressAccessibly(folderButton))
            compare(Harness.folderPanelShown(), 1)
            compare(folderButton.Accessible.name, Harness.viewModel.session.watchFolderPath)
            verify(Harness.pressAccessibly(start))
            compare(findChild(screen, "errorLine").text, refusal)
            verify(Harness.pressAccessibly(client))
            verify(client.activeFocus)
        }
    }
}
