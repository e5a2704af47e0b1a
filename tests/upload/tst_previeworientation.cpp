// SPDX-License-Identifier: MIT
// A preview is shown upright: it keeps the stored pixel grid but carries its photo's
// orientation as its one EXIF tag, read from wherever the photo keeps it, and nothing else of
// the photo's metadata. A bogus orientation or a damaged Exif block still gives a preview.
#include "exifwriter.h"
#include "imageresizer.h"
#include "photofiles.h"
#include "photoreference.h"
#include "previewfixture.h"
#include "rawdngwriter.h"

#include <QBuffer>
#include <QImageReader>
#include <QTest>
#include <QUrl>

namespace {

// The stored grid turned the way EXIF orientation `o` asks a viewer to show it, pixel by pixel.
QImage turned(const QImage &stored, int o) {
    const QImage source = stored.convertToFormat(QImage::Format_RGB888);
    const int w = source.width();
    const int h = source.height();
    const bool swaps = o >= 5;
    QImage out(swaps ? h : w, swaps ? w : h, QImage::Format_RGB888);
    for (int y = 0; y < h; ++y) {
        const uchar *in = source.constScanLine(y);
        for (int x = 0; x < w; ++x) {
            int u = x, v = y;
            switch (o) {
            case 2:
                u = w - 1 - x;
                break;
            case 3:
                u = w - 1 - x;
                v = h - 1 - y;
                break;
            case 4:
                v = h - 1 - y;
                break;
            case 5:
                u = y;
                v = x;
                break;
            case 6:
                u = h - 1 - y;
                v = x;
                break;
            case 7:
                u = h - 1 - y;
                v = w - 1 - x;
                break;
            case 8:
                u = y;
                v = w - 1 - x;
                break;
            default:
                break;
            }
            std::memcpy(out.scanLine(v) + std::ptrdiff_t(u) * 3, in + std::ptrdiff_t(x) * 3, 3);
        }
    }
    return out;
}

// What a viewer that honours EXIF orientation shows.
QImage shownUpright(const QByteArray &jpeg) {
    QBuffer buffer;
    buffer.setData(jpeg);
    QImageReader reader(&buffer, "jpeg");
    reader.setAutoTransform(true);
    return reader.read().convertToFormat(QImage::Format_RGB888);
}

// The APPn segments of a JPEG before its first scan, marker and payload.
QList<QPair<int, QByteArray>> appSegments(const QByteArray &jpeg) {
    QList<QPair<int, QByteArray>> segments;
    const auto byte = [&](qsizetype i) { return i < jpeg.size() ? int(uchar(jpeg[i])) : -1; };
    for (qsizetype at = 2; byte(at) == 0xFF && byte(at + 1) != 0xDA;) {
        const int length = byte(at + 2) << 8 | byte(at + 3);
        if (byte(at + 1) >= 0xE0 && byte(at + 1) <= 0xEF)
            segments.append({byte(at + 1), jpeg.mid(at + 4, length - 2)});
        at += 2 + length;
    }
    return segments;
}

} // namespace

class TestPreviewOrientation : public PreviewFixture {
    Q_OBJECT

private slots:
    void everyOrientationIsShownUpright_data();
    void everyOrientationIsShownUpright();
    void nothingElseOfTheMetadataIsKept_data();
    void nothingElseOfTheMetadataIsKept();
    void bogusOrientationGivesAnUntaggedPreview_data();
    void bogusOrientationGivesAnUntaggedPreview();

private:
    QString photoWith(const QString &format, int orientation);
};

QString TestPreviewOrientation::photoWith(const QString &format, int orientation) {
    // Wide and short, so that a half-size raw is just wide enough and the test stays quick.
    const QImage &picture = scene({4000, 1000}, 61);
    const QString name = QStringLiteral("o%1-%2").arg(orientation).arg(format).replace(' ', '-');
    if (format == "jpeg")
        return write(name + ".jpg", ExifWriter::withExif(PhotoFiles::encodeJpeg(picture, 92),
                                                         {.orientation = orientation}));
    if (format == "png") {
        QByteArray png;
        QBuffer buffer(&png);
        if (!picture.save(&buffer, "PNG", fastPng))
            return {};
        return write(name + ".png", PhotoFiles::withPngExifOrientation(png, orientation));
    }
    if (format == "tiff") {
        const QString file = path(name + ".tif");
        return PhotoFiles::writeTiff(file, {picture}, 8, orientation) ? file : QString();
    }
    if (format == "tiled tiff") {
        const QString file = path(name + ".tif");
        return PhotoFiles::writeTiledTiff(file, picture, orientation) ? file : QString();
    }
    const QString file = path(name + ".dng");
    QByteArray embedded;
    if (format == "raw with a full-size JPEG")
        embedded = PhotoFiles::encodeJpeg(picture, 92);
    // The JPEG's own Exif alone says how to turn it; the raw's tag says nothing.
    if (format == "raw whose JPEG alone is tagged")
        embedded =
            ExifWriter::withExif(PhotoFiles::encodeJpeg(picture, 92), {.orientation = orientation});
    const int rawOrientation = format == "raw whose JPEG alone is tagged" ? 1 : orientation;
    return RawDngWriter::write(file, picture, picture.scaledToWidth(256), embedded, rawOrientation)
               ? file
               : QString();
}

void TestPreviewOrientation::everyOrientationIsShownUpright_data() {
    QTest::addColumn<QString>("format");
    QTest::addColumn<int>("orientation");
    for (const char *format : {"jpeg", "tiff", "tiled tiff", "png", "raw with a full-size JPEG",
                               "raw whose JPEG alone is tagged", "raw alone"})
        for (int orientation = 1; orientation <= 8; ++orientation)
            QTest::addRow("%s, orientation %d", format, orientation)
                << QString(format) << orientation;
}

void TestPreviewOrientation::everyOrientationIsShownUpright() {
    QFETCH(QString, format);
    QFETCH(int, orientation);
    const QString file = photoWith(format, orientation);
    QVERIFY(!file.isEmpty());
    const std::optional<QByteArray> preview =
        ImageResizer::createPreview(QUrl::fromLocalFile(file));
    QVERIFY(preview.has_value());
    // The stored grid and the width rule, as before.
    QCOMPARE(PhotoFiles::decodeJpeg(*preview).size(), QSize(2000, 500));
    const QImage upright = shownUpright(*preview);
    const QSize shown = orientation >= 5 ? QSize(500, 2000) : QSize(2000, 500);
    QCOMPARE(upright.size(), shown);
    // The scene turned as asked matches what the viewer shows, and no other turn does as well.
    // The comparison looks at coarse shapes only, so the scene is turned at a fifth of its size.
    const QImage picture =
        scene({4000, 1000}, 61).scaled(800, 200, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    double best = -1;
    int bestOrientation = 0;
    for (int candidate = 1; candidate <= 8; ++candidate) {
        const QImage expected = turned(picture, candidate);
        if (expected.size() * 5 / 2 != upright.size())
            continue;
        const double correlation = PhotoReference::lumaCorrelation(upright, expected);
        if (correlation > best) {
            best = correlation;
            bestOrientation = candidate;
        }
    }
    QCOMPARE(bestOrientation, orientation);
    QVERIFY2(best > 0.9, qPrintable(QString::number(best)));
}

void TestPreviewOrientation::nothingElseOfTheMetadataIsKept_data() {
    QTest::addColumn<QString>("format");
    QTest::newRow("jpeg") << "jpeg";
    QTest::newRow("raw with a full-size JPEG") << "raw";
}

void TestPreviewOrientation::nothingElseOfTheMetadataIsKept() {
    QFETCH(QString, format);
    const QImage &picture = scene({2400, 1600}, 62);
    const ExifWriter::Fields fields{.orientation = 6,
                                    .gpsPosition = true,
                                    .artist = "Jane Q. Photographer",
                                    .bodySerialNumber = "QM-0042-SERIAL"};
    const QByteArray camera = ExifWriter::withExif(PhotoFiles::encodeJpeg(picture, 92), fields);
    QString file;
    if (format == "jpeg") {
        file = write("private.jpg", camera);
    } else {
        file = path("private.dng");
        QVERIFY(RawDngWriter::write(file, picture, picture.scaledToWidth(256), camera, 6, fields));
    }
    QVERIFY(!file.isEmpty());
    const std::optional<QByteArray> preview =
        ImageResizer::createPreview(QUrl::fromLocalFile(file));
    QVERIFY(preview.has_value());
    QVERIFY(!preview->contains("Jane Q. Photographer"));
    QVERIFY(!preview->contains("QM-0042-SERIAL"));
    // One Exif segment, and in it one directory with one entry: the orientation.
    int exifSegments = 0;
    for (const auto &[marker, payload] : appSegments(*preview)) {
        if (marker == 0xE0) {
            QVERIFY(payload.startsWith(QByteArray("JFIF\0", 5)));
            continue;
        }
        QCOMPARE(marker, 0xE1);
        QVERIFY(payload.startsWith(QByteArray("Exif\0\0MM\0\x2A\0\0\0\x08", 14)));
        ++exifSegments;
        const QByteArray ifd = payload.mid(14);
        QCOMPARE(ifd.left(2), QByteArray("\0\x01", 2));                     // one entry
        QCOMPARE(ifd.mid(2, 8), QByteArray("\x01\x12\0\x03\0\0\0\x01", 8)); // Orientation
        QCOMPARE(ifd.mid(10, 2), QByteArray("\0\x06", 2));
        QCOMPARE(ifd.mid(14, 4), QByteArray(4, '\0')); // no next directory: no thumbnail
        QCOMPARE(payload.size(), 6 + 8 + 2 + 12 + 4);  // nothing hidden after it
    }
    QCOMPARE(exifSegments, 1);
}

void TestPreviewOrientation::bogusOrientationGivesAnUntaggedPreview_data() {
    const QByteArray plain = PhotoFiles::encodeJpeg(scene({2400, 1600}, 63), 92);
    QTest::addColumn<QByteArray>("photo");
    QTest::addColumn<QByteArray>("plain");
    QTest::newRow("orientation 0") << ExifWriter::withExif(plain, {.orientation = 0}) << plain;
    QTest::newRow("orientation 9") << ExifWriter::withExif(plain, {.orientation = 9}) << plain;
    QTest::newRow("orientation 65535")
        << ExifWriter::withExif(plain, {.orientation = 65535}) << plain;
    // An Exif block whose directory offset points far beyond the segment.
    QByteArray damaged = ExifWriter::withExif(plain, {.orientation = 6});
    damaged.replace(2 + 4 + 6 + 4, 4, QByteArray("\x7F\xFF\xFF\xF0", 4));
    QTest::newRow("directory out of bounds") << damaged << plain;
}

void TestPreviewOrientation::bogusOrientationGivesAnUntaggedPreview() {
    QFETCH(QByteArray, photo);
    QFETCH(QByteArray, plain);
    const std::optional<QByteArray> preview =
        ImageResizer::createPreview(QUrl::fromLocalFile(write("bogus.jpg", photo)));
    QVERIFY(preview.has_value());
    const std::optional<QByteArray> plainPreview =
        ImageResizer::createPreview(QUrl::fromLocalFile(write("plain.jpg", plain)));
    QVERIFY(plainPreview.has_value());
    QCOMPARE(*preview, *plainPreview);
}

QTEST_GUILESS_MAIN(TestPreviewOrientation)
#include "tst_previeworientation.moc"
