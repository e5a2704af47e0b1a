// SPDX-License-Identifier: MIT
#include "previewrgbscaler.h"

#include "previewencoder.h"

#include <algorithm>

PreviewRgbScaler::PreviewRgbScaler(QSize source, QSize target, double scaleX, double scaleY)
    : m_source(source)
    , m_target(target) {
    const std::size_t targetPixels = std::size_t(target.width()) * std::size_t(target.height());
    m_resamplers.reserve(3);
    for (std::size_t c = 0; c < 3; ++c) {
        m_planes[c].resize(targetPixels);
        m_channelRows[c].resize(std::size_t(source.width()));
        m_resamplers.emplace_back(source, target, scaleX, scaleY, m_planes[c].data(),
                                  target.width());
    }
}

PreviewRgbScaler::PreviewRgbScaler(QSize source, QSize target)
    : PreviewRgbScaler(source, target, double(source.width()) / target.width(),
                       double(source.height()) / target.height()) {}

void PreviewRgbScaler::pushRow(const std::uint8_t *rgb) {
    const std::size_t width = std::size_t(m_source.width());
    std::uint8_t *red = m_channelRows[0].data();
    std::uint8_t *green = m_channelRows[1].data();
    std::uint8_t *blue = m_channelRows[2].data();
    for (std::size_t x = 0; x < width; ++x) {
        red[x] = rgb[3 * x];
        green[x] = rgb[3 * x + 1];
        blue[x] = rgb[3 * x + 2];
    }
    for (std::size_t c = 0; c < 3; ++c)
        m_resamplers[c].pushRow(m_channelRows[c].data());
}

std::optional<QByteArray> PreviewRgbScaler::encode(const PhotoMetadata &metadata) const {
    if (!std::all_of(m_resamplers.begin(), m_resamplers.end(),
                     [](const Resampler &r) { return r.isComplete(); }))
        return std::nullopt;
    const std::size_t pixels = std::size_t(m_target.width()) * std::size_t(m_target.height());
    std::vector<std::uint8_t> packed(pixels * 3);
    for (std::size_t i = 0; i < pixels; ++i) {
        packed[3 * i] = m_planes[0][i];
        packed[3 * i + 1] = m_planes[1][i];
        packed[3 * i + 2] = m_planes[2][i];
    }
    return PreviewEncoder::fromRgb(packed, m_target, metadata);
}
