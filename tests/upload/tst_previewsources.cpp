// SPDX-License-Identifier: MIT
// What a preview is made of and how it is written: the first picture of a file whatever way its
// JPEG is coded, the pixel grid as stored whatever orientation the metadata records, and a JPEG
// at quality 85.
#include "imageresizer.h"
#include "photofiles.h"
#include "photogenerator.h"
#include "photoreference.h"
#include "previewfixture.h"
#include "rawdngwriter.h"

#include <QBuffer>
#include <QImageWriter>
#include <QMap>
#include <QPainter>
#include <QTest>
#include <QUrl>

namespace {

// The quantisation tables of a JPEG file by table number, as its DQT segments give them.
QMap<int, QByteArray> quantisationTables(const QByteArray &jpeg) {
    QMap<int, QByteArray> tables;
    const auto byte = [&](qsizetype i) { return i < jpeg.size() ? int(uchar(jpeg[i])) : -1; };
    for (qsizetype at = 2; byte(at) == 0xFF && byte(at + 1) != 0xDA;) {
        const int length = byte(at + 2) << 8 | byte(at + 3);
        if (byte(at + 1) == 0xDB) {
            for (qsizetype table = at + 4; table < at + 2 + length;) {
                const qsizetype entries = (byte(table) >> 4) == 0 ? 64 : 128; // 8 or 16 bits
                tables.insert(byte(table) & 0x0F, jpeg.mid(table + 1, entries));
                table += 1 + entries;
            }
        }
        at += 2 + length;
    }
    return tables;
}

// Four quarters of different colour and lightness: any turn or mirroring of the grid moves them.
QImage quarters(QSize size) {
    QImage image(size, QImage::Format_RGB888);
    QPainter painter(&image);
    const int w = size.width() / 2;
    const int h = size.height() / 2;
    painter.fillRect(0, 0, w, h, QColor(210, 40, 40));
    painter.fillRect(w, 0, size.width() - w, h, QColor(30, 30, 30));
    painter.fillRect(0, h, w, size.height() - h, QColor(120, 120, 120));
    painter.fillRect(w, h, size.width() - w, size.height() - h, QColor(235, 235, 200));
    return image;
}

QByteArray encodedByQt(const QImage &image, bool progressive) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    QImageWriter writer(&buffer, "jpeg");
    writer.setQuality(90);
    writer.setProgressiveScanWrite(progressive);
    return writer.write(image) ? bytes : QByteArray();
}

} // namespace

class TestPreviewSources : public PreviewFixture {
    Q_OBJECT

private slots:
    void encodedAtQuality85_data();
    void encodedAtQuality85();
    void progressiveJpegReadsLikeBaseline();
    void onlyTheFirstPictureOfAJpegCounts_data();
    void onlyTheFirstPictureOfAJpegCounts();
    void orientationMetadataIsLeftAlone_data();
    void orientationMetadataIsLeftAlone();
};

void TestPreviewSources::encodedAtQuality85_data() {
    QTest::addColumn<QString>("name");
    QTest::newRow("from a JPEG") << "photo.jpg";
    QTest::newRow("from a PNG") << "photo.png";
}

void TestPreviewSources::encodedAtQuality85() {
    // The preview's own pixels encoded again at 85 by libjpeg-turbo: the very same tables.
    QFETCH(QString, name);
    const QImage &picture = scene({2400, 1600}, 31);
    const QString file = name.endsWith("jpg") ? write(name, PhotoFiles::encodeJpeg(picture, 95))
                                              : path(name);
    if (name.endsWith("png"))
        QVERIFY(picture.save(file, "PNG", fastPng));
    const std::optional<QByteArray> preview = ImageResizer::createPreview(QUrl::fromLocalFile(file));
    QVERIFY(preview.has_value());
    const QByteArray atQuality85 = PhotoFiles::encodeJpeg(PhotoFiles::decodeJpeg(*preview), 85);
    const QMap<int, QByteArray> tables = quantisationTables(*preview);
    QCOMPARE(tables.size(), 2); // luma and chroma
    QCOMPARE(tables, quantisationTables(atQuality85));
    QVERIFY(tables != quantisationTables(PhotoFiles::encodeJpeg(picture, 84)));
    QVERIFY(tables != quantisationTables(PhotoFiles::encodeJpeg(picture, 86)));
}

void TestPreviewSources::progressiveJpegReadsLikeBaseline() {
    // The same coefficients sent in several scans decode to the same pixels, so the preview is
    // the very same as the baseline file's, not only one of the first scan's coarse picture.
    // The picture is decoded at full scale: scaled down in the decoder, the two libraries size
    // subsampled chroma differently (a few levels apart), which says nothing about the scans.
    const QImage &picture = scene({2200, 1466}, 32);
    const QByteArray baseline = encodedByQt(picture, false);
    const QByteArray progressive = encodedByQt(picture, true);
    QVERIFY(!baseline.isEmpty() && !progressive.isEmpty());
    QVERIFY(progressive.contains("\xFF\xC2")); // a progressive frame header
    const QImage fromProgressive = previewOf(write("progressive.jpg", progressive));
    QCOMPARE(fromProgressive.size(), QSize(2000, 1332));
    QCOMPARE(fromProgressive, previewOf(write("baseline.jpg", baseline)));
}

void TestPreviewSources::onlyTheFirstPictureOfAJpegCounts_data() {
    const QByteArray first = PhotoFiles::encodeJpeg(scene({2400, 1600}, 33), 92);
    const QImage other = scene({1600, 2400}, 34);
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("firstAlone");
    // Stereo and multi-picture cameras store their pictures one after the other.
    QTest::newRow("pictures one after another")
        << first + PhotoFiles::encodeJpeg(other, 92) + PhotoFiles::encodeJpeg(other.mirrored(), 80)
        << first;
    // Nearly every camera JPEG carries a small second picture in its Exif block.
    QTest::newRow("thumbnail in the Exif block")
        << PhotoFiles::withExifOrientation(first, 1, PhotoFiles::encodeJpeg(other.scaled(120, 180), 80))
        << first;
}

void TestPreviewSources::onlyTheFirstPictureOfAJpegCounts() {
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, firstAlone);
    const QImage preview = previewOf(write("several.jpg", file));
    QCOMPARE(preview.size(), QSize(2000, 1333));
    QCOMPARE(preview, previewOf(write("first.jpg", firstAlone)));
}

void TestPreviewSources::orientationMetadataIsLeftAlone_data() {
    QTest::addColumn<QString>("format");
    QTest::addColumn<int>("orientation");
    for (const char *format : {"png", "tiff", "tiled tiff", "raw with a full-size JPEG", "raw alone"}) {
        // 3 turns the picture half round, 6 a quarter: each would show in the preview.
        for (const int orientation : {3, 6})
            QTest::addRow("%s, orientation %d", format, orientation) << QString(format) << orientation;
    }
}

void TestPreviewSources::orientationMetadataIsLeftAlone() {
    QFETCH(QString, format);
    QFETCH(int, orientation);
    // Wide and short, so that a half-size raw is just wide enough and the test stays quick.
    const QImage picture = quarters({4000, 1000});
    QString file;
    if (format == "png") {
        QByteArray png;
        QBuffer buffer(&png);
        QVERIFY(picture.save(&buffer, "PNG", fastPng));
        file = write("turned.png", PhotoFiles::withPngExifOrientation(png, orientation));
    } else if (format == "tiff") {
        file = path("turned.tif");
        QVERIFY(PhotoFiles::writeTiff(file, {picture}, 8, orientation));
    } else if (format == "tiled tiff") {
        file = path("turned-tiles.tif");
        QVERIFY(PhotoFiles::writeTiledTiff(file, picture, orientation));
    } else {
        file = path("turned.dng");
        const QByteArray embedded =
            format.contains("JPEG") ? PhotoFiles::encodeJpeg(picture, 92) : QByteArray();
        QVERIFY(RawDngWriter::write(file, picture, picture.scaledToWidth(256), embedded, orientation));
    }
    const QImage preview = previewOf(file);
    QCOMPARE(preview.size(), QSize(2000, 500));
    const double correlation = PhotoReference::lumaCorrelation(preview, picture);
    QVERIFY2(correlation > 0.9, qPrintable(QString::number(correlation)));
}

QTEST_GUILESS_MAIN(TestPreviewSources)
#include "tst_previewsources.moc"
