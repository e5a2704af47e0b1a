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

        name: "FinishedView"
        when: windowShown

        Component {
            id: finishedType

            FinishedView {
                width: 340
                viewModel: Harness.viewModel
            }
        }

        function init() {
            verify(Harness.reset())
            verify(Harness.startRecording("Boda Marta y Javier"))
            verify(Harness.stopRecording())
        }

        function makeScreen() {
            const screen = createTemporaryObject(finishedType, root)
            verify(screen)
            waitForRendering(screen)
            return screen
        }

        function test_headerWithTheFinishedBadge() {
            const screen = makeScreen()
            compare(findChild(screen, "clientName").text, "Boda Marta y Javier")
            const badge = findChild(screen, "finishedBadge")
            compare(findChild(badge, "pillText").text, "✓ Terminada")
            compare(badge.tint, Theme.green)
            // It does not pulse.
            for (let i = 0; i < 10; ++i) {
                compare(badge.opacity, 1)
                wait(60)
            }
        }

        function test_countsWithSelectedZeroInBlue() {
            Harness.editSession({ uploadedCount: 42 })
            const screen = makeScreen()
            const uploaded = findChild(screen, "uploadedCount")
            const selected = findChild(screen, "selectedCount")
            compare(uploaded.text, "42")
            compare(uploaded.font.pixelSize, 56)
            compare(uploaded.color, Theme.primary)
            compare(selected.text, "0")
            compare(selected.color, Theme.blue)
            verify(selected.visible)
        }

        function test_originalsBoxWhileSomeAreOutstanding() {
            Harness.editSession({ fullResUploaded: 3, fullResTotal: 10 })
            const screen = makeScreen()
            const box = findChild(screen, "originalsBox")
            verify(box.visible)
            compare(box.radius, 12)
            compare(findChild(screen, "originalsCount").text, "3/10")
            const bar = findChild(screen, "originalsProgress")
            compare(bar.value, 3)
            compare(bar.to, 10)
            compare(bar.position, 0.3)
            const fill = findChild(screen, "originalsFill")
            compare(fill.color, Theme.orange)
            fuzzyCompare(fill.width, bar.availableWidth * 0.3, 0.5)
        }

        function test_noOriginalsBoxWithoutOriginals() {
            Harness.editSession({ fullResUploaded: 0, fullResTotal: 0 })
            verify(!findChild(makeScreen(), "originalsBox").visible)
        }

        function test_noOriginalsBoxWhenAllAreUp() {
            Harness.editSession({ fullResUploaded: 7, fullResTotal: 7 })
            verify(!findChild(makeScreen(), "originalsBox").visible)
        }

        function test_galleryBox() {
            Harness.editSession({ galleryURL: "https://quillmere.example/g/boda-marta-javier" })
            const screen = makeScreen()
            const box = findChild(screen, "galleryBox")
            verify(box.visible)
            compare(box.radius, 14)
            compare(box.width, 340 - 48)
            compare(findChild(screen, "galleryLink").text, "quillmere.example/g/boda-marta-javier")

            Harness.editSession({ galleryURL: null })
            verify(!box.visible)
        }

        function test_newSessionGroupFollowsTheCountsWithoutBoxes() {
            Harness.editSession({ galleryURL: null, fullResTotal: 0 })
            const screen = makeScreen()
            const counts = findChild(screen, "uploadedCount").parent.parent
            const group = findChild(screen, "newSessionButton").parent.parent
            compare(group.y, counts.y + counts.height + 8 + 20)
        }

        function test_newSessionClearsForTheNextOne() {
            const screen = makeScreen()
            const button = findChild(screen, "newSessionButton")
            compare(button.Accessible.name, "Nueva Sesión")
            compare(button.Accessible.role, Accessible.Button)
            mouseClick(button)
            compare(Harness.stateName(), "setup")
            compare(Harness.viewModel.session.clientName, "")
            compare(Harness.viewModel.session.galleryURL, undefined)
        }

        function test_newSessionByAccessibility() {
            const screen = makeScreen()
            verify(Harness.pressAccessibly(findChild(screen, "newSessionButton")))
            compare(Harness.stateName(), "setup")
        }

        function test_everyTextIsDrawnAndReadByAssistiveTools() {
            Harness.editSession({ fullResUploaded: 3, fullResTotal: 10,
                                  galleryURL: "https://quillmere.example/g/abc" })
            const screen = makeScreen()
            const shown = Harness.visibleTexts(screen)
            for (const caption of ["SESIÓN", "✓ Terminada", "fotos", "seleccionadas",
                                   "Subiendo originales", "3/10", "GALERÍA",
                                   "quillmere.example/g/abc", "Nueva Sesión"])
                verify(shown.includes(caption), caption + " is not drawn; drawn: " + shown)
            compare(Harness.unexposedTexts(screen), [])
        }

        function test_originalsBarExposesItsValue() {
            Harness.editSession({ fullResUploaded: 3, fullResTotal: 10 })
            const bar = findChild(makeScreen(), "originalsProgress")
            compare(bar.Accessible.role, Accessible.ProgressBar)
            const value = Harness.accessibleValue(bar)
            compare(value.current, 3)
            compare(value.minimum, 0)
            compare(value.maximum, 10)
        }

        function test_noErrorLine() {
            // The end of a session the service refuses leaves its message in the controller...
            Harness.viewModel.newSession()
            verify(Harness.startRecording("Eva"))
            verify(Harness.refuseNext("endSession", 500))
            verify(Harness.stopRecording())
            verify(Harness.viewModel.error !== undefined)
            // ...which this screen does not show.
            const screen = makeScreen()
            compare(findChild(screen, "errorLine"), null)
        }
    }
}
