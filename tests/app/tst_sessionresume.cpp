// SPDX-License-Identifier: MIT
// The whole program on a virtual X display, going away in the middle of a session and started
// again: after a kill it comes back on the recording screen of the same session, and after
// "Salir" its setup screen offers to continue the session in one press. The photos written
// while it was away reach the session once. The panel is saved after each start into the build
// folder's "resume-screens".
#include "devservicefixture.h"
#include "requiredtool.h"
#include "sessionharness.h"
#include "tracedapp.h"
#include "virtualdisplay.h"

#include <QDir>
#include <QGuiApplication>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

namespace {
VirtualDisplay *display = nullptr;
constexpr int settles = 30000;
const QString client = QStringLiteral("Ana Muñoz & Co");
} // namespace

class TestSessionResume : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void aKilledSessionComesBackAndAQuitOneIsOffered();

private:
    QProcessEnvironment environment() const;
    bool drop(int number);
    void grab(TracedApp &app, const QString &name);

    DevService m_service;
    QTemporaryDir m_home;
    QString m_watchFolder;
    QDir m_shots{QStringLiteral(QUILLMERE_RESUME_SCREENS_DIR)};
};

void TestSessionResume::initTestCase() {
    if (!display || display->name().isEmpty())
        QUILLMERE_MISSING_TOOL(QStringLiteral("Xvfb"),
                               QStringLiteral("no virtual X display started (package xvfb)"));
    if (QStandardPaths::findExecutable(QStringLiteral("xdotool")).isEmpty())
        QUILLMERE_MISSING_TOOL(QStringLiteral("xdotool"), QStringLiteral("it is not installed"));
    QVERIFY2(m_service.start(), qPrintable(m_service.errorString()));
    QVERIFY(m_home.isValid());
    QVERIFY(QDir().mkpath(m_shots.path()));
    m_watchFolder = m_home.filePath(QStringLiteral("Boda Ana"));
    QVERIFY(QDir().mkpath(m_watchFolder));
    // Signed in already, as a photographer who has used the program before.
    QSettings stored(m_home.filePath(QStringLiteral("config/Quillmere/QuillmereLive.conf")),
                     QSettings::IniFormat);
    stored.setValue(QStringLiteral("api_token"), m_service.demoToken());
    stored.sync();
    QCOMPARE(stored.status(), QSettings::NoError);
}

QProcessEnvironment TestSessionResume::environment() const {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DISPLAY"), display->name());
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"),
                       m_home.filePath(QStringLiteral("config")));
    // Where the program keeps its journal.
    environment.insert(QStringLiteral("XDG_DATA_HOME"), m_home.filePath(QStringLiteral("data")));
    environment.insert(QStringLiteral("QUILLMERE_SERVICE_URL"), m_service.baseURL());
    environment.insert(QStringLiteral("QUILLMERE_STORAGE_HOST"), m_service.storageHost());
    environment.insert(QStringLiteral("QUILLMERE_TEST_FOLDER"), m_watchFolder);
    environment.insert(QStringLiteral("QUILLMERE_TEST_TRACE"), QStringLiteral("1"));
    environment.insert(QStringLiteral("QUILLMERE_APPEARANCE"), QStringLiteral("light"));
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    return environment;
}

bool TestSessionResume::drop(int number) {
    return SessionHarness::dropPhotoAt(m_watchFolder, QStringLiteral("IMG_000%1.JPG").arg(number),
                                       SessionHarness::photoJpeg(number));
}

void TestSessionResume::grab(TracedApp &app, const QString &name) {
    const QString shot = m_shots.filePath(name + QStringLiteral(".png"));
    QFile::remove(shot);
    QVERIFY(app.send(QStringLiteral("grab ") + shot));
    QUILLMERE_EXPECT_LINE(app, QStringLiteral("grabbed ") + shot, 10000);
}

void TestSessionResume::aKilledSessionComesBackAndAQuitOneIsOffered() {
    {
        TracedApp first;
        QVERIFY(first.start(QStringLiteral(QUILLMERE_APP_PATH), environment()));
        QUILLMERE_EXPECT_LINE(first, QStringLiteral("screen setup"), settles);
        const QString window = VirtualDisplay::findWindow(QStringLiteral("Quillmere Live"));
        QVERIFY(!window.isEmpty());
        QVERIFY(VirtualDisplay::xdotool(
            {QStringLiteral("windowfocus"), QStringLiteral("--sync"), window}));
        QUILLMERE_EXPECT_LATEST(first, QStringLiteral("focus "), QStringLiteral("focus Cliente"),
                                10000);
        QVERIFY(VirtualDisplay::xdotool(
            {QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("30"), client}));
        QVERIFY(first.send(QStringLiteral("press Seleccionar carpeta...")));
        QUILLMERE_EXPECT_LINE(first, QStringLiteral("pressed Seleccionar carpeta..."), 10000);
        QVERIFY(first.send(QStringLiteral("press Iniciar")));
        QUILLMERE_EXPECT_LINE(first, QStringLiteral("screen recording"), settles);
        QVERIFY(drop(1));
        QUILLMERE_EXPECT_LINE(first, QStringLiteral("uploaded 1"), settles);
        QUILLMERE_EXPECT_LATEST(first, QStringLiteral("owed "), QStringLiteral("owed 0"), settles);
        // A crash, a dead battery: nothing of the program's own gets to run.
        first.process().kill();
        QVERIFY(first.waitForExit(10000));
    }
    QVERIFY(drop(2));

    {
        TracedApp resumed;
        QVERIFY(resumed.start(QStringLiteral(QUILLMERE_APP_PATH), environment()));
        QUILLMERE_EXPECT_LINE(resumed, QStringLiteral("screen recording"), settles);
        QUILLMERE_EXPECT_LINE(resumed,
                              QStringLiteral("resumed Sesión retomada tras un cierre inesperado "
                                             "· 1 foto llegó mientras tanto"),
                              settles);
        QUILLMERE_EXPECT_LINE(resumed, QStringLiteral("uploaded 2"), settles);
        QUILLMERE_EXPECT_LATEST(resumed, QStringLiteral("owed "), QStringLiteral("owed 0"),
                                settles);
        QUILLMERE_EXPECT_LATEST(resumed, QStringLiteral("panel "), QStringLiteral("panel shown"),
                                settles);
        grab(resumed, QStringLiteral("recording-resumed"));
        QVERIFY(resumed.send(QStringLiteral("press Salir")));
        QVERIFY2(resumed.waitForExit(settles), qPrintable(resumed.transcript()));
        QCOMPARE(resumed.process().exitStatus(), QProcess::NormalExit);
    }
    QVERIFY(drop(3));

    TracedApp offered;
    QVERIFY(offered.start(QStringLiteral(QUILLMERE_APP_PATH), environment()));
    QUILLMERE_EXPECT_LINE(offered, QStringLiteral("screen setup"), settles);
    QUILLMERE_EXPECT_LATEST(offered, QStringLiteral("panel "), QStringLiteral("panel shown"),
                            settles);
    grab(offered, QStringLiteral("setup-continue"));
    const QString offer = QStringLiteral("Continuar la sesión de ") + client;
    QVERIFY(offered.send(QStringLiteral("press ") + offer));
    QUILLMERE_EXPECT_LINE(offered, QStringLiteral("screen recording"), settles);
    QUILLMERE_EXPECT_LINE(
        offered, QStringLiteral("resumed Sesión retomada · 1 foto llegó mientras tanto"), settles);
    QUILLMERE_EXPECT_LINE(offered, QStringLiteral("uploaded 3"), settles);

    // One session all along, with the client's name as typed, and each photo in it once.
    const QList<DevService::RegisteredFile> registered = m_service.registeredFiles(1001);
    QCOMPARE(registered.size(), 3);
    QCOMPARE(m_service.sessions().size(), 1);
}

int main(int argc, char *argv[]) {
    // Its own X server, so this test needs no desktop and no wrapper.
    VirtualDisplay virtualDisplay;
    if (virtualDisplay.startAsThisProcessDisplay())
        display = &virtualDisplay;
    QGuiApplication application(argc, argv);
    TestSessionResume test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_sessionresume.moc"
