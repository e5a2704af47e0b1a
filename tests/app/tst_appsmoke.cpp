// SPDX-License-Identifier: MIT
// The whole program on a virtual X display, driven with real keyboard input (xdotool) the way a
// photographer would: sign in, start a session on a folder, a photo arrives, stop, quit. The
// program's test trace says which screen it shows and which control has the focus; this test
// grabs the display after every step into the build folder's "smoke-screens".
#include "devservicefixture.h"
#include "requiredtool.h"
#include "tracedapp.h"
#include "virtualdisplay.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QPixmap>
#include <QSaveFile>
#include <QScreen>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

namespace {
VirtualDisplay *display = nullptr;
constexpr qint64 folderId = 4242;
constexpr int screenChange = 20000;
} // namespace

class TestAppSmoke : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void signInRecordStopQuit();

private:
    bool xdotool(const QStringList &arguments, QString *output = nullptr);
    // Presses Tab until the control named `name` has the focus.
    bool tabTo(const QString &name);
    void snap(const QString &step);

    DevService m_service;
    QTemporaryDir m_home;
    QDir m_shots{QStringLiteral(QUILLMERE_SMOKE_SCREENS_DIR)};
    TracedApp m_app;
    int m_step = 0;
};

void TestAppSmoke::initTestCase() {
    if (!display || display->name().isEmpty())
        QUILLMERE_MISSING_TOOL(QStringLiteral("Xvfb"),
                               QStringLiteral("no virtual X display started (package xvfb)"));
    if (QStandardPaths::findExecutable(QStringLiteral("xdotool")).isEmpty())
        QUILLMERE_MISSING_TOOL(QStringLiteral("xdotool"), QStringLiteral("it is not installed"));
    QVERIFY2(m_service.start(), qPrintable(m_service.errorString()));
    QVERIFY(m_service.setNextFolderId(folderId));
    QVERIFY(m_home.isValid());
    QVERIFY(QDir().mkpath(m_shots.path()));
    for (const QString &old : m_shots.entryList({QStringLiteral("*.png")}, QDir::Files))
        QVERIFY(m_shots.remove(old));
}

bool TestAppSmoke::xdotool(const QStringList &arguments, QString *output) {
    return VirtualDisplay::xdotool(arguments, output);
}

bool TestAppSmoke::tabTo(const QString &name) {
    for (int press = 0; press < 12; ++press) {
        if (!xdotool({QStringLiteral("key"), QStringLiteral("Tab")}))
            return false;
        const std::optional<QString> focus = m_app.next(QStringLiteral("focus "), 5000);
        if (focus && *focus == QStringLiteral("focus ") + name)
            return true;
    }
    return false;
}

void TestAppSmoke::snap(const QString &step) {
    QTest::qWait(300); // the last frame of the change reaches the screen
    const QPixmap screen = QGuiApplication::primaryScreen()->grabWindow(0);
    const QString path = m_shots.filePath(
        QStringLiteral("%1-%2.png").arg(++m_step, 2, 10, QLatin1Char('0')).arg(step));
    QVERIFY2(!screen.isNull() && screen.save(path), qPrintable(path));
}

void TestAppSmoke::signInRecordStopQuit() {
    const QString watchFolder = m_home.filePath(QStringLiteral("Sesion de prueba"));
    QVERIFY(QDir().mkpath(watchFolder));

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DISPLAY"), display->name());
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"),
                       m_home.filePath(QStringLiteral("config")));
    environment.insert(QStringLiteral("QUILLMERE_SERVICE_URL"), m_service.baseURL());
    environment.insert(QStringLiteral("QUILLMERE_STORAGE_HOST"), m_service.storageHost());
    environment.insert(QStringLiteral("QUILLMERE_TEST_FOLDER"), watchFolder);
    environment.insert(QStringLiteral("QUILLMERE_TEST_TRACE"), QStringLiteral("1"));
    environment.insert(QStringLiteral("QUILLMERE_APPEARANCE"), QStringLiteral("light"));
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    QVERIFY(m_app.start(QStringLiteral(QUILLMERE_APP_PATH), environment));

    // No tray on a bare X server: the panel is a window of its own.
    QVERIFY2(m_app.waitFor(QStringLiteral("screen login"), screenChange),
             qPrintable(m_app.transcript()));
    QString window = VirtualDisplay::findWindow(QStringLiteral("Quillmere Live"));
    QVERIFY(!window.isEmpty());
    QVERIFY(xdotool({QStringLiteral("windowfocus"), QStringLiteral("--sync"), window}));
    QVERIFY2(m_app.waitForLatest(QStringLiteral("focus "), QStringLiteral("focus Email"), 10000),
             qPrintable(m_app.transcript()));
    snap(QStringLiteral("login"));

    QVERIFY(xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("30"),
                     DevService::demoEmail()}));
    QVERIFY(tabTo(QStringLiteral("Contraseña")));
    QVERIFY(xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("30"),
                     DevService::demoPassword()}));
    snap(QStringLiteral("login-typed"));
    QVERIFY(tabTo(QStringLiteral("Iniciar Sesión")));
    QVERIFY(xdotool({QStringLiteral("key"), QStringLiteral("space")}));
    QVERIFY2(m_app.waitFor(QStringLiteral("screen setup"), screenChange),
             qPrintable(m_app.transcript()));
    snap(QStringLiteral("setup"));

    // The program keeps the token where its settings live, in this test's own folder.
    const QSettings stored(m_home.filePath(QStringLiteral("config/Quillmere/QuillmereLive.conf")),
                           QSettings::IniFormat);
    const QString token = stored.value(QStringLiteral("api_token")).toString();
    QVERIFY(!token.isEmpty());
    QCOMPARE(stored.value(QStringLiteral("saved_email")).toString(), DevService::demoEmail());

    QVERIFY2(m_app.waitForLatest(QStringLiteral("focus "), QStringLiteral("focus Cliente"), 10000),
             qPrintable(m_app.transcript()));
    QVERIFY(xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("30"),
                     QStringLiteral("Cliente de prueba")}));
    QVERIFY(tabTo(QStringLiteral("Seleccionar carpeta...")));
    QVERIFY(xdotool({QStringLiteral("key"), QStringLiteral("space")}));
    QVERIFY(tabTo(QStringLiteral("Iniciar")));
    snap(QStringLiteral("setup-filled"));
    QVERIFY(xdotool({QStringLiteral("key"), QStringLiteral("space")}));
    QVERIFY2(m_app.waitFor(QStringLiteral("screen recording"), screenChange),
             qPrintable(m_app.transcript()));
    snap(QStringLiteral("recording"));

    QImage photo(1600, 1067, QImage::Format_RGB32);
    photo.fill(QColor(0x7A, 0x93, 0x6B));
    QSaveFile file(QDir(watchFolder).filePath(QStringLiteral("IMG_0001.JPG")));
    QVERIFY(file.open(QIODevice::WriteOnly) && photo.save(&file, "JPEG", 90) && file.commit());
    QVERIFY2(m_app.waitFor(QStringLiteral("uploaded 1"), 30000), qPrintable(m_app.transcript()));
    snap(QStringLiteral("recording-one-photo"));
    QCOMPARE(m_service.registeredFiles(folderId).size(), 1);

    QVERIFY(tabTo(QStringLiteral("Detener")));
    QVERIFY(xdotool({QStringLiteral("key"), QStringLiteral("space")}));
    QVERIFY2(m_app.waitFor(QStringLiteral("screen finished"), screenChange),
             qPrintable(m_app.transcript()));
    snap(QStringLiteral("finished"));

    // With the original through, nothing is owed and quitting asks nothing.
    QVERIFY2(m_app.waitForLatest(QStringLiteral("owed "), QStringLiteral("owed 0"), 30000),
             qPrintable(m_app.transcript()));
    QVERIFY(tabTo(QStringLiteral("Salir")));
    snap(QStringLiteral("quit-focused"));
    QVERIFY(xdotool({QStringLiteral("key"), QStringLiteral("space")}));
    QVERIFY2(m_app.waitForExit(10000), qPrintable(m_app.transcript()));
    QCOMPARE(m_app.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(m_app.process().exitCode(), 0);

    // Nothing the program printed in the whole session, its trace and Qt's warnings alike,
    // holds the password or the token.
    const QString printed =
        m_app.transcript() + QString::fromUtf8(m_app.process().readAllStandardError());
    QVERIFY2(!printed.contains(DevService::demoPassword()), qPrintable(printed));
    QVERIFY2(!printed.contains(token), qPrintable(printed));
}

int main(int argc, char *argv[]) {
    // Its own X server, so this test needs no desktop and no wrapper; the test process is an
    // X client of it too, to grab its screen.
    VirtualDisplay virtualDisplay;
    if (virtualDisplay.startAsThisProcessDisplay())
        display = &virtualDisplay;
    QGuiApplication application(argc, argv);
    TestAppSmoke test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_appsmoke.moc"
