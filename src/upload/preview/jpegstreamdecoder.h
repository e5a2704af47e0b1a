// SPDX-License-Identifier: MIT
#pragma once

#include "jpegplanes.h"

#include <QSize>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

class JpegSource;

// Decodes a JPEG through libjpeg, reading its source as the decoder goes: a file is never held
// whole. Planes come at a DCT scale of M/8, so a smaller inverse DCT runs per block instead of
// decoding every pixel and throwing most away. A progressive picture's coefficients, and those
// of any picture in several scans, go to a JpegCoefficientStore, which bounds their memory.
// Damaged or missing picture data fails the decode; junk between the segments of a complete
// file does not.
class JpegStreamDecoder {
public:
    // Coefficients kept in memory; the rest of a larger picture's go to a temporary file.
    static constexpr std::size_t residentCoefficientBytes = 48 * 1024 * 1024;

    struct Header {
        QSize size;
        int subsampling = -1; // a TJSAMP value
        int colorspace = -1;  // a TJCS value
    };
    // What the segments before the first scan say; no value for a header with any warning, a
    // layout of samples no plane set has, or a colour space the codec does not know.
    static std::optional<Header> readHeader(const JpegSource &jpeg);
    // Called with each row of each plane in turn, from the top, as the decode gives it: its
    // plane's width of samples, valid during the call only.
    using RowSink = std::function<void(int plane, const std::uint8_t *row)>;
    // The planes of the given layout (TJSAMP value) at the scale, a row at a time, none kept:
    // for a reader that scales them as they come. False when the decode fails, which may be
    // after some rows.
    static bool decodeRows(const JpegSource &jpeg, int eighths, QSize scaledSize,
                           int subsampling, const RowSink &sink);
    // Planes of the given layout (TJSAMP value) at the scale, padding included.
    static std::optional<JpegPlanes> decodePlanes(const JpegSource &jpeg, int eighths,
                                                  QSize scaledSize, int subsampling);
    // Packed 8-bit RGB, or CMYK as stored, rows without padding.
    static std::optional<std::vector<std::uint8_t>> decodePixels(const JpegSource &jpeg,
                                                                 int eighths, QSize scaledSize,
                                                                 bool cmyk);
};
