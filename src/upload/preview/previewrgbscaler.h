// SPDX-License-Identifier: MIT
#pragma once

#include "photometadata.h"
#include "resampler.h"

#include <QByteArray>
#include <QSize>
#include <array>
#include <cstdint>
#include <optional>
#include <vector>

// The common end of every preview whose decoder hands out RGB rows (PNG, TIFF, developed RAW,
// RGB and CMYK JPEGs): each row is split into its three channels and streamed through one
// Resampler per channel, so only the small target is ever held, then the target is brought to
// sRGB if need be, encoded and tagged.
class PreviewRgbScaler {
public:
    // Scales are source pixels per target pixel, for decodes that cover the photo at a factor
    // their rounded size does not tell; the other constructor derives them from the sizes.
    PreviewRgbScaler(QSize source, QSize target, double scaleX, double scaleY);
    PreviewRgbScaler(QSize source, QSize target);

    QSize sourceSize() const { return m_source; }
    // The next source row: source width pixels of packed 8-bit RGB.
    void pushRow(const std::uint8_t *rgb);
    // No value until every row the target needs has been pushed, or when encoding fails.
    std::optional<QByteArray> encode(const PhotoMetadata &metadata = {}) const;

private:
    QSize m_source;
    QSize m_target;
    std::array<std::vector<std::uint8_t>, 3> m_planes;
    std::array<std::vector<std::uint8_t>, 3> m_channelRows;
    std::vector<Resampler> m_resamplers;
};
