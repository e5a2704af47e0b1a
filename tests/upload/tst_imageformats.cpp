// SPDX-License-Identifier: MIT
// Previews of every other kind of photo file: camera RAW, TIFF, PNG, CMYK JPEG, 16 bits, alpha,
// files that cannot be read, a hundred megapixels, and two previews made at once.
#include "imageresizer.h"
#include "photofiles.h"
#include "photogenerator.h"
#include "photoreference.h"
#include "previewfixture.h"
#include "rawdevelopments.h"
#include "rawdngwriter.h"
#include "rawpreview.h"
#include "repositoryfixtures.h"

#include <QDir>
#include <QFile>
#include <QTest>
#include <QUrl>
#include <array>
#include <cmath>
#include <cstring>
#include <future>

namespace {

QImage mirrored(const QImage &image) {
    return image.mirrored(true, false);
}

} // namespace

class TestImageFormats : public PreviewFixture {
    Q_OBJECT

private slots:
    void rawPreviewSources_data();
    void rawPreviewSources();
    void sampleDngIsDevelopedAtFullSize();
    void streamedDevelopmentMatchesLibRaws_data();
    void streamedDevelopmentMatchesLibRaws();
    void rawsWithoutAMosaicKeepLibRawsProcessing();
    void unreadableFilesGiveNothing_data();
    void unreadableFilesGiveNothing();
    void cmykJpegReadsLikeQtReadsIt();
    void multiPageTiffGivesTheFirstPage();
    void sixteenBitFilesKeepTheirPicture_data();
    void sixteenBitFilesKeepTheirPicture();
    void pngAlphaIsComposedOverBlack();
    void exifOrientationKeepsTheStoredGrid();
    void hundredMegapixelJpeg();
    void pngBeyondQtsDefaultAllocationLimit();
    void concurrentPreviewsAreIndependent();

private:
    QImage m_deep;
    QImage m_deepReference;
};

void TestImageFormats::rawPreviewSources_data() {
    // Wide, short sensors: the width decides every path, and fewer rows keep the test quick.
    QTest::addColumn<QSize>("sensor");
    QTest::addColumn<QSize>("embedded"); // no JPEG when empty
    QTest::addColumn<int>("source");
    QTest::newRow("full-size JPEG, like CR3 and NEF")
        << QSize(4000, 1500) << QSize(4000, 1500) << int(RawPreview::Source::EmbeddedJpeg);
    QTest::newRow("JPEG a camera's margin smaller")
        << QSize(4000, 1500) << QSize(3984, 1494) << int(RawPreview::Source::EmbeddedJpeg);
    QTest::newRow("JPEG narrower than the preview")
        << QSize(4000, 1500) << QSize(1620, 608) << int(RawPreview::Source::HalfSizeRaw);
    QTest::newRow("thumbnail only")
        << QSize(4000, 1500) << QSize() << int(RawPreview::Source::HalfSizeRaw);
    QTest::newRow("half size would be too narrow")
        << QSize(2400, 900) << QSize() << int(RawPreview::Source::FullSizeRaw);
}

void TestImageFormats::rawPreviewSources() {
    QFETCH(QSize, sensor);
    QFETCH(QSize, embedded);
    QFETCH(int, source);
    // The embedded JPEG shows the scene mirrored, so the preview tells where it came from.
    const QImage &sensed = scene(sensor, 21);
    const QByteArray jpeg =
        embedded.isEmpty()
            ? QByteArray()
            : PhotoFiles::encodeJpeg(mirrored(sensed).scaled(embedded, Qt::IgnoreAspectRatio,
                                                             Qt::SmoothTransformation),
                                     92);
    const QString file = path("camera.dng");
    QVERIFY(RawDngWriter::write(file, sensed, sensed.scaledToWidth(256), jpeg));

    RawPreview raw(file);
    QVERIFY(raw.isRaw());
    QCOMPARE(raw.developedSize(), sensor);
    const std::optional<QByteArray> preview = raw.render();
    QVERIFY(preview.has_value());
    QCOMPARE(int(raw.source()), source);
    const QImage picture = PhotoFiles::decodeJpeg(*preview);
    QCOMPARE(picture.size(), QSize(2000, sensor.height() * 2000 / sensor.width()));
    const QImage shown =
        source == int(RawPreview::Source::EmbeddedJpeg) ? mirrored(sensed) : sensed;
    const double correlation = PhotoReference::lumaCorrelation(picture, shown);
    QVERIFY2(correlation > 0.95, qPrintable(QString::number(correlation)));
    QVERIFY(ImageResizer::createPreview(QUrl::fromLocalFile(file)) == preview);
}

void TestImageFormats::sampleDngIsDevelopedAtFullSize() {
    // A real phone DNG whose only embedded JPEG is 256 x 144: the raw data must be developed.
    const QString sample = QStringLiteral("lg-g4-600x338.dng");
    QUILLMERE_REQUIRE_FIXTURE(sample);
    const QString file = RepositoryFixtures::path(sample);
    RawPreview raw(file);
    QVERIFY(raw.isRaw());
    QCOMPARE(raw.developedSize(), QSize(600, 338));
    const std::optional<QByteArray> preview = raw.render();
    QVERIFY(preview.has_value());
    QCOMPARE(raw.source(), RawPreview::Source::FullSizeRaw);
    const QImage picture = PhotoFiles::decodeJpeg(*preview);
    QCOMPARE(picture.size(), QSize(600, 338));
    // A developed photo, not a flat or black frame: a park under clouds.
    const auto mean = PhotoReference::meanColour(picture, picture.rect());
    QVERIFY(mean[0] > 60 && mean[0] < 200 && mean[1] > 60 && mean[1] < 200);
    QVERIFY(PhotoReference::lumaSpread(picture) > 25.0);
}

void TestImageFormats::streamedDevelopmentMatchesLibRaws_data() {
    QTest::addColumn<QString>("file");
    QTest::addColumn<QSize>("half");
    const auto written = [this](const char *name, QSize sensor,
                                const RawDngWriter::Camera &camera) {
        const QString file = path(QLatin1String(name));
        const QImage &picture = scene(sensor, 23);
        return RawDngWriter::write(file, picture, picture.scaledToWidth(256), camera) ? file
                                                                                      : QString();
    };
    using Camera = RawDngWriter::Camera;
    QTest::newRow("daylight") << written("even.dng", {4000, 1500}, Camera()) << QSize(2000, 750);
    // Tungsten light: red weak, blue strong, so every channel has its own scale.
    QTest::newRow("tungsten") << written("tinted.dng", {4000, 1500},
                                         Camera{.asShotNeutral = {0.45f, 1.0f, 0.8f}})
                              << QSize(2000, 750);
    // LibRaw takes a mosaic's visible area in whole cells.
    QTest::newRow("odd sensor") << written("odd.dng", {3001, 1201}, Camera()) << QSize(1500, 600);
    // The other three ways a Bayer cell is laid out.
    QTest::newRow("BGGR") << written("bggr.dng", {2400, 900}, Camera{.pattern = {2, 1, 1, 0}})
                          << QSize(1200, 450);
    QTest::newRow("GRBG") << written("grbg.dng", {2400, 900},
                                     Camera{.asShotNeutral = {0.6f, 1.0f, 0.7f},
                                            .pattern = {1, 0, 2, 1}})
                          << QSize(1200, 450);
    QTest::newRow("GBRG") << written("gbrg.dng", {2401, 901}, Camera{.pattern = {1, 2, 0, 1}})
                          << QSize(1200, 450);
    // Black levels: high, as on some sensors, and one for each sample of the cell.
    QTest::newRow("black 2048") << written("black.dng", {2400, 900},
                                           Camera{.black = {2048, 2048, 2048, 2048}})
                                << QSize(1200, 450);
    QTest::newRow("black per sample")
        << written("blacks.dng", {2400, 900},
                   Camera{.asShotNeutral = {0.5f, 1.0f, 0.9f}, .black = {200, 260, 240, 320}})
        << QSize(1200, 450);
}

void TestImageFormats::rawsWithoutAMosaicKeepLibRawsProcessing() {
    // The sample phone raw holds its pixels as full colour (a lossy DNG), not as a mosaic: the
    // streamed development declines it, and LibRaw's own processing develops it (at full size:
    // there are no cells to halve).
    const QString sample = QStringLiteral("lg-g4-600x338.dng");
    QUILLMERE_REQUIRE_FIXTURE(sample);
    const QString file = RepositoryFixtures::path(sample);
    QVERIFY(RawDevelopments::streamed(file).isNull());
    QCOMPARE(RawDevelopments::libRaw(file).size(), QSize(600, 338));
}

void TestImageFormats::streamedDevelopmentMatchesLibRaws() {
    // Raw-only photos are developed row by row, beside the raw data, instead of by LibRaw,
    // whose working image would double the memory; the picture must be LibRaw's all the same.
    QFETCH(QString, file);
    QFETCH(QSize, half);
    QVERIFY(!file.isEmpty());
    const QImage libRaw = RawDevelopments::libRaw(file);
    const QImage streamed = RawDevelopments::streamed(file);
    QVERIFY(!libRaw.isNull());
    QCOMPARE(streamed.size(), half);
    QCOMPARE(streamed.size(), libRaw.size());
    // Above 60 dB the two differ by less than a quarter of one 8-bit level, root mean square:
    // only where they round a value differently.
    const double psnr = PhotoReference::psnr(streamed, libRaw);
    QVERIFY2(psnr > 60.0, qPrintable(QString::number(psnr)));
}

void TestImageFormats::unreadableFilesGiveNothing_data() {
    const QImage &picture = scene({1200, 800}, 2);
    const QByteArray jpeg = PhotoFiles::encodeJpeg(picture, 90);
    QVERIFY(picture.save(path("whole.png"), "PNG"));
    QVERIFY(PhotoFiles::writeTiff(path("whole.tif"), {picture}, 8));
    QVERIFY(RawDngWriter::write(path("whole.dng"), picture, picture.scaled(256, 171), jpeg));
    const auto readAll = [this](const QString &name) {
        QFile file(path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    };
    QByteArray corrupt = jpeg;
    corrupt.replace(corrupt.size() / 2, 2, "\xFF\xD0"); // a marker in the middle of the scan
    QByteArray zeroHeight = PhotoFiles::encodeGradientJpeg({64, 48}, 90);
    const qsizetype frame = zeroHeight.indexOf("\xFF\xC0");
    zeroHeight[frame + 5] = 0;
    zeroHeight[frame + 6] = 0;

    QTest::addColumn<QString>("file");
    QTest::newRow("missing") << path("missing.jpg");
    QTest::newRow("folder named like a photo")
        << (QDir().mkdir(path("album.jpg")) ? path("album.jpg") : QString());
    QTest::newRow("empty") << write("empty.jpg", {});
    QTest::newRow("text") << write("notes.jpg", "These are not the pixels you are looking for.\n");
    QTest::newRow("truncated jpeg") << write("cut.jpg", jpeg.left(jpeg.size() / 2));
    QTest::newRow("corrupt jpeg") << write("corrupt.jpg", corrupt);
    QTest::newRow("zero-height jpeg") << write("zero.jpg", zeroHeight);
    QTest::newRow("truncated png") << write("cut.png", readAll("whole.png").chopped(2000));
    QTest::newRow("truncated tiff") << write("cut.tif", readAll("whole.tif").chopped(900000));
    QTest::newRow("truncated dng") << write("cut.dng", readAll("whole.dng").left(1500000));
}

void TestImageFormats::unreadableFilesGiveNothing() {
    QFETCH(QString, file);
    QVERIFY(!file.isEmpty());
    QVERIFY(!ImageResizer::createPreview(QUrl::fromLocalFile(file)).has_value());
}

void TestImageFormats::cmykJpegReadsLikeQtReadsIt() {
    // Print shops send CMYK; stored the Adobe way, (255, 128, 0, 255) is an orange.
    const QString file =
        write("print.jpg", PhotoFiles::encodeCmykJpeg({2400, 1600}, {255, 128, 0, 255}, 95));
    const QImage preview = previewOf(file);
    QCOMPARE(preview.size(), QSize(2000, 1333));
    const auto ours = PhotoReference::meanColour(preview, preview.rect());
    const QImage qt(file);
    QVERIFY(!qt.isNull());
    const auto theirs = PhotoReference::meanColour(qt, qt.rect());
    const std::array<double, 3> orange{255, 128, 0};
    for (std::size_t c = 0; c < 3; ++c) {
        QVERIFY2(std::abs(ours[c] - orange[c]) < 4, qPrintable(QString::number(ours[c])));
        QVERIFY2(std::abs(ours[c] - theirs[c]) < 3, qPrintable(QString::number(theirs[c])));
    }
}

void TestImageFormats::multiPageTiffGivesTheFirstPage() {
    QImage first(2400, 1600, QImage::Format_RGB888);
    first.fill(QColor(200, 40, 30));
    QImage second(3000, 2000, QImage::Format_RGB888);
    second.fill(QColor(20, 60, 220));
    const QString file = path("pages.tif");
    QVERIFY(PhotoFiles::writeTiff(file, {first, second}, 8));
    const QImage preview = previewOf(file);
    QCOMPARE(preview.size(), QSize(2000, 1333));
    const auto mean = PhotoReference::meanColour(preview, preview.rect());
    QVERIFY(std::abs(mean[0] - 200) < 4 && std::abs(mean[1] - 40) < 4 &&
            std::abs(mean[2] - 30) < 4);
}

void TestImageFormats::sixteenBitFilesKeepTheirPicture_data() {
    QTest::addColumn<QString>("format");
    QTest::newRow("tiff") << "tif";
    QTest::newRow("png") << "png";
}

void TestImageFormats::sixteenBitFilesKeepTheirPicture() {
    // Reading the wrong byte of each sample would leave noise; rounding to 8 bits must not.
    QFETCH(QString, format);
    // Both rows share the picture and its yardstick, the slow parts.
    if (m_deep.isNull()) {
        m_deep = PhotoGenerator({2400, 1600}, 13).image16();
        m_deepReference =
            PhotoReference::lanczos3(m_deep.convertToFormat(QImage::Format_RGB888), {2000, 1333});
    }
    const QImage &deep = m_deep;
    const QImage &reference = m_deepReference;
    const QString file = path("deep." + format);
    QVERIFY(format == "png" ? deep.save(file, "PNG", fastPng)
                            : PhotoFiles::writeTiff(file, {deep}, 16));
    const QImage preview = previewOf(file);
    QCOMPARE(preview.size(), reference.size());
    const double psnr = PhotoReference::psnr(preview, reference);
    qInfo("%s: PSNR %.2f dB", QTest::currentDataTag(), psnr);
    QVERIFY2(psnr >= 36.0, qPrintable(QString::number(psnr)));
}

void TestImageFormats::pngAlphaIsComposedOverBlack() {
    // The preview has no alpha: like drawing into an opaque bitmap, transparency turns black.
    QImage picture(3000, 900, QImage::Format_ARGB32);
    picture.fill(qRgba(220, 30, 30, 255));
    for (int y = 0; y < 900; ++y)
        for (int x = 1000; x < 3000; ++x)
            picture.setPixel(x, y, x < 2000 ? qRgba(40, 60, 240, 128) : qRgba(30, 220, 30, 0));
    const QString file = path("alpha.png");
    QVERIFY(picture.save(file, "PNG", fastPng));
    const QImage preview = previewOf(file);
    QCOMPARE(preview.size(), QSize(2000, 600));
    const std::array<std::array<double, 3>, 3> expected{{{220, 30, 30}, {20, 30, 120}, {0, 0, 0}}};
    for (int part = 0; part < 3; ++part) {
        const auto mean =
            PhotoReference::meanColour(preview, QRect(part * 667 + 100, 100, 400, 400));
        for (int c = 0; c < 3; ++c)
            QVERIFY2(std::abs(mean[std::size_t(c)] - expected[std::size_t(part)][std::size_t(c)]) <
                         5,
                     qPrintable(QStringLiteral("part %1 channel %2: %3")
                                    .arg(part)
                                    .arg(c)
                                    .arg(mean[std::size_t(c)])));
    }
}

void TestImageFormats::exifOrientationKeepsTheStoredGrid() {
    // Orientation 6 asks viewers to turn the picture upright; the preview keeps the stored grid
    // and passes the request on (tst_previeworientation).
    QImage picture(3000, 1500, QImage::Format_RGB888);
    picture.fill(QColor(210, 40, 40));
    for (int y = 0; y < 1500; ++y)
        std::memset(picture.scanLine(y) + 1500 * 3, 40, 1500 * 3);
    const QByteArray jpeg = PhotoFiles::withExifOrientation(PhotoFiles::encodeJpeg(picture, 92), 6);
    const QImage preview = previewOf(write("turned.jpg", jpeg));
    QCOMPARE(preview.size(), QSize(2000, 1000));
    QVERIFY(PhotoReference::meanColour(preview, QRect(100, 100, 400, 400))[0] > 180);
    QVERIFY(PhotoReference::meanColour(preview, QRect(1500, 100, 400, 400))[0] < 60);
}

void TestImageFormats::hundredMegapixelJpeg() {
    const QString file = write("huge.jpg", PhotoFiles::encodeGradientJpeg({12240, 8160}, 90));
    QCOMPARE(previewOf(file).size(), QSize(2000, 1333));
}

void TestImageFormats::pngBeyondQtsDefaultAllocationLimit() {
    // 34 MP decode to 135 MB of 32-bit pixels, over the 128 MB that Qt 6.4's readers refuse by
    // default; a 100 MP photo needs 400 MB.
    QImage picture(5800, 5800, QImage::Format_RGB32);
    picture.fill(QColor(90, 140, 200));
    const QString file = path("big.png");
    QVERIFY(picture.save(file, "PNG", fastPng));
    picture = QImage();
    const QImage preview = previewOf(file);
    QCOMPARE(preview.size(), QSize(2000, 2000));
    const auto mean = PhotoReference::meanColour(preview, preview.rect());
    QVERIFY(std::abs(mean[0] - 90) < 3 && std::abs(mean[1] - 140) < 3 &&
            std::abs(mean[2] - 200) < 3);
}

void TestImageFormats::concurrentPreviewsAreIndependent() {
    // Two previews at once, as the upload pipeline runs them, give what each gives alone.
    const QString jpeg = write("one.jpg", PhotoFiles::encodeJpeg(scene({2400, 1600}, 5), 92));
    const QString tiff = path("two.tif");
    QVERIFY(PhotoFiles::writeTiff(tiff, {scene({1200, 800}, 2)}, 8));
    const auto alone = [](const QString &file) {
        return ImageResizer::createPreview(QUrl::fromLocalFile(file));
    };
    const auto first = alone(jpeg);
    const auto second = alone(tiff);
    QVERIFY(first && second);
    for (int round = 0; round < 3; ++round) {
        auto a = std::async(std::launch::async, alone, jpeg);
        auto b = std::async(std::launch::async, alone, tiff);
        QVERIFY(a.get() == first);
        QVERIFY(b.get() == second);
    }
}

QTEST_GUILESS_MAIN(TestImageFormats)
#include "tst_imageformats.moc"
