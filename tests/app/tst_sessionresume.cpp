// SPDX-License-Identifier: MIT
// The whole program on a virtual X display, going away in the middle of a session and started
// again: after a kill it comes back on the recording screen of the same session, and after
// "Salir" its setup screen offers to continue the session in one press. The photos written
// while it was away reach the session once. The panel is saved after each start into the build
// folder's "resume-screens".
#include "devservicefixture.h"
#include "requiredtool.h"
#include "sessionharness.h"
#include "signedinhome.h"
#include "tracedapp.h"
#include "virtualdisplay.h"

#include <QDir>
#include <QGuiApplication>
#include <QStandardPaths>
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
    SignedInHome m_home;
    QDir m_shots{QStringLiteral(QUILLMERE_RESUME_SCREENS_DIR)};
};

void TestSessionResume::initTestCase() {
    if (!display || display->name().isEmpty())
        QUILLMERE_MISSING_TOOL(QStringLiteral("Xvfb"),
                               QStringLiteral("no virtual X display started (package xvfb)"));
    if (QStandardPaths::findExecutable(QStringLiteral("xdotool")).isEmpty())
        QUILLMERE_MISSING_TOOL(QStringLiteral("xdotool"), QStringLiteral("it is not installed"));
    QVERIFY2(m_service.start(), qPrintable(m_service.errorString()));
    QVERIFY(QDir().mkpath(m_shots.path()));
    // Signed in already, as a photographer who has used the program before.
    QVERIFY(m_home.prepare(m_service, QStringLiteral("Boda Ana")));
}

QProcessEnvironment TestSessionResume::environment() const {
    return m_home.environment(display->name(), QStringLiteral("light"));
}

bool TestSessionResume::drop(int number) {
    return SessionHarness::dropPhotoAt(m_home.watchFolder(), QStringLiteral("IMG_000%1.JPG").arg(number),
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
        QVERIFY(SignedInHome::startSession(first, client));
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
