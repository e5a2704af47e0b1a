// SPDX-License-Identifier: MIT
#include "sessionphotos.h"

#include "photofiles.h"
#include "photogenerator.h"
#include "rawdngwriter.h"

#include <QFile>
#include <QFileInfo>
#include <QImage>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <random>
#include <tiffio.h>
#include <vector>

namespace {

void printWritten(const QString &path, QSize size)
{
    std::printf("wrote %s: %dx%d, %.1f MB\n", qPrintable(path), size.width(), size.height(),
                double(QFileInfo(path).size()) / 1e6);
}

} // namespace

int SessionPhotos::makeJpeg(const QString &path, QSize size, int quality, int detail)
{
    QImage image = PhotoGenerator(size, 2026).image8();
    if (detail > 0) {
        std::mt19937 random(7);
        std::uniform_int_distribution<int> texture(-detail, detail);
        std::vector<int> row(size_t(size.width() / 3 + 1));
        for (int y = 0; y < size.height(); ++y) {
            if (y % 3 == 0)
                for (int &value : row)
                    value = texture(random);
            uchar *pixels = image.scanLine(y);
            for (int x = 0; x < size.width(); ++x)
                for (int channel = 0; channel < 3; ++channel) {
                    uchar &value = pixels[3 * x + channel];
                    value = uchar(std::clamp(int(value) + row[size_t(x / 3)], 0, 255));
                }
        }
    }
    if (!PhotoFiles::writeFile(path, PhotoFiles::encodeJpeg(image, quality)))
        return 1;
    printWritten(path, size);
    return 0;
}

int SessionPhotos::makeDng(const QString &path, const QString &jpegPath, int sensorWidth)
{
    QFile source(jpegPath);
    if (!source.open(QIODevice::ReadOnly))
        return 1;
    const QByteArray jpeg = source.readAll();
    QImage picture = PhotoFiles::decodeJpeg(jpeg);
    if (picture.isNull())
        return 1;
    if (sensorWidth > 0 && sensorWidth != picture.width())
        picture = picture.scaledToWidth(sensorWidth, Qt::SmoothTransformation);
    if (!RawDngWriter::write(path, picture, picture.scaled(256, 171), jpeg))
        return 1;
    printWritten(path, picture.size());
    return 0;
}

int SessionPhotos::makeTiff(const QString &path, QSize size, bool deflate)
{
    TIFF *tiff = TIFFOpen(QFile::encodeName(path).constData(), "w");
    if (tiff == nullptr)
        return 1;
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, std::uint32_t(size.width()));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, std::uint32_t(size.height()));
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 16);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, deflate ? COMPRESSION_ADOBE_DEFLATE : COMPRESSION_NONE);
    if (deflate)
        TIFFSetField(tiff, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 16);
    const PhotoGenerator scene(size, 2026);
    std::vector<uchar> rgb(std::size_t(size.width()) * 3);
    std::vector<std::uint16_t> wide(rgb.size());
    bool ok = true;
    for (int y = 0; ok && y < size.height(); ++y) {
        // The 8-bit scene widened as an editor exports it: the same pixels in either file.
        scene.fillRow8(y, rgb.data());
        std::transform(rgb.begin(), rgb.end(), wide.begin(),
                       [](uchar v) { return std::uint16_t(v * 257); });
        ok = TIFFWriteScanline(tiff, wide.data(), std::uint32_t(y), 0) >= 0;
    }
    ok = ok && TIFFWriteDirectory(tiff);
    TIFFClose(tiff);
    if (!ok)
        return 1;
    printWritten(path, size);
    return 0;
}

bool SessionPhotos::copyAsCamera(const QString &from, const QString &to)
{
    QFile source(from);
    QFile target(to);
    if (!source.open(QIODevice::ReadOnly) || !target.open(QIODevice::WriteOnly))
        return false;
    const qint64 piece = source.size() / 4 + 1;
    QByteArray buffer(1024 * 1024, Qt::Uninitialized);
    for (qint64 at = 0; at < source.size(); at += piece) {
        for (qint64 left = std::min(piece, source.size() - at); left > 0;) {
            const qint64 got = source.read(buffer.data(), std::min<qint64>(left, buffer.size()));
            if (got <= 0 || target.write(buffer.constData(), got) != got)
                return false;
            left -= got;
        }
        // Each piece reaches the file system on its own, as the camera's writes do.
        target.flush();
    }
    return true;
}
