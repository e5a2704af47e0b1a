// SPDX-License-Identifier: MIT
// fuzz_seedwriter <corpus folder>
// Writes the image fuzzers' seed corpora with the tests' own photo writers: small pictures in
// every layout each decoder reads (chroma subsamplings, grey, CMYK, progressive, alpha,
// palettes, 16 bits, several pages, raw with and without a full-size JPEG), and a few wider
// than a preview so that the scaling roads are taken; and the metadata a preview reads: Exif
// blocks with orientation, colour-space marks and private fields, and ICC profiles in JPEG
// segments, a TIFF tag and a PNG chunk. Run it again after changing a writer.
#include "colourreference.h"
#include "exifwriter.h"
#include "photofiles.h"
#include "photogenerator.h"
#include "rawdngwriter.h"

#include <QColorSpace>
#include <QCoreApplication>
#include <QDir>
#include <QImage>
#include <QImageWriter>
#include <cstdio>

namespace {

bool written(const QString &path, bool ok) {
    std::printf("%s %s\n", ok ? "wrote" : "FAILED", qPrintable(path));
    return ok;
}

} // namespace

int main(int argc, char **argv) {
    QCoreApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzz_seedwriter <corpus folder>\n");
        return 2;
    }
    const QDir root(QString::fromLocal8Bit(argv[1]));
    const auto at = [&](const char *format, const char *name) {
        root.mkpath(QString::fromLatin1(format));
        return root.filePath(QStringLiteral("%1/%2").arg(QLatin1String(format), QLatin1String(name)));
    };
    const QImage small = PhotoGenerator({48, 32}, 7).image8();
    const QImage wide = PhotoGenerator::gradient({2100, 6});
    bool ok = true;

    using Chroma = PhotoFiles::Chroma;
    const auto jpeg = [&](const char *name, const QByteArray &bytes) {
        ok &= written(at("preview_jpeg", name), !bytes.isEmpty() &&
                                                  PhotoFiles::writeFile(at("preview_jpeg", name), bytes));
    };
    jpeg("420.jpg", PhotoFiles::encodeJpeg(small, 85));
    jpeg("422.jpg", PhotoFiles::encodeJpeg(small, 85, Chroma::Subsampled422));
    jpeg("444.jpg", PhotoFiles::encodeJpeg(small, 85, Chroma::Full444));
    jpeg("grey.jpg", PhotoFiles::encodeJpeg(small, 85, Chroma::Grey));
    jpeg("cmyk.jpg", PhotoFiles::encodeCmykJpeg({24, 16}, {10, 200, 30, 250}, 85));
    jpeg("progressive.jpg", PhotoFiles::encodeJpeg(small, 85, Chroma::Subsampled420, true));
    jpeg("wide.jpg", PhotoFiles::encodeJpeg(wide, 60));
    jpeg("exif.jpg", PhotoFiles::withExifOrientation(PhotoFiles::encodeJpeg(small, 50), 6));
    const ExifWriter::Fields camera{.orientation = 8,
                                    .adobeRgb = true,
                                    .gpsPosition = true,
                                    .artist = "Artist",
                                    .bodySerialNumber = "0042"};
    jpeg("exif-camera.jpg", ExifWriter::withExif(PhotoFiles::encodeJpeg(small, 50), camera));
    const QByteArray adobe = ColourReference::adobeRgbProfile();
    jpeg("icc-chunks.jpg",
         ExifWriter::withIccProfile(PhotoFiles::encodeJpeg(small, 50), adobe, 200));
    jpeg("icc-prophoto.jpg", ExifWriter::withIccProfile(PhotoFiles::encodeJpeg(small, 50),
                                                        ColourReference::proPhotoProfile()));

    const auto png = [&](const char *name, const QImage &image) {
        QImageWriter writer(at("preview_png", name), "png");
        ok &= written(at("preview_png", name), writer.write(image));
    };
    png("rgb.png", small);
    QImage alpha = small.convertToFormat(QImage::Format_ARGB32);
    alpha.setPixel(3, 3, qRgba(200, 100, 50, 60));
    png("alpha.png", alpha);
    png("grey.png", small.convertToFormat(QImage::Format_Grayscale8));
    png("grey16.png", small.convertToFormat(QImage::Format_Grayscale16));
    png("palette.png", small.convertToFormat(QImage::Format_Indexed8));
    png("rgba16.png", small.convertToFormat(QImage::Format_RGBA64));
    png("mono.png", small.convertToFormat(QImage::Format_Mono));
    png("wide.png", wide);
    QImage tagged = small;
    tagged.setColorSpace(QColorSpace::fromIccProfile(ColourReference::displayP3Profile()));
    png("icc-p3.png", tagged);

    ok &= written(at("preview_tiff", "rgb8.tif"),
                  PhotoFiles::writeTiff(at("preview_tiff", "rgb8.tif"), {small}, 8));
    ok &= written(at("preview_tiff", "rgb16-two-pages.tif"),
                  PhotoFiles::writeTiff(at("preview_tiff", "rgb16-two-pages.tif"),
                                        {PhotoGenerator({24, 16}, 3).image16(), small}, 16));
    ok &= written(at("preview_tiff", "icc-adobe16.tif"),
                  PhotoFiles::writeTiff(at("preview_tiff", "icc-adobe16.tif"),
                                        {PhotoGenerator({24, 16}, 4).image16()}, 16, 6, adobe));
    ok &= written(at("preview_tiff", "wide.tif"),
                  PhotoFiles::writeTiff(at("preview_tiff", "wide.tif"), {wide}, 8));

    const QImage sensor = PhotoGenerator({64, 48}, 9).image8();
    const QImage thumbnail = sensor.scaled(16, 12);
    ok &= written(at("preview_raw", "bayer.dng"),
                  RawDngWriter::write(at("preview_raw", "bayer.dng"), sensor, thumbnail));
    ok &= written(at("preview_raw", "embedded-jpeg.dng"),
                  RawDngWriter::write(at("preview_raw", "embedded-jpeg.dng"), sensor, thumbnail,
                                      PhotoFiles::encodeJpeg(sensor, 80)));
    ok &= written(at("preview_raw", "adobe-exif.dng"),
                  RawDngWriter::write(at("preview_raw", "adobe-exif.dng"), sensor, thumbnail,
                                      PhotoFiles::encodeJpeg(sensor, 80), 6, camera));
    return ok ? 0 : 1;
}
