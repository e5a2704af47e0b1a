// SPDX-License-Identifier: MIT
#pragma once

#include "jpegplanes.h"
#include "jpegstreamdecoder.h"

#include <QSize>
#include <cstdint>
#include <optional>
#include <vector>

class JpegSource;

// Decodes one JPEG, at a DCT-domain scale of M/8 when asked for a smaller size: libjpeg-turbo
// then runs a smaller inverse DCT per block instead of decoding every pixel and throwing most
// away. Reads its source as it decodes (JpegStreamDecoder); the source must outlive the
// decoder. Any damage to the picture data fails the decode.
class JpegDecoder {
public:
    explicit JpegDecoder(const JpegSource &jpeg);

    bool isValid() const { return m_size.isValid(); }
    QSize size() const { return m_size; }
    // True for YCbCr and grey pictures with a subsampling the codec can hand out as planes;
    // RGB, CMYK and YCCK pictures come out as RGB only.
    bool hasPlanes() const;
    // The planes' layout, a TJSAMP value.
    int subsampling() const { return m_subsampling; }

    // The size of a decode at M/8, M in 1..8, as the codec rounds it.
    QSize scaledSize(int eighths) const;
    std::optional<JpegPlanes> decodePlanes(int eighths) const;
    // The same planes a row at a time, none kept (JpegStreamDecoder::decodeRows).
    bool decodeRows(int eighths, const JpegStreamDecoder::RowSink &sink) const;
    // Packed 8-bit RGB, three bytes a pixel, rows without padding.
    std::optional<std::vector<std::uint8_t>> decodeRgb(int eighths) const;

private:
    const JpegSource &m_jpeg;
    QSize m_size;
    int m_subsampling = -1;
    int m_colorspace = -1;
};
