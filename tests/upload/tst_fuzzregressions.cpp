// SPDX-License-Identifier: MIT
// Every input the image fuzzers found a fault with, kept in fuzz/regressions/preview_*, read
// again through ImageResizer. A file's name ends in the preview size it must give (".64x48.dng")
// or ".none." when it must give no preview.
#include "imageresizer.h"

#include <QDir>
#include <QDirIterator>
#include <QImage>
#include <QTest>
#include <QUrl>

class TestFuzzRegressions : public QObject {
    Q_OBJECT

private slots:
    void previewsOfFoundInputs_data();
    void previewsOfFoundInputs();
};

void TestFuzzRegressions::previewsOfFoundInputs_data() {
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("expected");
    const QDir regressions(QStringLiteral(QUILLMERE_FUZZ_REGRESSIONS_DIR));
    QVERIFY(regressions.exists());
    QDirIterator files(regressions.path(), {QStringLiteral("*")}, QDir::Files,
                       QDirIterator::Subdirectories);
    int count = 0;
    while (files.hasNext()) {
        const QString file = files.next();
        if (!regressions.relativeFilePath(file).startsWith(QLatin1String("preview_")))
            continue;
        const QStringList parts = QFileInfo(file).fileName().split(QLatin1Char('.'));
        QVERIFY2(parts.size() >= 3, qPrintable(file));
        QTest::newRow(qPrintable(regressions.relativeFilePath(file)))
            << file << parts.at(parts.size() - 2);
        ++count;
    }
    QVERIFY(count > 0);
}

void TestFuzzRegressions::previewsOfFoundInputs() {
    QFETCH(QString, file);
    QFETCH(QString, expected);
    const std::optional<QByteArray> preview =
        ImageResizer::createPreview(QUrl::fromLocalFile(file));
    if (expected == QLatin1String("none")) {
        QVERIFY(!preview);
        return;
    }
    QVERIFY(preview);
    const QImage image = QImage::fromData(*preview, "JPEG");
    QCOMPARE(QStringLiteral("%1x%2").arg(image.width()).arg(image.height()), expected);
}

QTEST_GUILESS_MAIN(TestFuzzRegressions)
#include "tst_fuzzregressions.moc"
