// SPDX-License-Identifier: MIT
#include "jpegdecoder.h"

#include "progressivejpegdecoder.h"

#include <array>
#include <turbojpeg.h>

namespace {

// Bounds the work a hostile progressive file can cause; no camera writes that many scans.
constexpr int decodeFlags = TJFLAG_LIMITSCANS;

unsigned char *mutableBytes(std::span<const std::uint8_t> bytes) {
    // TurboJPEG 2.1 takes a non-const pointer for its source but only reads it.
    return const_cast<unsigned char *>(bytes.data());
}

} // namespace

JpegDecoder::JpegDecoder(std::span<const std::uint8_t> jpeg)
    : m_jpeg(jpeg) {
    if (!m_handle.isValid() || jpeg.empty())
        return;
    int width = 0;
    int height = 0;
    if (tjDecompressHeader3(m_handle.get(), mutableBytes(jpeg), jpeg.size(), &width, &height,
                            &m_subsampling, &m_colorspace) != 0 ||
        width <= 0 || height <= 0)
        return;
    m_size = QSize(width, height);
}

bool JpegDecoder::hasPlanes() const {
    return isValid() && m_subsampling >= 0 &&
           (m_colorspace == TJCS_YCbCr || m_colorspace == TJCS_GRAY);
}

bool JpegDecoder::succeeded(int status) const {
    if (status == 0)
        return true;
    const bool complete = m_jpeg.size() >= 2 && m_jpeg[m_jpeg.size() - 2] == 0xFF &&
                          m_jpeg[m_jpeg.size() - 1] == 0xD9;
    return complete && m_handle.onlyWarnedOfJunk();
}

QSize JpegDecoder::scaledSize(int eighths) const {
    const tjscalingfactor factor{eighths, 8};
    return {TJSCALED(m_size.width(), factor), TJSCALED(m_size.height(), factor)};
}

std::optional<JpegPlanes> JpegDecoder::decodePlanes(int eighths) const {
    if (!hasPlanes())
        return std::nullopt;
    // TurboJPEG would hold all of a progressive picture's coefficients in memory.
    if (ProgressiveJpegDecoder::isProgressive(m_jpeg))
        return ProgressiveJpegDecoder::decodePlanes(m_jpeg, eighths, scaledSize(eighths),
                                                    m_subsampling);
    JpegPlanes planes(scaledSize(eighths), m_subsampling);
    std::array<unsigned char *, 3> pointers{};
    std::array<int, 3> strides{};
    for (int i = 0; i < planes.planeCount(); ++i) {
        pointers[std::size_t(i)] = planes.data(i);
        strides[std::size_t(i)] = planes.stride(i);
    }
    // Asking for exactly the M/8 size makes TurboJPEG choose that factor.
    const int status = tjDecompressToYUVPlanes(m_handle.get(), mutableBytes(m_jpeg), m_jpeg.size(),
                                               pointers.data(), planes.size().width(),
                                               strides.data(), planes.size().height(), decodeFlags);
    if (!succeeded(status))
        return std::nullopt;
    return planes;
}

std::optional<std::vector<std::uint8_t>> JpegDecoder::decodeRgb(int eighths) const {
    if (!isValid())
        return std::nullopt;
    const QSize scaled = scaledSize(eighths);
    const bool cmyk = m_colorspace == TJCS_CMYK || m_colorspace == TJCS_YCCK;
    const int channels = cmyk ? 4 : 3;
    std::vector<std::uint8_t> pixels(std::size_t(scaled.width()) * std::size_t(scaled.height()) *
                                     std::size_t(channels));
    const int status = tjDecompress2(m_handle.get(), mutableBytes(m_jpeg), m_jpeg.size(),
                                     pixels.data(), scaled.width(), scaled.width() * channels,
                                     scaled.height(), cmyk ? TJPF_CMYK : TJPF_RGB, decodeFlags);
    if (!succeeded(status))
        return std::nullopt;
    if (cmyk) {
        // Adobe writes CMYK inverted, as nearly every CMYK JPEG in the wild is; the naive
        // conversion is what other viewers without colour management show too.
        const std::size_t count = std::size_t(scaled.width()) * std::size_t(scaled.height());
        for (std::size_t i = 0; i < count; ++i) {
            const unsigned k = pixels[i * 4 + 3];
            for (std::size_t c = 0; c < 3; ++c)
                pixels[i * 3 + c] = std::uint8_t((pixels[i * 4 + c] * k + 127) / 255);
        }
        pixels.resize(count * 3);
    }
    return pixels;
}
