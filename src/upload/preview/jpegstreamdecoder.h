// SPDX-License-Identifier: MIT
#pragma once

#include "jpegplanes.h"

#include <cstdint>
#include <optional>
#include <span>

// Decodes a progressive JPEG to YCbCr or grey planes at a DCT scale of M/8 through libjpeg,
// with its coefficients in a JpegCoefficientStore: TurboJPEG would hold every coefficient of
// the picture in memory. The same rules as the baseline decoder: damaged or missing picture
// data fails the decode, junk between segments of a complete file does not.
class ProgressiveJpegDecoder {
public:
    // Coefficients kept in memory; the rest of a larger picture's go to a temporary file.
    static constexpr std::size_t residentCoefficientBytes = 48 * 1024 * 1024;

    // Whether the picture's frame is progressive (SOF2), from the markers before it.
    static bool isProgressive(std::span<const std::uint8_t> jpeg);
    // Planes of the given layout (TJSAMP value) at the scale.
    static std::optional<JpegPlanes> decodePlanes(std::span<const std::uint8_t> jpeg, int eighths,
                                                  QSize scaledSize, int subsampling);
};
