// SPDX-License-Identifier: MIT
import QtQuick
import QtTest
import Quillmere.Live
import Quillmere.Test

// The panel's frame: which screen the controller and the stored token call for, the divider,
// the quit row, the width.
Item {
    id: root

    width: 340
    height: 700

    TestCase {
        id: testCase

        name: "ContentView"
        when: windowShown

        Component {
            id: contentType

            ContentView {
                width: 340
                viewModel: Harness.viewModel
            }
        }

        SignalSpy {
            id: quitSpy

            signalName: "quitRequested"
        }

        function init() {
            verify(Harness.reset())
        }

        function makeContent() {
            const content = createTemporaryObject(contentType, root)
            verify(content)
            waitForRendering(content)
            quitSpy.target = content
            quitSpy.clear()
            return content
        }

        function shown(content) {
            const slot = findChild(content, "screenSlot")
            return slot.item ? slot.item.objectName : ""
        }

        function test_withoutTokenTheLoginScreenShowsWhateverTheState() {
            const content = makeContent()
            compare(shown(content), "loginView")

            verify(Harness.signIn())
            compare(shown(content), "setupView")

            verify(Harness.startRecording("Ana"))
            compare(shown(content), "recordingView")
            // The token itself is not watched: the next change of the controller shows the login.
            Harness.forgetToken()
            Harness.viewModel.isPaused = true
            compare(shown(content), "loginView")

            verify(Harness.signIn())
            compare(shown(content), "recordingView")
            verify(Harness.stopRecording())
            compare(shown(content), "finishedView")
            Harness.forgetToken()
            Harness.viewModel.email = "otra@estudio.ejemplo"
            compare(Harness.stateName(), "finished")
            compare(shown(content), "loginView")
        }

        function test_emptySlotLeavesOnlyTheDividerAndTheQuitRow() {
            verify(Harness.signIn())
            const content = makeContent()
            const quit = findChild(content, "quitButton")
            const withScreen = content.implicitHeight
            // What the screen switch gives for a recording that has no upload manager.
            content.screen = ScreenSwitch.None
            compare(findChild(content, "screenSlot").item, null)
            compare(findChild(content, "screenSlot").height, 0)
            tryCompare(content, "implicitHeight", 1 + quit.height + 8)
            verify(content.implicitHeight < withScreen)
        }

        function test_panelIs340WideOnEveryScreen() {
            const content = makeContent()
            const slot = findChild(content, "screenSlot")
            compare(slot.item.width, 340)
            verify(Harness.signIn())
            compare(slot.item.width, 340)
            verify(Harness.startRecording("Ana"))
            compare(slot.item.width, 340)
            verify(Harness.stopRecording())
            compare(slot.item.width, 340)
            compare(content.width, 340)
        }

        function test_dividerAndPanelColours() {
            const content = makeContent()
            const divider = findChild(content, "divider")
            compare(divider.height, 1)
            compare(divider.width, 340)
            compare(divider.y, findChild(content, "screenSlot").height)
            compare(findChild(content, "panelBackground").color, Theme.controlBackgroundColor)
        }

        function test_quitRowSpansTheWidthAndQuitsAtOnce() {
            verify(Harness.startRecording("Ana"))
            const content = makeContent()
            const quit = findChild(content, "quitButton")
            compare(quit.x, 16)
            compare(quit.width, 340 - 32)
            compare(quit.Accessible.name, "Salir")
            compare(quit.Accessible.role, Accessible.Button)
            compare(Harness.visibleTexts(quit), ["Salir"])
            // The far ends of the row are part of the button.
            mouseClick(quit, 2, quit.height / 2)
            compare(quitSpy.count, 1)
            mouseClick(quit, quit.width - 2, quit.height / 2)
            compare(quitSpy.count, 2)
            verify(Harness.pressAccessibly(quit))
            compare(quitSpy.count, 3)
            // No question, no call to the controller: the session is still recording.
            compare(Harness.stateName(), "recording")
        }

        function test_comingBackRebuildsTheScreen() {
            verify(Harness.startRecording("Ana"))
            const content = makeContent()
            const first = findChild(content, "screenSlot").item
            verify(Harness.stopRecording())
            Harness.viewModel.newSession()
            verify(Harness.startRecording("Luis"))
            const second = findChild(content, "screenSlot").item
            verify(first !== second)
            compare(findChild(second, "clientName").text, "Luis")
            // The new screen's badge starts its pulse afresh: it fades and comes back.
            const badge = findChild(second, "liveBadge")
            tryVerify(() => badge.opacity < 0.3, 3000)
            tryVerify(() => badge.opacity > 0.9, 3000)
        }

        function test_everyScreenExposesEveryTextItDraws() {
            const content = makeContent()
            const check = () => {
                const drawn = Harness.visibleTexts(content)
                verify(drawn.includes("Salir"), "drawn: " + drawn)
                compare(Harness.unexposedTexts(content), [], shown(content))
            }
            check()
            verify(Harness.signIn())
            check()
            verify(Harness.startRecording("Ana"))
            check()
            verify(Harness.stopRecording())
            check()
        }
    }
}
