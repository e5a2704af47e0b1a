// SPDX-License-Identifier: MIT
#pragma once

#include "exifwriter.h"

#include <QByteArray>
#include <QImage>
#include <QString>
#include <array>
#include <cstdint>
#include <functional>

// Writes DNG files shaped like a camera's: IFD0 a small RGB thumbnail with the camera's colour
// data, SubIFD 0 the raw data as uncompressed 16-bit Bayer samples (RGGB unless told; 14-bit
// range over a black level), and, when given, SubIFD 1 a JPEG preview, the way modern cameras embed
// a full-size one. The sensor's picture is an sRGB image, linearised and mosaicked; the colour
// matrix says the sensor sees linear sRGB, so a developed raw looks like the picture.
class RawDngWriter {
public:
    static constexpr int blackLevel = 256;
    static constexpr int whiteLevel = 16383;

    // `orientation` is the TIFF orientation tag of the file (1 is as stored).
    static bool write(const QString &path, const QImage &sensor, const QImage &thumbnail,
                      const QByteArray &previewJpeg = {}, int orientation = 1);
    // The same with an Exif directory, as cameras write one: its colour-space marks say how the
    // embedded JPEG's values are meant.
    static bool write(const QString &path, const QImage &sensor, const QImage &thumbnail,
                      const QByteArray &previewJpeg, int orientation,
                      const ExifWriter::Fields &exif);
    // What differs from one camera to the next: the light it shot in (the DNG's as-shot
    // neutral), where each colour sits in the 2 x 2 cell (0 red, 1 green, 2 blue, row by row)
    // and each sample's black level.
    struct Camera {
        std::array<float, 3> asShotNeutral{1.0f, 1.0f, 1.0f};
        std::array<std::uint8_t, 4> pattern{0, 1, 1, 2};
        std::array<int, 4> black{blackLevel, blackLevel, blackLevel, blackLevel};
    };
    static bool write(const QString &path, const QImage &sensor, const QImage &thumbnail,
                      const Camera &camera);
    // The sensor's picture given a row at a time (packed 8-bit RGB, width pixels), so a file of
    // any size is written without holding its picture.
    using SensorRow = std::function<void(int y, uchar *rgb)>;
    static bool write(const QString &path, QSize sensor, const SensorRow &row,
                      const QImage &thumbnail);
};
