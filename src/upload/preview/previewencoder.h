// SPDX-License-Identifier: MIT
#pragma once

#include "photometadata.h"

#include <QByteArray>
#include <QSize>
#include <cstdint>
#include <optional>
#include <vector>

class JpegPlanes;

// The last step of every preview: the scaled picture brought to sRGB when its photo's colours
// are not, encoded, and tagged with its photo's orientation. A photo in sRGB or untagged goes
// straight to the encoder, so it costs exactly what it did before colours were looked at.
// Planes are converted in place, a band of rows at a time through RGB, so a converted preview
// is encoded from planes like any other and its bands stay in the cache.
class PreviewEncoder {
public:
    static std::optional<QByteArray> fromPlanes(JpegPlanes &planes, const PhotoMetadata &metadata);
    // Packed 8-bit RGB, three bytes a pixel, rows without padding; converted in place.
    static std::optional<QByteArray> fromRgb(std::vector<std::uint8_t> &rgb, QSize size,
                                             const PhotoMetadata &metadata);
};
