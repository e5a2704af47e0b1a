// SPDX-License-Identifier: MIT
// Showing and hiding the panel: under the icon, gone when the focus goes elsewhere, not brought
// back by the click that took the focus away; a window of its own where there is no tray.
#include "panelplacement.h"
#include "traypanel.h"

#include <QCursor>
#include <QGuiApplication>
#include <QQuickWindow>
#include <QScreen>
#include <QTest>

namespace {
const QRect icon(600, 0, 24, 24);
} // namespace

class TestTrayPanel : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void opensUnderTheIcon();
    void hidesWhenTheFocusGoesAndTheSameClickDoesNotReopen();
    void aClickOnTheIconClosesAnOpenPanel();
    void staysWhileHeldForADialog();
    void withoutIconGeometryOpensAtThePointer();
    void standaloneIsAnOrdinaryWindow();
    void escapeClosesWhatTheScreenHoldsOpenFirst();

private:
    bool activateElsewhere();

    std::unique_ptr<QQuickWindow> m_window;
    std::unique_ptr<QWindow> m_elsewhere;
};

void TestTrayPanel::init() {
    m_window = std::make_unique<QQuickWindow>();
    m_window->resize(340, 420);
    m_elsewhere = std::make_unique<QWindow>();
    m_elsewhere->setGeometry(10, 300, 100, 100);
}

void TestTrayPanel::cleanup() {
    m_elsewhere.reset();
    m_window.reset();
}

bool TestTrayPanel::activateElsewhere() {
    m_elsewhere->show();
    m_elsewhere->requestActivate();
    return QTest::qWaitForWindowActive(m_elsewhere.get());
}

void TestTrayPanel::opensUnderTheIcon() {
    TrayPanel panel(m_window.get(), TrayPanel::Mode::underTrayIcon);
    QVERIFY(m_window->flags().testFlag(Qt::FramelessWindowHint));
    QVERIFY(m_window->flags().testFlag(Qt::Tool));
    panel.toggle(icon);
    QVERIFY(panel.isShown());
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    const QRect available = QGuiApplication::primaryScreen()->availableGeometry();
    QCOMPARE(m_window->position(), PanelPlacement::position(icon, available, QSize(340, 420)));
}

void TestTrayPanel::hidesWhenTheFocusGoesAndTheSameClickDoesNotReopen() {
    TrayPanel panel(m_window.get(), TrayPanel::Mode::underTrayIcon);
    panel.toggle(icon);
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    // A click on the icon first takes the focus away...
    QVERIFY(activateElsewhere());
    QTRY_VERIFY(!panel.isShown());
    // ...then reaches the icon: that click has already closed the panel.
    panel.toggle(icon);
    QVERIFY(!panel.isShown());
    // A later click opens it again.
    QTest::qWait(500);
    panel.toggle(icon);
    QVERIFY(panel.isShown());
}

void TestTrayPanel::aClickOnTheIconClosesAnOpenPanel() {
    TrayPanel panel(m_window.get(), TrayPanel::Mode::underTrayIcon);
    panel.toggle(icon);
    QVERIFY(panel.isShown());
    panel.toggle(icon);
    QVERIFY(!panel.isShown());
}

void TestTrayPanel::staysWhileHeldForADialog() {
    TrayPanel panel(m_window.get(), TrayPanel::Mode::underTrayIcon);
    panel.toggle(icon);
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    panel.setHeld(true);
    QVERIFY(activateElsewhere());
    QTest::qWait(50);
    QVERIFY(panel.isShown());
    // Afterwards the panel takes the focus back, so that leaving it closes it again.
    panel.setHeld(false);
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    QVERIFY(activateElsewhere());
    QTRY_VERIFY(!panel.isShown());
}

void TestTrayPanel::withoutIconGeometryOpensAtThePointer() {
    TrayPanel panel(m_window.get(), TrayPanel::Mode::underTrayIcon);
    panel.toggle(QRect());
    const QRect anchor = PanelPlacement::anchor(QRect(), QCursor::pos());
    const QRect available = QGuiApplication::primaryScreen()->availableGeometry();
    QCOMPARE(m_window->position(), PanelPlacement::position(anchor, available, QSize(340, 420)));
}

void TestTrayPanel::standaloneIsAnOrdinaryWindow() {
    TrayPanel panel(m_window.get(), TrayPanel::Mode::standalone);
    QVERIFY(!m_window->flags().testFlag(Qt::FramelessWindowHint));
    QVERIFY(m_window->flags().testFlag(Qt::WindowTitleHint));
    panel.showStandalone();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    QVERIFY(activateElsewhere());
    QTest::qWait(50);
    QVERIFY(panel.isShown());
}

// A screen with something open (a QR code) says so on the window: Escape is then the screen's,
// and closes the panel only once nothing is open.
void TestTrayPanel::escapeClosesWhatTheScreenHoldsOpenFirst() {
    TrayPanel panel(m_window.get(), TrayPanel::Mode::underTrayIcon);
    panel.toggle(icon);
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    m_window->setProperty("holdsEscape", true);
    QTest::keyClick(m_window.get(), Qt::Key_Escape);
    QVERIFY(panel.isShown());
    m_window->setProperty("holdsEscape", false);
    QTest::keyClick(m_window.get(), Qt::Key_Escape);
    QVERIFY(!panel.isShown());
}

QTEST_MAIN(TestTrayPanel)
#include "tst_traypanel.moc"
