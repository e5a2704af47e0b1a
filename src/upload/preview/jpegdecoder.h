// SPDX-License-Identifier: MIT
#pragma once

#include "jpeghandle.h"
#include "jpegplanes.h"

#include <QSize>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

// Decodes one JPEG held in memory, at a DCT-domain scale of M/8 when asked for a smaller size:
// libjpeg-turbo then runs a smaller inverse DCT per block instead of decoding every pixel and
// throwing most away. The bytes must outlive the decoder. Any damage to the picture data fails
// the decode.
class JpegDecoder {
public:
    explicit JpegDecoder(std::span<const std::uint8_t> jpeg);

    bool isValid() const { return m_size.isValid(); }
    QSize size() const { return m_size; }
    // True for YCbCr and grey pictures with a subsampling the codec can hand out as planes;
    // RGB, CMYK and YCCK pictures come out as RGB only.
    bool hasPlanes() const;

    // The size of a decode at M/8, M in 1..8, as the codec rounds it.
    QSize scaledSize(int eighths) const;
    std::optional<JpegPlanes> decodePlanes(int eighths) const;
    // Packed 8-bit RGB, three bytes a pixel, rows without padding.
    std::optional<std::vector<std::uint8_t>> decodeRgb(int eighths) const;

private:
    // Every warning but one means missing or damaged picture data (a cut-off file decodes to a
    // grey bottom), and such a file gets no preview.
    bool succeeded(int status) const;

    JpegHandle m_handle{JpegHandle::Kind::Decompress};
    std::span<const std::uint8_t> m_jpeg;
    QSize m_size;
    int m_subsampling = -1;
    int m_colorspace = -1;
};
