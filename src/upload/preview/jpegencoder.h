// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <cstdint>
#include <optional>

class JpegPlanes;

// Writes a preview: a complete baseline JPEG file, YCbCr with 4:2:0 chroma unless the planes
// say otherwise, at ImageResizer's quality.
class JpegEncoder {
public:
    static std::optional<QByteArray> fromPlanes(const JpegPlanes &planes);
    // Packed 8-bit RGB, three bytes a pixel, rows without padding.
    static std::optional<QByteArray> fromRgb(const std::uint8_t *rgb, int width, int height);
};
