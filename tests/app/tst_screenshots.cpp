// SPDX-License-Identifier: MIT
// Runs the screenshot program and checks what it wrote: every state in both appearances, the
// panel's width at the device pixel ratio it ran with, and real content in each picture; the
// QR codes read back by a real decoder in either appearance.
#include "qrreader.h"
#include "requiredtool.h"
#include "screenshotnames.h"
#include "statusicon.h"

#include <QDir>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTest>

namespace {
constexpr int scale = 2;

// How many different colours a picture holds, counted on a grid of sample points.
int sampledColours(const QImage &image) {
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); y += 3)
        for (int x = 0; x < image.width(); x += 3)
            colours.insert(image.pixel(x, y));
    return int(colours.size());
}

int brightness(QRgb pixel) {
    return qGray(pixel);
}
} // namespace

class TestScreenshots : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void everyStateInBothAppearances_data();
    void everyStateInBothAppearances();
    void trayIcons_data();
    void trayIcons();
    void qrCodesReadInBothAppearances_data();
    void qrCodesReadInBothAppearances();

private:
    QDir m_output{QStringLiteral(QUILLMERE_SCREENSHOT_DIR)};
};

void TestScreenshots::initTestCase() {
    QVERIFY(QDir().mkpath(m_output.path()));
    for (const QString &old : m_output.entryList({QStringLiteral("*.png")}, QDir::Files))
        QVERIFY(m_output.remove(old));

    QProcess program;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    environment.insert(QStringLiteral("QT_SCALE_FACTOR"), QString::number(scale));
    program.setProcessEnvironment(environment);
    program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    program.start(QStringLiteral(QUILLMERE_SCREENSHOT_PROGRAM), {m_output.path()});
    QVERIFY2(program.waitForFinished(240000), "the screenshot program did not finish");
    QCOMPARE(program.exitStatus(), QProcess::NormalExit);
    QCOMPARE(program.exitCode(), 0);
}

void TestScreenshots::everyStateInBothAppearances_data() {
    QTest::addColumn<QString>("state");
    for (const QString &state : ScreenshotNames::states)
        QTest::newRow(qPrintable(state)) << state;
}

void TestScreenshots::everyStateInBothAppearances() {
    QFETCH(QString, state);
    QList<int> backgrounds;
    for (const QString &appearance : ScreenshotNames::appearances) {
        const QString path = m_output.filePath(ScreenshotNames::fileName(state, appearance));
        const QImage image(path);
        QVERIFY2(!image.isNull(), qPrintable(path));
        QCOMPARE(image.width(), 340 * scale);
        // Above the quit row there is always a screen of some height.
        QVERIFY2(image.height() > 150 * scale, qPrintable(path));
        // Text, fields and controls, antialiased: far more than a few flat colours.
        QVERIFY2(sampledColours(image) > 40, qPrintable(path));
        backgrounds.append(brightness(image.pixel(2, 2)));
    }
    // The panel's own colour: light in the light appearance, dark in the dark one.
    QVERIFY2(backgrounds.at(0) > 200, qPrintable(QString::number(backgrounds.at(0))));
    QVERIFY2(backgrounds.at(1) < 60, qPrintable(QString::number(backgrounds.at(1))));
}

void TestScreenshots::trayIcons_data() {
    QTest::addColumn<QString>("state");
    QTest::addColumn<bool>("recording");
    QTest::addColumn<bool>("waiting");
    QTest::newRow("idle") << QStringLiteral("tray-idle") << false << false;
    QTest::newRow("recording") << QStringLiteral("tray-recording") << true << false;
    QTest::newRow("waiting") << QStringLiteral("tray-waiting") << false << true;
}

void TestScreenshots::trayIcons() {
    QFETCH(QString, state);
    QFETCH(bool, recording);
    QFETCH(bool, waiting);
    // A square picture whatever the state, in a strip of bar 4 wide all round.
    const QSize expected =
        QSize(StatusIcon::menuBarSize + 8, StatusIcon::menuBarSize + 8) * scale;
    for (const QString &appearance : ScreenshotNames::appearances) {
        const QImage image(m_output.filePath(ScreenshotNames::fileName(state, appearance)));
        QVERIFY(!image.isNull());
        QCOMPARE(image.size(), expected);
        QVERIFY(sampledColours(image) > 3);
        // The red dot exactly while recording, the orange one exactly while photos wait.
        bool red = false;
        bool orange = false;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x) {
                const QRgb pixel = image.pixel(x, y);
                red = red || (qRed(pixel) > 200 && qGreen(pixel) < 100 && qBlue(pixel) < 100);
                orange = orange || (qRed(pixel) > 200 && qGreen(pixel) > 120 &&
                                    qGreen(pixel) < 170 && qBlue(pixel) < 60);
            }
        QCOMPARE(red, recording);
        QCOMPARE(orange, waiting);
    }
}

void TestScreenshots::qrCodesReadInBothAppearances_data() {
    QTest::addColumn<QString>("state");
    QTest::addColumn<QString>("path");
    QTest::newRow("live link") << QStringLiteral("recording-qr") << QStringLiteral("live");
    QTest::newRow("gallery") << QStringLiteral("finished-qr") << QStringLiteral("gallery");
}

void TestScreenshots::qrCodesReadInBothAppearances() {
    QFETCH(QString, state);
    QFETCH(QString, path);
    if (QrReader::program().isEmpty())
        QUILLMERE_MISSING_TOOL(QStringLiteral("zbarimg"),
                               QStringLiteral("it is not installed (package zbar-tools)"));
    // The session's own address on devservice, scheme included: what a phone opens.
    const QRegularExpression link(
        QStringLiteral("^http://127\\.0\\.0\\.1:\\d+/%1/[A-Za-z0-9-]+$").arg(path));
    for (const QString &appearance : ScreenshotNames::appearances) {
        QStringList read;
        QString error;
        QVERIFY2(QrReader::read(m_output.filePath(ScreenshotNames::fileName(state, appearance)),
                                &read, &error),
                 qPrintable(error));
        QCOMPARE(read.size(), 1);
        QVERIFY2(link.match(read.first()).hasMatch(), qPrintable(read.first()));
    }
}

QTEST_GUILESS_MAIN(TestScreenshots)
#include "tst_screenshots.moc"
