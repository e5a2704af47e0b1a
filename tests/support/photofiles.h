// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QImage>
#include <QList>
#include <QSize>
#include <QString>
#include <array>

// Writes and reads the photo files the preview tests and benchmarks use, with the codecs a
// camera or an editor would use: TurboJPEG, libtiff, Qt's PNG writer.
class PhotoFiles {
public:
    enum class Chroma { Subsampled420, Subsampled422, Full444, Grey };

    // A baseline (or progressive) JPEG of an RGB888 image.
    static QByteArray encodeJpeg(const QImage &image, int quality,
                                 Chroma chroma = Chroma::Subsampled420, bool progressive = false);
    // A YCCK JPEG of a flat CMYK colour, values as Adobe stores them (255 means no ink).
    static QByteArray encodeCmykJpeg(QSize size, std::array<quint8, 4> cmyk, int quality);
    // A JPEG of a smooth gradient, built from planes so that even 100 megapixels need no RGB
    // copy in memory.
    static QByteArray encodeGradientJpeg(QSize size, int quality);
    // The same JPEG with an Exif block that records the given orientation (1..8) and, when
    // given, carries a thumbnail JPEG as cameras do.
    static QByteArray withExifOrientation(const QByteArray &jpeg, int orientation,
                                          const QByteArray &thumbnail = {});
    // The same PNG with an eXIf chunk that records the given orientation.
    static QByteArray withPngExifOrientation(const QByteArray &png, int orientation);
    // RGB888 (or RGBX64 for 16 bits) pages, one directory each, uncompressed strips, each with
    // the given orientation tag (1 is as stored).
    static bool writeTiff(const QString &path, const QList<QImage> &pages, int bitsPerSample,
                          int orientation = 1, const QByteArray &iccProfile = {});
    // One 8-bit RGB page in 256 x 256 tiles, the layout only libtiff's generic reader takes.
    static bool writeTiledTiff(const QString &path, const QImage &page, int orientation = 1);
    static bool writeFile(const QString &path, const QByteArray &bytes);

    // A full-size decode to RGB888, or a null image.
    static QImage decodeJpeg(const QByteArray &jpeg);
    // Whether the bytes are one complete baseline JPEG (SOF0) with three 8-bit components.
    static bool isBaselineColourJpeg(const QByteArray &jpeg);
};
