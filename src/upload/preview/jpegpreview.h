// SPDX-License-Identifier: MIT
#pragma once

#include "jpegdecoder.h"
#include "photometadata.h"

#include <QByteArray>
#include <QSize>
#include <optional>

class JpegPlanes;
class JpegSource;

// The fast road for JPEG: decode at the smallest DCT scale M/8 that is still at least as wide
// as the target, straight to YCbCr planes, then one Lanczos-3 pass per plane to the exact
// target size, then encode from the planes. Colour is converted only for a photo that is not
// sRGB, on the scaled picture, and when the scaled decode already has the target's size
// nothing is resampled at all.
class JpegPreview {
public:
    // The source must outlive this object: a file, read as it is decoded, or bytes in memory.
    explicit JpegPreview(const JpegSource &jpeg);

    bool isValid() const { return m_decoder.isValid(); }
    QSize size() const { return m_decoder.size(); }
    // What the JPEG's own segments say of its orientation and colours.
    PhotoMetadata metadata() const;
    // The whole JPEG picture drawn into a target of the given size, in the colours and with the
    // orientation the metadata gives. Usually the target follows from size() and the metadata
    // from metadata(); a RAW file's embedded JPEG is drawn at the size its raw data gives, and
    // the RAW has its say on the metadata.
    std::optional<QByteArray> render(QSize target, const PhotoMetadata &metadata) const;

    // The smallest M in 1..8 whose M/8 decode covers the target in both directions; 8 when
    // even the full size does not (nothing is gained by decoding larger).
    static int scaleEighths(QSize full, QSize target);

private:
    std::optional<QByteArray> renderPlanes(QSize target, int eighths,
                                           const PhotoMetadata &metadata) const;
    std::optional<QByteArray> renderRgb(QSize target, int eighths,
                                        const PhotoMetadata &metadata) const;

    const JpegSource &m_jpeg;
    JpegDecoder m_decoder;
};
