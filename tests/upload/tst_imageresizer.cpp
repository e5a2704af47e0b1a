// SPDX-License-Identifier: MIT
// Previews of JPEG photos: the size table, the decode scale, and how close the scaled picture
// comes to an exact Lanczos resampling.
#include "imageresizer.h"
#include "jpegpreview.h"
#include "photofiles.h"
#include "photogenerator.h"
#include "photoreference.h"
#include "previewfixture.h"
#include "resampler.h"

#include <QTest>
#include <QUrl>
#include <cmath>

namespace {

QImage resampled(const QImage &grey, QSize target, ResampleKernels kernels) {
    QImage out(target, QImage::Format_Grayscale8);
    Resampler resampler(grey.size(), target, double(grey.width()) / target.width(),
                        double(grey.height()) / target.height(), out.bits(), out.bytesPerLine(),
                        kernels);
    for (int y = 0; y < grey.height(); ++y)
        resampler.pushRow(grey.constScanLine(y));
    return resampler.isComplete() ? out : QImage();
}

} // namespace

class TestImageResizer : public PreviewFixture {
    Q_OBJECT

private slots:
    void previewSizes_data();
    void previewSizes();
    void jpegScaleIsTheSmallestCoveringTheTarget_data();
    void jpegScaleIsTheSmallestCoveringTheTarget();
    void photographIsCloseToExactLanczos();
    void chromaLayoutsKeepTheirColours_data();
    void chromaLayoutsKeepTheirColours();
    void resamplerMatchesExactLanczos_data();
    void resamplerMatchesExactLanczos();
    void vectorKernelsMatchPortableKernels();
};

void TestImageResizer::previewSizes_data() {
    QTest::addColumn<QString>("format");
    QTest::addColumn<QSize>("source");
    QTest::addColumn<QSize>("expected");
    QTest::newRow("just over 3000 wide: truncated below 2000")
        << "jpeg" << QSize(3001, 2000) << QSize(1999, 1332);
    QTest::newRow("24 MP landscape") << "jpeg" << QSize(6000, 4000) << QSize(2000, 1333);
    QTest::newRow("12 MP phone") << "jpeg" << QSize(4032, 3024) << QSize(2000, 1500);
    QTest::newRow("portrait: height not limited")
        << "jpeg" << QSize(4000, 6000) << QSize(2000, 3000);
    QTest::newRow("small: re-encoded at its own size")
        << "jpeg" << QSize(1500, 1000) << QSize(1500, 1000);
    QTest::newRow("narrow and tall: kept") << "jpeg" << QSize(1999, 5000) << QSize(1999, 5000);
    QTest::newRow("png just over 3000 wide") << "png" << QSize(3001, 2000) << QSize(1999, 1332);
    QTest::newRow("tiff narrow and tall") << "tiff" << QSize(1999, 5000) << QSize(1999, 5000);
}

void TestImageResizer::previewSizes() {
    QFETCH(QString, format);
    QFETCH(QSize, source);
    QFETCH(QSize, expected);
    const QString file = path(QStringLiteral("size.%1").arg(format));
    if (format == "jpeg") {
        QVERIFY(PhotoFiles::writeFile(file, PhotoFiles::encodeGradientJpeg(source, 90)));
    } else {
        const QImage picture = PhotoGenerator::gradient(source);
        QVERIFY(format == "png" ? picture.save(file, "PNG", fastPng)
                                : PhotoFiles::writeTiff(file, {picture}, 8));
    }
    const std::optional<QByteArray> preview =
        ImageResizer::createPreview(QUrl::fromLocalFile(file));
    QVERIFY(preview.has_value());
    QVERIFY(PhotoFiles::isBaselineColourJpeg(*preview));
    QCOMPARE(PhotoFiles::decodeJpeg(*preview).size(), expected);
}

void TestImageResizer::jpegScaleIsTheSmallestCoveringTheTarget_data() {
    QTest::addColumn<QSize>("full");
    QTest::addColumn<QSize>("target");
    QTest::addColumn<int>("eighths");
    QTest::newRow("24 MP: 3/8 gives 2250") << QSize(6000, 4000) << QSize(2000, 1333) << 3;
    QTest::newRow("exactly half") << QSize(4000, 3000) << QSize(2000, 1500) << 4;
    QTest::newRow("phone: 4/8 gives 2016") << QSize(4032, 3024) << QSize(2000, 1500) << 4;
    QTest::newRow("100 MP: 2/8 gives 3060") << QSize(12240, 8160) << QSize(2000, 1333) << 2;
    QTest::newRow("very wide: 1/8 suffices") << QSize(16001, 9000) << QSize(1999, 1124) << 1;
    QTest::newRow("3001 wide: 6/8 gives 2251") << QSize(3001, 2000) << QSize(1999, 1332) << 6;
    QTest::newRow("no scaling for a small picture") << QSize(1500, 1000) << QSize(1500, 1000) << 8;
}

void TestImageResizer::jpegScaleIsTheSmallestCoveringTheTarget() {
    QFETCH(QSize, full);
    QFETCH(QSize, target);
    QFETCH(int, eighths);
    QCOMPARE(JpegPreview::scaleEighths(full, target), eighths);
}

void TestImageResizer::photographIsCloseToExactLanczos() {
    // A 24 MP camera-like JPEG; the yardstick is its full-size decode scaled with exact Lanczos.
    const QByteArray jpeg = PhotoFiles::encodeJpeg(PhotoGenerator({6000, 4000}, 7).image8(), 95);
    const QImage preview = previewOf(write("photo24.jpg", jpeg));
    QCOMPARE(preview.size(), QSize(2000, 1333));
    const QImage reference = PhotoReference::lanczos3(PhotoFiles::decodeJpeg(jpeg), preview.size());
    const double psnr = PhotoReference::psnr(preview, reference);
    qInfo("PSNR of the 24 MP preview against exact Lanczos: %.2f dB", psnr);
    QVERIFY2(psnr >= 39.0, qPrintable(QString::number(psnr)));
}

void TestImageResizer::chromaLayoutsKeepTheirColours_data() {
    QTest::addColumn<int>("chroma");
    QTest::newRow("4:2:0") << int(PhotoFiles::Chroma::Subsampled420);
    QTest::newRow("4:2:2") << int(PhotoFiles::Chroma::Subsampled422);
    QTest::newRow("4:4:4") << int(PhotoFiles::Chroma::Full444);
    QTest::newRow("grey") << int(PhotoFiles::Chroma::Grey);
}

void TestImageResizer::chromaLayoutsKeepTheirColours() {
    // Misplaced or misscaled chroma planes show as colour fringes along every edge.
    QFETCH(int, chroma);
    const QByteArray jpeg =
        PhotoFiles::encodeJpeg(scene({2400, 1600}, 5), 95, PhotoFiles::Chroma(chroma));
    const QImage preview = previewOf(write("chroma.jpg", jpeg));
    QCOMPARE(preview.size(), QSize(2000, 1333));
    const QImage reference = PhotoReference::lanczos3(PhotoFiles::decodeJpeg(jpeg), preview.size());
    const double psnr = PhotoReference::psnr(preview, reference);
    qInfo("%s: PSNR %.2f dB", QTest::currentDataTag(), psnr);
    QVERIFY2(psnr >= 36.0, qPrintable(QString::number(psnr)));
}

void TestImageResizer::resamplerMatchesExactLanczos_data() {
    QTest::addColumn<QSize>("source");
    QTest::addColumn<QSize>("target");
    QTest::newRow("as after a 3/8 decode") << QSize(1125, 750) << QSize(1000, 667);
    QTest::newRow("by three") << QSize(999, 700) << QSize(333, 233);
    QTest::newRow("by six, as for a 100 MP PNG") << QSize(1224, 816) << QSize(200, 133);
    QTest::newRow("enlarging") << QSize(300, 200) << QSize(1000, 667);
    QTest::newRow("narrower than a vector of taps") << QSize(7, 5) << QSize(3, 2);
    QTest::newRow("same size") << QSize(101, 77) << QSize(101, 77);
}

void TestImageResizer::resamplerMatchesExactLanczos() {
    QFETCH(QSize, source);
    QFETCH(QSize, target);
    const QImage grey = scene(source, 9).convertToFormat(QImage::Format_Grayscale8);
    const QImage ours = resampled(grey, target, ResampleKernels::best());
    const QImage exact = PhotoReference::lanczos3(grey, target);
    QVERIFY(!ours.isNull());
    int worst = 0;
    for (int y = 0; y < target.height(); ++y)
        for (int x = 0; x < target.width(); ++x)
            worst = std::max(worst, std::abs(ours.constScanLine(y)[x] - exact.constScanLine(y)[x]));
    // Fixed-point weights and one rounding may move a sample across a rounding boundary, no more.
    QVERIFY2(worst <= 1, qPrintable(QString::number(worst)));
}

void TestImageResizer::vectorKernelsMatchPortableKernels() {
    if (ResampleKernels::best().horizontal == ResampleKernels::portable().horizontal)
        QSKIP("this processor runs the portable kernels only");
    const QImage grey = scene({1237, 613}, 4).convertToFormat(QImage::Format_Grayscale8);
    // Windows of 8, 16 and 24 taps, shrinking and enlarging, widths that leave a remainder.
    for (const QSize target : {QSize(1180, 585), QSize(1001, 500), QSize(618, 306), QSize(413, 205),
                               QSize(1237, 613), QSize(2011, 997)}) {
        const QImage vector = resampled(grey, target, ResampleKernels::best());
        const QImage portable = resampled(grey, target, ResampleKernels::portable());
        QVERIFY(!vector.isNull());
        QCOMPARE(vector, portable);
    }
}

QTEST_GUILESS_MAIN(TestImageResizer)
#include "tst_imageresizer.moc"
