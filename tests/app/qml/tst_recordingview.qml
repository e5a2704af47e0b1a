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

        name: "RecordingView"
        when: windowShown

        Component {
            id: recordingType

            RecordingView {
                width: 340
                viewModel: Harness.viewModel
                uploadManager: Harness.viewModel.uploadManager
            }
        }

        Component {
            id: standInType

            QtObject {
                property double uploadedCount: 0
            }
        }

        Component {
            id: windowedType

            Window {
                property alias screen: view

                width: 340
                height: 640

                RecordingView {
                    id: view

                    width: 340
                    viewModel: Harness.viewModel
                    uploadManager: Harness.viewModel.uploadManager
                }
            }
        }

        function init() {
            verify(Harness.reset())
            verify(Harness.startRecording("Boda Marta y Javier"))
        }

        function makeScreen(properties) {
            const screen = createTemporaryObject(recordingType, root, properties || {})
            verify(screen)
            waitForRendering(screen)
            return screen
        }

        function test_headerAndLiveBadge() {
            const screen = makeScreen()
            compare(findChild(screen, "clientName").text, "Boda Marta y Javier")
            compare(findChild(screen, "clientName").font.pixelSize, 18)
            const badge = findChild(screen, "liveBadge")
            compare(findChild(badge, "pillText").text, "EN VIVO")
            compare(badge.tint, Theme.red)
            compare(findChild(badge, "pillText").color, Theme.red)
            compare(badge.radius, 20)
        }

        function test_badgePulsesLiveAndPaused() {
            const screen = makeScreen()
            const badge = findChild(screen, "liveBadge")
            compare(screen.badgeVisible, false)
            pulses(badge)
            Harness.viewModel.isPaused = true
            compare(findChild(badge, "pillText").text, "PAUSADO")
            compare(badge.tint, Theme.orange)
            pulses(badge)
        }

        // Fades below 0.3 and comes back above 0.9, never fainter than 0.2. Every value the
        // animation gives is looked at: a loaded machine draws few frames, and a look now and
        // then would often miss the bottom of a pulse.
        function pulses(badge) {
            const seen = { lowest: badge.opacity, faded: false, back: false }
            const note = () => {
                seen.lowest = Math.min(seen.lowest, badge.opacity)
                if (badge.opacity < 0.3)
                    seen.faded = true
                else if (seen.faded && badge.opacity > 0.9)
                    seen.back = true
            }
            badge.opacityChanged.connect(note)
            tryVerify(() => seen.back, 15000, "faded below 0.3 and back above 0.9")
            badge.opacityChanged.disconnect(note)
            verify(seen.lowest >= 0.2 - 1e-6, "faintest opacity " + seen.lowest)
        }

        function test_pulseRestsWhileThePanelIsHidden() {
            const panel = createTemporaryObject(windowedType, root)
            panel.show()
            const badge = findChild(panel.screen, "liveBadge")
            tryVerify(() => badge.opacity < 0.3, 3000)
            panel.hide()
            compare(badge.opacity, 1.0)
            for (let i = 0; i < 10; ++i) {
                wait(40)
                compare(badge.opacity, 1.0)
            }
            panel.show()
            tryVerify(() => badge.opacity < 0.3, 3000)
            tryVerify(() => badge.opacity > 0.9, 3000)
        }

        function test_counterFollowsTheUploadManager() {
            const screen = makeScreen()
            const counter = findChild(screen, "uploadedCounter")
            compare(counter.text, "0")
            compare(counter.font.pixelSize, 72)
            compare(counter.font.weight, Font.ExtraBold)
            verify(Harness.dropPhoto("IMG_0001.JPG"))
            tryCompare(counter, "text", "1", 20000)
            compare(Harness.viewModel.uploadManager.uploadedCount, 1)
        }

        function test_aPhotoTheServiceTurnsAwayWaitsAndSaysSo() {
            const screen = makeScreen()
            const line = findChild(screen, "deliveryLine")
            verify(!line.visible)
            // Refused once with a 503: it waits, is said to, and goes on the next try.
            verify(Harness.refuseNext("presign", 503))
            verify(Harness.dropPhoto("IMG_0503.JPG"))
            tryVerify(() => line.visible, 20000)
            verify(line.text.startsWith("1 foto en espera — "), line.text)
            compare(line.color, Theme.orange)
            const counter = findChild(screen, "uploadedCounter")
            tryCompare(counter, "text", "1", 30000)
            tryVerify(() => !line.visible, 30000)
        }

        function test_fiveDigitCountsInFullWithSteadyDigits() {
            const standIn = createTemporaryObject(standInType, root)
            const screen = makeScreen({ uploadManager: standIn })
            const counter = findChild(screen, "uploadedCounter")
            const widthFor = count => {
                standIn.uploadedCount = count
                verify(waitForItemPolished(counter))
                return counter.implicitWidth
            }
            const narrow = widthFor(11111)
            compare(counter.text, "11111")
            compare(widthFor(88888), narrow)
            compare(counter.text, "88888")
            verify(narrow >= 5 * 30, narrow)
            fuzzyCompare(widthFor(123456), narrow / 5 * 6, 0.01)
            compare(counter.text, "123456")
        }

        function test_linkRowShowsTheLinkWithoutSchemeAndCopiesItWhole() {
            const url = "https://live.quillmere.example/s/abc123"
            Harness.editSession({ liveURL: url })
            const screen = makeScreen()
            const row = findChild(screen, "linkRow")
            verify(row.visible)
            compare(row.radius, 14)
            compare(findChild(screen, "liveLink").text, "live.quillmere.example/s/abc123")
            compare(findChild(screen, "liveLink").color, Theme.blue)
            const copy = findChild(screen, "copyButton")
            compare(copy.Accessible.role, Accessible.Button)
            mouseClick(copy)
            compare(Harness.clipboardText(), url)
        }

        function test_copyByAccessibility() {
            const screen = makeScreen()
            const url = Harness.viewModel.session.liveURL
            verify(url.length > 0)
            verify(Harness.pressAccessibly(findChild(screen, "copyButton")))
            compare(Harness.clipboardText(), url)
        }

        function test_noLiveURLNoLinkRow() {
            Harness.editSession({ liveURL: null })
            const screen = makeScreen()
            verify(!findChild(screen, "linkRow").visible)
            verify(!findChild(screen, "copyButton").visible)
        }

        function test_errorLineFollowsTheCounterWithoutALink() {
            Harness.editSession({ liveURL: null })
            const screen = makeScreen()
            const error = findChild(screen, "errorLine")
            verify(!error.visible)
            // A second start that the service refuses leaves the recording as it is, with the
            // refusal in the controller's error.
            verify(Harness.refuseNext("createSession", 500))
            Harness.viewModel.startSession()
            tryVerify(() => error.visible, 10000)
            compare(Harness.stateName(), "recording")
            compare(error.text, "No se pudo crear la sesión")
            // The stack places the line when it next lays itself out, before the next frame.
            const counterColumn = findChild(screen, "uploadedCounter").parent
            tryCompare(error, "y", counterColumn.y + counterColumn.height + 8 + 20, 5000)
        }

        function test_pauseFlipsTheControllerFlag() {
            const screen = makeScreen()
            const pause = findChild(screen, "pauseButton")
            const glyph = findChild(screen, "pauseGlyph")
            compare(glyph.name, "pause.fill")
            compare(pause.Accessible.name, "Pausar")
            mouseClick(pause)
            verify(Harness.viewModel.isPaused)
            compare(glyph.name, "play.fill")
            compare(pause.Accessible.name, "Reanudar")
            compare(findChild(findChild(screen, "liveBadge"), "pillText").text, "PAUSADO")
            verify(Harness.pressAccessibly(pause))
            verify(!Harness.viewModel.isPaused)
            compare(glyph.name, "pause.fill")
            compare(findChild(findChild(screen, "liveBadge"), "pillText").text, "EN VIVO")
        }

        function test_stopEndsTheSession() {
            const screen = makeScreen()
            const stop = findChild(screen, "stopButton")
            compare(stop.Accessible.name, "Detener")
            compare(stop.Accessible.role, Accessible.Button)
            mouseClick(stop)
            tryVerify(() => Harness.stateName() === "finished", 10000)
        }

        function test_everyTextIsDrawnAndReadByAssistiveTools() {
            Harness.editSession({ liveURL: "https://live.quillmere.example/s/abc123" })
            const screen = makeScreen()
            verify(Harness.refuseNext("createSession", 500))
            Harness.viewModel.startSession()
            tryVerify(() => findChild(screen, "errorLine").visible, 10000)
            let shown = Harness.visibleTexts(screen)
            for (const caption of ["SESIÓN", "Boda Marta y Javier", "EN VIVO", "fotos subidas",
                                   "live.quillmere.example/s/abc123", "No se pudo crear la sesión", "Pausar",
                                   "Detener"])
                verify(shown.includes(caption), caption + " is not drawn; drawn: " + shown)
            compare(Harness.unexposedTexts(screen), [])
            Harness.viewModel.isPaused = true
            shown = Harness.visibleTexts(screen)
            for (const caption of ["PAUSADO", "Reanudar"])
                verify(shown.includes(caption), caption + " is not drawn; drawn: " + shown)
            verify(!shown.includes("Pausar"))
            compare(Harness.unexposedTexts(screen), [])
        }

        function test_stopByAccessibility() {
            const screen = makeScreen()
            verify(Harness.pressAccessibly(findChild(screen, "stopButton")))
            tryVerify(() => Harness.stateName() === "finished", 10000)
        }
    }
}
