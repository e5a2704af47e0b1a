// SPDX-License-Identifier: MIT
// Files that lie about their size or stop short: each gets no preview, quickly and without
// taking memory for what it only claims to hold, and the limits leave real photos alone.
#include "hostilephotos.h"
#include "imageresizer.h"
#include "photofiles.h"
#include "photogenerator.h"
#include "photoreference.h"
#include "previewfixture.h"
#include "rawdngwriter.h"

#include <QFile>
#include <QImageReader>
#include <QTest>
#include <QUrl>

namespace {

// What one preview may hold at its peak, over what the process held before it.
constexpr qint64 previewMemoryBound = 150 * 1024 * 1024;

QByteArray readAll(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class TestHostilePhotos : public PreviewFixture {
    Q_OBJECT

private slots:
    void claimedSizesBeyondTheLimitsGiveNoPreview_data();
    void claimedSizesBeyondTheLimitsGiveNoPreview();
    void truncatedFilesGiveNoPreview_data();
    void truncatedFilesGiveNoPreview();
    void photosWithinTheLimitsStillGetPreviews();
    void rawOnlyDngOfALargeSensorStaysUnderTheBound();
    void previewsLeaveProcessSettingsAlone();
    void progressivePhotosPreviewLikeBaselineOnes_data();
    void progressivePhotosPreviewLikeBaselineOnes();
};

void TestHostilePhotos::claimedSizesBeyondTheLimitsGiveNoPreview_data() {
    QTest::addColumn<QString>("file");
    // Sources over 200 megapixels, and a strip whose preview would be 2000 x 65000.
    QTest::newRow("jpeg 65000 x 65000")
        << write("huge.jpg", HostilePhotos::jpegClaiming({65000, 65000}));
    QTest::newRow("jpeg strip 2000 x 65000")
        << write("strip.jpg", HostilePhotos::jpegClaiming({2000, 65000}));
    QTest::newRow("png 100000 x 100000")
        << write("huge.png", HostilePhotos::pngClaiming({100000, 100000}));
    QTest::newRow("png 15000 x 15000")
        << write("large.png", HostilePhotos::pngClaiming({15000, 15000}));
    // A real picture of 225 megapixels, every row there: refused for its size alone.
    QTest::newRow("whole png 15000 x 15000")
        << (HostilePhotos::writeBlankPng(path("blank.png"), {15000, 15000}) ? path("blank.png")
                                                                           : QString());
    QTest::newRow("png strip 2000 x 60000")
        << write("strip.png", HostilePhotos::pngClaiming({2000, 60000}));
    QTest::newRow("tiff 60000 x 60000")
        << (HostilePhotos::writeTiffClaiming(path("huge.tif"), {60000, 60000}) ? path("huge.tif")
                                                                               : QString());
    QTest::newRow("tiff strip 2000 x 60000")
        << (HostilePhotos::writeTiffClaiming(path("strip.tif"), {2000, 60000}) ? path("strip.tif")
                                                                               : QString());
    QTest::newRow("dng 60000 x 60000")
        << (HostilePhotos::writeDngClaiming(path("huge.dng"), {60000, 60000}) ? path("huge.dng")
                                                                              : QString());
    // Within the pixel limit, but no file of 8 KB holds 144 megapixels of raw data.
    QTest::newRow("dng 12000 x 12000 in a small file")
        << (HostilePhotos::writeDngClaiming(path("large.dng"), {12000, 12000}) ? path("large.dng")
                                                                               : QString());
}

void TestHostilePhotos::claimedSizesBeyondTheLimitsGiveNoPreview() {
    QFETCH(QString, file);
    QVERIFY(!file.isEmpty());
    const qint64 before = HostilePhotos::resident();
    QVERIFY(HostilePhotos::resetResidentPeak());
    QVERIFY(!ImageResizer::createPreview(QUrl::fromLocalFile(file)).has_value());
    const qint64 growth = HostilePhotos::residentPeak() - before;
    QVERIFY2(growth < previewMemoryBound,
             qPrintable(QStringLiteral("peak grew by %1 MB").arg(growth >> 20)));
}

void TestHostilePhotos::truncatedFilesGiveNoPreview_data() {
    const QImage &picture = scene({1200, 800}, 4);
    const QByteArray jpeg = PhotoFiles::encodeJpeg(picture, 90);
    const QByteArray progressive =
        PhotoFiles::encodeJpeg(picture, 90, PhotoFiles::Chroma::Subsampled420, true);
    QVERIFY(picture.save(path("whole.png"), "PNG"));
    QVERIFY(PhotoFiles::writeTiff(path("whole8.tif"), {picture}, 8));
    QVERIFY(PhotoFiles::writeTiff(path("whole16.tif"), {scene({600, 400}, 5).convertToFormat(
                                                            QImage::Format_RGBX64)},
                                  16));
    QVERIFY(RawDngWriter::write(path("whole.dng"), picture, picture.scaled(256, 171)));
    const QByteArray files[] = {jpeg, progressive, readAll(path("whole.png")),
                                readAll(path("whole8.tif")), readAll(path("whole16.tif")),
                                readAll(path("whole.dng"))};
    const char *names[] = {"baseline.jpg", "progressive.jpg", "photo.png",
                           "photo8.tif",   "photo16.tif",     "raw.dng"};

    QTest::addColumn<QString>("file");
    for (std::size_t i = 0; i < std::size(files); ++i) {
        const QByteArray &whole = files[i];
        QVERIFY(whole.size() > 4096);
        // The header alone, half, nine tenths, and all but the last bytes, which in a DNG are
        // directories written after the picture: cut there, its picture is still whole.
        const std::pair<const char *, qsizetype> cuts[] = {{"header", 200},
                                                            {"half", whole.size() / 2},
                                                            {"most", whole.size() / 10 * 9},
                                                            {"end", whole.size() - 8}};
        for (const auto &[cut, length] : cuts) {
            if (QLatin1String(names[i]).endsWith(QLatin1String(".dng")) && length == whole.size() - 8)
                continue;
            const QString name = QStringLiteral("%1-%2").arg(QLatin1String(cut),
                                                             QLatin1String(names[i]));
            QTest::newRow(qPrintable(name)) << write(name, whole.left(length));
        }
    }
}

void TestHostilePhotos::truncatedFilesGiveNoPreview() {
    QFETCH(QString, file);
    QVERIFY(!file.isEmpty());
    QVERIFY(!ImageResizer::createPreview(QUrl::fromLocalFile(file)).has_value());
}

void TestHostilePhotos::photosWithinTheLimitsStillGetPreviews() {
    // The limits stop lies, not photographs: a tall 1:4 strip at the preview limit, and a large
    // PNG read row by row.
    const QString strip = write("strip.jpg", PhotoFiles::encodeGradientJpeg({2000, 8000}, 80));
    QCOMPARE(previewOf(strip).size(), QSize(2000, 8000));
    QImage wide(9000, 3000, QImage::Format_RGB32);
    wide.fill(QColor(30, 60, 90));
    QVERIFY(wide.save(path("wide.png"), "PNG", fastPng));
    QCOMPARE(previewOf(path("wide.png")).size(), QSize(2000, 666));
}

void TestHostilePhotos::rawOnlyDngOfALargeSensorStaysUnderTheBound() {
    // A 61-megapixel sensor (9504 x 6336, 16-bit samples) with only a thumbnail: the preview is
    // developed from the raw data, which alone takes 122 MB once unpacked.
    const QSize sensor(9504, 6336);
    const PhotoGenerator scene(sensor, 61);
    const auto row = [&](int y, uchar *rgb) { scene.fillRow8(y, rgb); };
    const QImage thumbnail = PhotoGenerator({256, 171}, 61).image8();
    QVERIFY(RawDngWriter::write(path("sensor61.dng"), sensor, row, thumbnail));

    const qint64 before = HostilePhotos::resident();
    QVERIFY(HostilePhotos::resetResidentPeak());
    const std::optional<QByteArray> preview =
        ImageResizer::createPreview(QUrl::fromLocalFile(path("sensor61.dng")));
    const qint64 growth = HostilePhotos::residentPeak() - before;
    QFile::remove(path("sensor61.dng"));
    QVERIFY(preview.has_value());
    QVERIFY2(growth < previewMemoryBound,
             qPrintable(QStringLiteral("peak grew by %1 MB").arg(growth >> 20)));
    // And the picture is the sensor's, developed, not a dark or flat frame.
    const QImage picture = PhotoFiles::decodeJpeg(*preview);
    QCOMPARE(picture.size(), QSize(2000, 1333));
    const double correlation =
        PhotoReference::lumaCorrelation(picture, PhotoGenerator(picture.size(), 61).image8());
    QVERIFY2(correlation > 0.95, qPrintable(QString::number(correlation)));
}

void TestHostilePhotos::previewsLeaveProcessSettingsAlone() {
    // Previews run two at a time on pool threads: a setting of the whole process changed from
    // one of them would race with every other reader of it (Qt's image readers share their
    // allocation limit).
    const int limit = QImageReader::allocationLimit();
    const QImage &picture = scene({2400, 1600}, 6);
    QVERIFY(picture.save(path("photo.bmp"), "BMP"));
    QVERIFY(picture.save(path("photo.png"), "PNG", fastPng));
    QVERIFY(PhotoFiles::writeTiff(path("photo.tif"), {picture}, 8));
    for (const char *name : {"photo.bmp", "photo.png", "photo.tif"})
        QCOMPARE(previewOf(path(QLatin1String(name))).size(), QSize(2000, 1333));
    QCOMPARE(QImageReader::allocationLimit(), limit);
}

void TestHostilePhotos::progressivePhotosPreviewLikeBaselineOnes_data() {
    QTest::addColumn<QSize>("size");
    QTest::addColumn<int>("chroma");
    // Scaled and unscaled decodes; chroma of every layout; sizes that leave partial blocks.
    QTest::newRow("4:2:0 scaled") << QSize(4099, 2731) << int(PhotoFiles::Chroma::Subsampled420);
    QTest::newRow("4:2:2 scaled") << QSize(2601, 1733) << int(PhotoFiles::Chroma::Subsampled422);
    QTest::newRow("4:4:4 whole") << QSize(1203, 805) << int(PhotoFiles::Chroma::Full444);
    QTest::newRow("grey scaled") << QSize(6007, 4001) << int(PhotoFiles::Chroma::Grey);
}

void TestHostilePhotos::progressivePhotosPreviewLikeBaselineOnes() {
    // Progressive photos are decoded by another road, with their coefficients kept mostly on
    // disk; the picture must not tell.
    QFETCH(QSize, size);
    QFETCH(int, chroma);
    const QImage &picture = scene(size, 9);
    const auto layout = PhotoFiles::Chroma(chroma);
    const QImage baseline =
        previewOf(write("baseline.jpg", PhotoFiles::encodeJpeg(picture, 92, layout)));
    const QImage progressive =
        previewOf(write("progressive.jpg", PhotoFiles::encodeJpeg(picture, 92, layout, true)));
    QVERIFY(!baseline.isNull());
    QCOMPARE(progressive.size(), baseline.size());
    const double psnr = PhotoReference::psnr(progressive, baseline);
    QVERIFY2(psnr > 45.0, qPrintable(QString::number(psnr)));
}

QTEST_GUILESS_MAIN(TestHostilePhotos)
#include "tst_hostilephotos.moc"
