// SPDX-License-Identifier: MIT
// The QR codes of the whole program on a virtual X display, read by a real decoder as a phone
// would read them off the screen: the live link's on the recording screen and the gallery's on
// the finished screen, at the panel's own size and at twice the scale, in the light and the dark
// appearance. The same control, and Escape, close the code again. The panels are saved into the
// build folder's "qr-screens".
#include "devservicefixture.h"
#include "qrreader.h"
#include "requiredtool.h"
#include "signedinhome.h"
#include "tracedapp.h"
#include "virtualdisplay.h"

#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QStandardPaths>
#include <QTest>

namespace {
VirtualDisplay *display = nullptr;
constexpr int settles = 30000;
const QString liveButton = QStringLiteral("Código QR del enlace en vivo");
const QString galleryButton = QStringLiteral("Código QR de la galería");
} // namespace

class TestQrCode : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void theLinksReadBackOffTheScreen_data();
    void theLinksReadBackOffTheScreen();

private:
    // Saves the panel as drawn and reads every QR code in it; nothing when it has none.
    QStringList grabAndDecode(TracedApp &app, const QString &name);

    DevService m_service;
    SignedInHome m_home;
    QDir m_shots{QStringLiteral(QUILLMERE_QR_SCREENS_DIR)};
};

void TestQrCode::initTestCase() {
    if (!display || display->name().isEmpty())
        QUILLMERE_MISSING_TOOL(QStringLiteral("Xvfb"),
                               QStringLiteral("no virtual X display started (package xvfb)"));
    if (QStandardPaths::findExecutable(QStringLiteral("xdotool")).isEmpty())
        QUILLMERE_MISSING_TOOL(QStringLiteral("xdotool"), QStringLiteral("it is not installed"));
    if (QrReader::program().isEmpty())
        QUILLMERE_MISSING_TOOL(QStringLiteral("zbarimg"),
                               QStringLiteral("it is not installed (package zbar-tools)"));
    QVERIFY2(m_service.start(), qPrintable(m_service.errorString()));
    QVERIFY(QDir().mkpath(m_shots.path()));
    QVERIFY(m_home.prepare(m_service, QStringLiteral("Boda Ana")));
}

void TestQrCode::init() {
    // A journal of its own for every run: none takes up the session of the one before.
    QVERIFY(QDir(m_home.path(QStringLiteral("data"))).removeRecursively());
}

QStringList TestQrCode::grabAndDecode(TracedApp &app, const QString &name) {
    const QString shot = m_shots.filePath(name + QStringLiteral(".png"));
    QFile::remove(shot);
    if (!app.send(QStringLiteral("grab ") + shot) ||
        !app.waitFor(QStringLiteral("grabbed ") + shot, 10000)) {
        QTest::qFail(qPrintable(QStringLiteral("the panel was not saved:\n") + app.transcript()),
                     __FILE__, __LINE__);
        return {};
    }
    QStringList texts;
    QString error;
    if (!QrReader::read(shot, &texts, &error))
        QTest::qFail(qPrintable(error), __FILE__, __LINE__);
    return texts;
}

void TestQrCode::theLinksReadBackOffTheScreen_data() {
    QTest::addColumn<QString>("scale");
    QTest::addColumn<QString>("appearance");
    QTest::newRow("panel size, light") << QStringLiteral("1") << QStringLiteral("light");
    QTest::newRow("scale 2, dark") << QStringLiteral("2") << QStringLiteral("dark");
}

void TestQrCode::theLinksReadBackOffTheScreen() {
    QFETCH(QString, scale);
    QFETCH(QString, appearance);
    const QString suffix = QStringLiteral("-x%1-%2").arg(scale, appearance);
    const qsizetype sessionsBefore = m_service.sessions().size();

    QProcessEnvironment environment = m_home.environment(display->name(), appearance);
    environment.insert(QStringLiteral("QT_SCALE_FACTOR"), scale);
    TracedApp app;
    QVERIFY(app.start(QStringLiteral(QUILLMERE_APP_PATH), environment));
    QVERIFY(SignedInHome::startSession(app, QStringLiteral("Ana")));
    const QString window = VirtualDisplay::findWindow(QStringLiteral("Quillmere Live"));
    QVERIFY(!window.isEmpty());
    const QList<DevService::OpenedSession> sessions = m_service.sessions();
    QCOMPARE(sessions.size(), sessionsBefore + 1);
    const QString slug = sessions.last().slug;
    const QString liveURL = m_service.baseURL() + QStringLiteral("/live/") + slug;
    const QString galleryURL = m_service.baseURL() + QStringLiteral("/gallery/") + slug;

    // Nothing to read until it is asked for.
    QCOMPARE(grabAndDecode(app, QStringLiteral("recording") + suffix), QStringList());
    QVERIFY(app.send(QStringLiteral("press ") + liveButton));
    QUILLMERE_EXPECT_LINE(app, QStringLiteral("pressed ") + liveButton, 10000);
    QCOMPARE(grabAndDecode(app, QStringLiteral("recording-qr") + suffix), QStringList{liveURL});
    if (scale == QLatin1String("2")) {
        // Drawn at the screen's own pixels: twice as many of them as at the panel's size.
        const QImage shot(
            m_shots.filePath(QStringLiteral("recording-qr") + suffix + QStringLiteral(".png")));
        QVERIFY(shot.width() >= 680);
    }
    // The same control closes it, and so does Escape.
    QVERIFY(app.send(QStringLiteral("press ") + liveButton));
    QUILLMERE_EXPECT_LINE(app, QStringLiteral("pressed ") + liveButton, 10000);
    QCOMPARE(grabAndDecode(app, QStringLiteral("recording-qr-closed") + suffix), QStringList());
    QVERIFY(app.send(QStringLiteral("press ") + liveButton));
    QUILLMERE_EXPECT_LINE(app, QStringLiteral("pressed ") + liveButton, 10000);
    QCOMPARE(grabAndDecode(app, QStringLiteral("recording-qr-again") + suffix),
             QStringList{liveURL});
    QVERIFY(
        VirtualDisplay::xdotool({QStringLiteral("windowfocus"), QStringLiteral("--sync"), window}));
    QVERIFY(VirtualDisplay::xdotool({QStringLiteral("key"), QStringLiteral("Escape")}));
    QTRY_COMPARE_WITH_TIMEOUT(grabAndDecode(app, QStringLiteral("recording-qr-escaped") + suffix),
                              QStringList(), 10000);

    QVERIFY(app.send(QStringLiteral("press Detener")));
    QUILLMERE_EXPECT_LINE(app, QStringLiteral("screen finished"), settles);
    QCOMPARE(grabAndDecode(app, QStringLiteral("finished") + suffix), QStringList());
    QVERIFY(app.send(QStringLiteral("press ") + galleryButton));
    QUILLMERE_EXPECT_LINE(app, QStringLiteral("pressed ") + galleryButton, 10000);
    QCOMPARE(grabAndDecode(app, QStringLiteral("finished-qr") + suffix), QStringList{galleryURL});

    QVERIFY(app.send(QStringLiteral("press Salir")));
    QVERIFY2(app.waitForExit(settles), qPrintable(app.transcript()));
}

int main(int argc, char *argv[]) {
    VirtualDisplay virtualDisplay;
    if (virtualDisplay.startAsThisProcessDisplay())
        display = &virtualDisplay;
    QGuiApplication application(argc, argv);
    TestQrCode test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_qrcode.moc"
