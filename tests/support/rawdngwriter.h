// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QImage>
#include <QString>

// Writes DNG files shaped like a camera's: IFD0 a small RGB thumbnail with the camera's colour
// data, SubIFD 0 the raw data as uncompressed 16-bit RGGB Bayer samples (14-bit range over a
// black level), and, when given, SubIFD 1 a JPEG preview, the way modern cameras embed a
// full-size one. The sensor's picture is an sRGB image, linearised and mosaicked; the colour
// matrix says the sensor sees linear sRGB, so a developed raw looks like the picture.
class RawDngWriter {
public:
    static constexpr int blackLevel = 256;
    static constexpr int whiteLevel = 16383;

    // `orientation` is the TIFF orientation tag of the file (1 is as stored).
    static bool write(const QString &path, const QImage &sensor, const QImage &thumbnail,
                      const QByteArray &previewJpeg = {}, int orientation = 1);
};
