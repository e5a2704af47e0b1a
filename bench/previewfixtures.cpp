// SPDX-License-Identifier: MIT
// preview_fixtures [--memory | --colour] <folder>
// Writes the photographs the preview benchmark runs on: camera-like JPEGs of 24 and 45 MP and
// a portrait, the 24 MP picture as 16-bit TIFF and as PNG, and two 24 MP DNGs, one embedding
// the same full-size JPEG (as modern cameras do) and one with only a thumbnail; and the 24 MP
// scene as a camera set to Adobe RGB writes it: a JPEG with the Adobe RGB profile, and a DNG
// whose full-size JPEG has no profile while the DNG's Exif says Adobe RGB.
// With --colour, 6 MP photographs for looking at previews the way a browser shows them: one
// stored on its side with EXIF orientation 6 (an arrow points up once it is turned), and one
// each with an Adobe RGB, Display P3 and ProPhoto RGB profile.
// With --memory, the photographs whose peak memory bench/run-memory-peaks measures instead: the
// largest of each kind the program must take in its stride.
#include "colourreference.h"
#include "exifwriter.h"
#include "photofiles.h"
#include "photogenerator.h"
#include "rawdngwriter.h"

#include <QCoreApplication>
#include <QDir>
#include <QImageWriter>
#include <QPainter>
#include <QPainterPath>
#include <QStringList>
#include <cstdio>

namespace {

// High quality with the detail of the generated scenes gives files of a camera's size.
constexpr int cameraQuality = 97;

bool report(const QString &path, bool ok) {
    std::printf("%s %s\n", ok ? "wrote" : "FAILED", qPrintable(path));
    return ok;
}

// A raw-only DNG of a sensor's size, drawn a row at a time: no picture of that size is held.
bool writeRawOnlyDng(const QString &path, QSize sensor, std::uint32_t seed) {
    const PhotoGenerator scene(sensor, seed);
    return RawDngWriter::write(
        path, sensor, [&](int y, uchar *rgb) { scene.fillRow8(y, rgb); },
        PhotoGenerator({256, 171}, seed).image8());
}

bool writeMemoryFixtures(const QDir &folder) {
    const auto at = [&](const char *name) { return folder.filePath(QString::fromLatin1(name)); };
    bool ok = true;
    ok &= report(at("jpeg-100mp.jpg"),
                 PhotoFiles::writeFile(
                     at("jpeg-100mp.jpg"),
                     PhotoFiles::encodeJpeg(PhotoGenerator({12240, 8160}, 100).image8(),
                                            cameraQuality)));
    {
        const QImage photo45 = PhotoGenerator({8256, 5504}, 45).image8();
        ok &= report(at("jpeg-progressive-45mp.jpg"),
                     PhotoFiles::writeFile(at("jpeg-progressive-45mp.jpg"),
                                           PhotoFiles::encodeJpeg(photo45, cameraQuality,
                                                                  PhotoFiles::Chroma::Subsampled420,
                                                                  true)));
        ok &= report(at("jpeg-45mp.jpg"),
                     PhotoFiles::writeFile(at("jpeg-45mp.jpg"),
                                           PhotoFiles::encodeJpeg(photo45, cameraQuality)));
        QImageWriter png(at("png-45mp.png"), "png");
        ok &= report(at("png-45mp.png"), png.write(photo45));
        ok &= report(at("tiff8-45mp.tif"), PhotoFiles::writeTiff(at("tiff8-45mp.tif"), {photo45}, 8));
    }
    const PhotoGenerator scene24({6000, 4000}, 24);
    const QImage photo24 = scene24.image8();
    ok &= report(at("dng-bayer-24mp.dng"),
                 RawDngWriter::write(at("dng-bayer-24mp.dng"), photo24, photo24.scaled(256, 171)));
    ok &= report(at("dng-jpeg-24mp.dng"),
                 RawDngWriter::write(at("dng-jpeg-24mp.dng"), photo24, photo24.scaled(256, 171),
                                     PhotoFiles::encodeJpeg(photo24, cameraQuality)));
    // The sensors of 45-megapixel (8256 x 5504) and 61-megapixel (9504 x 6336) cameras.
    ok &= report(at("dng-bayer-45mp.dng"),
                 writeRawOnlyDng(at("dng-bayer-45mp.dng"), {8256, 5504}, 45));
    ok &= report(at("dng-bayer-61mp.dng"),
                 writeRawOnlyDng(at("dng-bayer-61mp.dng"), {9504, 6336}, 61));
    return ok;
}

bool writeColourFixtures(const QDir &folder) {
    const auto at = [&](const char *name) { return folder.filePath(QString::fromLatin1(name)); };
    bool ok = true;
    // Upright, a portrait with an arrow pointing up; stored turned a quarter to the left, as a
    // camera held upright stores it, with the orientation that turns it back.
    QImage upright = PhotoGenerator({2000, 3000}, 7).image8();
    {
        QPainter painter(&upright);
        painter.setRenderHint(QPainter::Antialiasing);
        QPainterPath arrow;
        arrow.moveTo(1000, 300);
        arrow.lineTo(1500, 900);
        arrow.lineTo(1200, 900);
        arrow.lineTo(1200, 1800);
        arrow.lineTo(800, 1800);
        arrow.lineTo(800, 900);
        arrow.lineTo(500, 900);
        arrow.closeSubpath();
        painter.fillPath(arrow, QColor(250, 250, 250));
        painter.setPen(QPen(QColor(20, 20, 20), 24));
        painter.drawPath(arrow);
    }
    const QImage stored = upright.transformed(QTransform().rotate(-90));
    ok &= report(at("jpeg-turned-6.jpg"),
                 PhotoFiles::writeFile(at("jpeg-turned-6.jpg"),
                                       ExifWriter::withExif(PhotoFiles::encodeJpeg(stored, 95),
                                                            {.orientation = 6})));
    const QImage scene = PhotoGenerator({3000, 2000}, 8).image8();
    const std::pair<const char *, QByteArray> spaces[] = {
        {"jpeg-adobe-6mp.jpg", ColourReference::adobeRgbProfile()},
        {"jpeg-displayp3-6mp.jpg", ColourReference::displayP3Profile()},
        {"jpeg-prophoto-6mp.jpg", ColourReference::proPhotoProfile()},
    };
    for (const auto &[name, profile] : spaces) {
        const QImage values =
            ColourReference::convert(scene, ColourReference::srgbProfile(), profile);
        ok &= report(at(name), PhotoFiles::writeFile(
                                   at(name), ExifWriter::withIccProfile(
                                                 PhotoFiles::encodeJpeg(values, 95), profile)));
    }
    ok &= report(at("jpeg-srgb-6mp.jpg"),
                 PhotoFiles::writeFile(at("jpeg-srgb-6mp.jpg"), PhotoFiles::encodeJpeg(scene, 95)));
    return ok;
}

} // namespace

int main(int argc, char **argv) {
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    const bool memory = args.removeAll(QStringLiteral("--memory")) > 0;
    const bool colour = args.removeAll(QStringLiteral("--colour")) > 0;
    if (args.size() != 1) {
        std::fprintf(stderr, "usage: preview_fixtures [--memory | --colour] <folder>\n");
        return 2;
    }
    const QDir folder(args.at(0));
    if (memory)
        return writeMemoryFixtures(folder) ? 0 : 1;
    if (colour)
        return writeColourFixtures(folder) ? 0 : 1;
    const auto at = [&](const char *name) { return folder.filePath(QString::fromLatin1(name)); };
    bool ok = true;

    const PhotoGenerator scene24({6000, 4000}, 24);
    const QImage photo24 = scene24.image8();
    const QByteArray jpeg24 = PhotoFiles::encodeJpeg(photo24, cameraQuality);
    ok &= report(at("jpeg-24mp.jpg"), PhotoFiles::writeFile(at("jpeg-24mp.jpg"), jpeg24));
    ok &= report(
        at("jpeg-45mp.jpg"),
        PhotoFiles::writeFile(
            at("jpeg-45mp.jpg"),
            PhotoFiles::encodeJpeg(PhotoGenerator({8256, 5504}, 45).image8(), cameraQuality)));
    ok &= report(
        at("jpeg-portrait-24mp.jpg"),
        PhotoFiles::writeFile(
            at("jpeg-portrait-24mp.jpg"),
            PhotoFiles::encodeJpeg(PhotoGenerator({4000, 6000}, 46).image8(), cameraQuality)));
    ok &= report(at("tiff16-24mp.tif"),
                 PhotoFiles::writeTiff(at("tiff16-24mp.tif"), {scene24.image16()}, 16));
    QImageWriter png(at("png-24mp.png"), "png");
    ok &= report(at("png-24mp.png"), png.write(photo24));
    ok &= report(at("dng-jpeg-24mp.dng"), RawDngWriter::write(at("dng-jpeg-24mp.dng"), photo24,
                                                              photo24.scaled(256, 171), jpeg24));
    ok &= report(at("dng-bayer-24mp.dng"),
                 RawDngWriter::write(at("dng-bayer-24mp.dng"), photo24, photo24.scaled(256, 171)));

    const QByteArray adobe = ColourReference::adobeRgbProfile();
    const QImage adobe24 = ColourReference::convert(photo24, ColourReference::srgbProfile(), adobe);
    const QByteArray adobeJpeg24 = PhotoFiles::encodeJpeg(adobe24, cameraQuality);
    ok &= report(at("jpeg-adobe-24mp.jpg"),
                 PhotoFiles::writeFile(at("jpeg-adobe-24mp.jpg"),
                                       ExifWriter::withIccProfile(adobeJpeg24, adobe)));
    ok &= report(at("dng-adobe-jpeg-24mp.dng"),
                 RawDngWriter::write(at("dng-adobe-jpeg-24mp.dng"), photo24,
                                     photo24.scaled(256, 171), adobeJpeg24, 1, {.adobeRgb = true}));
    return ok ? 0 : 1;
}
