// SPDX-License-Identifier: MIT
// The whole program beside a real X tray (trayer, a freedesktop.org system tray) on its own
// Xvfb display: without a tray it is a window; a tray that appears takes it in as an icon and
// the window goes; the icon's menu opens the panel, Escape closes it, and "Salir" ends the
// program; a tray that goes away brings the window back. The program's test trace says what it
// shows; the display is grabbed into the build folder's "tray-screens".
#include "requiredtool.h"
#include "tracedapp.h"
#include "virtualdisplay.h"

#include <QDir>
#include <QGuiApplication>
#include <QPixmap>
#include <QProcess>
#include <QScreen>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

namespace {
VirtualDisplay *display = nullptr;
constexpr int change = 20000;
// Where trayer stands: a bar 24 high at the top right; its icons gather at its right end.
constexpr int trayWidth = 120;
constexpr int trayHeight = 24;
} // namespace

class TestTraySmoke : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void followsTheTrayAndItsMenu();
    void cleanupTestCase();

private:
    bool xdotool(const QStringList &arguments);
    bool startTray();
    void stopTray();
    void snap(const QString &name);

    QProcess m_tray;
    QTemporaryDir m_home;
    QDir m_shots{QStringLiteral(QUILLMERE_TRAY_SCREENS_DIR)};
};

void TestTraySmoke::initTestCase() {
    if (!display || display->name().isEmpty())
        QUILLMERE_MISSING_TOOL(QStringLiteral("Xvfb"),
                               QStringLiteral("no virtual X display started (package xvfb)"));
    for (const char *tool : {"xdotool", "trayer"})
        if (QStandardPaths::findExecutable(QLatin1String(tool)).isEmpty())
            QUILLMERE_MISSING_TOOL(QLatin1String(tool), QStringLiteral("it is not installed"));
    QVERIFY(m_home.isValid());
    QVERIFY(QDir().mkpath(m_shots.path()));
}

void TestTraySmoke::cleanupTestCase() {
    stopTray();
}

bool TestTraySmoke::xdotool(const QStringList &arguments) {
    return VirtualDisplay::xdotool(arguments);
}

bool TestTraySmoke::startTray() {
    m_tray.start(QStringLiteral("trayer"),
                 {QStringLiteral("--edge"), QStringLiteral("top"), QStringLiteral("--align"),
                  QStringLiteral("right"), QStringLiteral("--widthtype"), QStringLiteral("pixel"),
                  QStringLiteral("--width"), QString::number(trayWidth),
                  QStringLiteral("--heighttype"), QStringLiteral("pixel"),
                  QStringLiteral("--height"), QString::number(trayHeight)});
    return m_tray.waitForStarted(10000);
}

void TestTraySmoke::stopTray() {
    if (m_tray.state() == QProcess::NotRunning)
        return;
    m_tray.terminate();
    if (!m_tray.waitForFinished(10000))
        m_tray.kill();
    m_tray.waitForFinished(5000);
}

void TestTraySmoke::snap(const QString &name) {
    QTest::qWait(300); // the last frame of the change reaches the screen
    const QPixmap screen = QGuiApplication::primaryScreen()->grabWindow(0);
    const QString path = m_shots.filePath(name + QStringLiteral(".png"));
    QVERIFY2(!screen.isNull() && screen.save(path), qPrintable(path));
}

void TestTraySmoke::followsTheTrayAndItsMenu() {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DISPLAY"), display->name());
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_home.filePath(QStringLiteral("config")));
    environment.insert(QStringLiteral("QUILLMERE_TEST_TRACE"), QStringLiteral("1"));
    environment.insert(QStringLiteral("QUILLMERE_APPEARANCE"), QStringLiteral("light"));
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    environment.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
    TracedApp app;
    QVERIFY(app.start(QStringLiteral(QUILLMERE_APP_PATH), environment));
    QVERIFY2(app.waitFor(QStringLiteral("shell window"), change), qPrintable(app.transcript()));
    QVERIFY2(app.waitFor(QStringLiteral("panel shown"), change), qPrintable(app.transcript()));
    snap(QStringLiteral("1-no-tray-window"));

    // A tray appears while the program runs: the icon goes into it and the window goes away.
    QVERIFY(startTray());
    QVERIFY2(app.waitFor(QStringLiteral("shell tray"), change), qPrintable(app.transcript()));
    QVERIFY2(app.waitFor(QStringLiteral("panel hidden"), change), qPrintable(app.transcript()));
    snap(QStringLiteral("2-icon-in-the-tray"));

    // The icon's menu, from a right click on the tray's only icon: "Abrir" opens the panel.
    const QRect screen = QGuiApplication::primaryScreen()->geometry();
    const QString iconX = QString::number(screen.right() - trayHeight / 2);
    const QString iconY = QString::number(trayHeight / 2);
    const auto openMenu = [&] {
        return xdotool({QStringLiteral("mousemove"), iconX, iconY}) &&
               xdotool({QStringLiteral("click"), QStringLiteral("3")});
    };
    QVERIFY(openMenu());
    QTest::qWait(800);
    snap(QStringLiteral("3-menu"));
    QVERIFY(xdotool({QStringLiteral("key"), QStringLiteral("Down"), QStringLiteral("Return")}));
    QVERIFY2(app.waitFor(QStringLiteral("panel shown"), change), qPrintable(app.transcript()));
    snap(QStringLiteral("4-panel-from-the-menu"));
    // Escape closes it.
    QVERIFY2(app.waitForLatest(QStringLiteral("focus "), QStringLiteral("focus Email"), change),
             qPrintable(app.transcript()));
    QVERIFY(xdotool({QStringLiteral("key"), QStringLiteral("Escape")}));
    QVERIFY2(app.waitFor(QStringLiteral("panel hidden"), change), qPrintable(app.transcript()));

    // The tray goes away: the window comes back, the only way in.
    stopTray();
    QVERIFY2(app.waitFor(QStringLiteral("shell window"), change), qPrintable(app.transcript()));
    QVERIFY2(app.waitFor(QStringLiteral("panel shown"), change), qPrintable(app.transcript()));

    // And back into a tray, whose menu ends the program.
    QVERIFY(startTray());
    QVERIFY2(app.waitFor(QStringLiteral("shell tray"), change), qPrintable(app.transcript()));
    QTest::qWait(500);
    QVERIFY(openMenu());
    QTest::qWait(800);
    QVERIFY(xdotool({QStringLiteral("key"), QStringLiteral("Down"), QStringLiteral("Down"),
                     QStringLiteral("Return")}));
    QVERIFY2(app.waitForExit(change), qPrintable(app.transcript()));
    QCOMPARE(app.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(app.process().exitCode(), 0);
}

int main(int argc, char *argv[]) {
    // Its own X server, so this test needs no desktop and no wrapper; the test process is an
    // X client of it too, to grab its screen.
    VirtualDisplay virtualDisplay;
    if (virtualDisplay.startAsThisProcessDisplay())
        display = &virtualDisplay;
    QGuiApplication application(argc, argv);
    TestTraySmoke test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_traysmoke.moc"
