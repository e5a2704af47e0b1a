// SPDX-License-Identifier: MIT
#include "jpegdecoder.h"

#include "jpegsource.h"

#include <turbojpeg.h>

JpegDecoder::JpegDecoder(const JpegSource &jpeg)
    : m_jpeg(jpeg) {
    if (jpeg.size() == 0)
        return;
    const std::optional<JpegStreamDecoder::Header> header = JpegStreamDecoder::readHeader(jpeg);
    if (!header)
        return;
    m_size = header->size;
    m_subsampling = header->subsampling;
    m_colorspace = header->colorspace;
}

bool JpegDecoder::hasPlanes() const {
    return isValid() && m_subsampling >= 0 &&
           (m_colorspace == TJCS_YCbCr || m_colorspace == TJCS_GRAY);
}

QSize JpegDecoder::scaledSize(int eighths) const {
    const tjscalingfactor factor{eighths, 8};
    return {TJSCALED(m_size.width(), factor), TJSCALED(m_size.height(), factor)};
}

std::optional<JpegPlanes> JpegDecoder::decodePlanes(int eighths) const {
    if (!hasPlanes())
        return std::nullopt;
    return JpegStreamDecoder::decodePlanes(m_jpeg, eighths, scaledSize(eighths), m_subsampling);
}

bool JpegDecoder::decodeRows(int eighths, const JpegStreamDecoder::RowSink &sink) const {
    return hasPlanes() &&
           JpegStreamDecoder::decodeRows(m_jpeg, eighths, scaledSize(eighths), m_subsampling, sink);
}

std::optional<std::vector<std::uint8_t>> JpegDecoder::decodeRgb(int eighths) const {
    if (!isValid())
        return std::nullopt;
    const QSize scaled = scaledSize(eighths);
    const bool cmyk = m_colorspace == TJCS_CMYK || m_colorspace == TJCS_YCCK;
    std::optional<std::vector<std::uint8_t>> pixels =
        JpegStreamDecoder::decodePixels(m_jpeg, eighths, scaled, cmyk);
    if (pixels && cmyk) {
        // Adobe writes CMYK inverted, as nearly every CMYK JPEG in the wild is; the naive
        // conversion is what other viewers without colour management show too.
        const std::size_t count = std::size_t(scaled.width()) * std::size_t(scaled.height());
        for (std::size_t i = 0; i < count; ++i) {
            const unsigned k = (*pixels)[i * 4 + 3];
            for (std::size_t c = 0; c < 3; ++c)
                (*pixels)[i * 3 + c] = std::uint8_t(((*pixels)[i * 4 + c] * k + 127) / 255);
        }
        pixels->resize(count * 3);
    }
    return pixels;
}
