// SPDX-License-Identifier: MIT
#include "jpegpreview.h"

#include "jpegmetadata.h"
#include "jpegplanes.h"
#include "jpegsource.h"
#include "previewencoder.h"
#include "previewrgbscaler.h"
#include "resampler.h"

#include <algorithm>
#include <cstring>
#include <turbojpeg.h>
#include <vector>

namespace {

// Source pixels of the M/8 decode per target pixel. The decode covers the photo at exactly M/8
// even where its size was rounded up, so the scale comes from the unrounded extent.
double scaleOf(int full, int eighths, int target) {
    return double(full) * eighths / 8.0 / target;
}

void fillNeutralChroma(JpegPlanes &planes) {
    for (int i = 1; i < planes.planeCount(); ++i)
        std::memset(
            planes.data(i), 128,
            std::size_t(planes.stride(i)) *
                std::size_t(tjPlaneHeight(i, planes.size().height(), planes.subsampling())));
}

} // namespace

JpegPreview::JpegPreview(const JpegSource &jpeg)
    : m_jpeg(jpeg)
    , m_decoder(jpeg) {}

PhotoMetadata JpegPreview::metadata() const {
    return JpegMetadata::read(m_jpeg);
}

int JpegPreview::scaleEighths(QSize full, QSize target) {
    for (int eighths = 1; eighths < 8; ++eighths) {
        const tjscalingfactor factor{eighths, 8};
        if (TJSCALED(full.width(), factor) >= target.width() &&
            TJSCALED(full.height(), factor) >= target.height())
            return eighths;
    }
    return 8;
}

std::optional<QByteArray> JpegPreview::render(QSize target, const PhotoMetadata &metadata) const {
    if (!isValid() || target.isEmpty())
        return std::nullopt;
    const int eighths = scaleEighths(size(), target);
    return m_decoder.hasPlanes() ? renderPlanes(target, eighths, metadata)
                                 : renderRgb(target, eighths, metadata);
}

std::optional<QByteArray> JpegPreview::renderPlanes(QSize target, int eighths,
                                                    const PhotoMetadata &metadata) const {
    const QSize decodedSize = m_decoder.scaledSize(eighths);
    const int layout = m_decoder.subsampling();
    const double scaleX = scaleOf(size().width(), eighths, target.width());
    const double scaleY = scaleOf(size().height(), eighths, target.height());
    const bool sameSize = decodedSize == target && scaleX == 1.0 && scaleY == 1.0;
    if (sameSize && layout == TJSAMP_420) {
        std::optional<JpegPlanes> decoded = m_decoder.decodePlanes(eighths);
        return decoded ? PreviewEncoder::fromPlanes(*decoded, metadata) : std::nullopt;
    }

    // A grey picture still becomes a colour JPEG, with flat chroma, like every other preview.
    JpegPlanes scaled(target, TJSAMP_420);
    const int planes = JpegPlanes::planeCount(layout);
    if (planes == 1)
        fillNeutralChroma(scaled);
    // Each plane's rows go into its resampler as the decoder gives them: the decode at M/8,
    // several times the preview's size, is never held whole.
    std::vector<Resampler> resamplers;
    resamplers.reserve(std::size_t(planes));
    for (int i = 0; i < planes; ++i) {
        // Chroma keeps the luma's scale, corrected by how much coarser its samples are in the
        // decode than in the 4:2:0 target; JPEG's centred chroma siting keeps the edges aligned.
        const double planeScaleX =
            scaleX * scaled.horizontalFactor(i) / JpegPlanes::horizontalFactor(layout, i);
        const double planeScaleY =
            scaleY * scaled.verticalFactor(i) / JpegPlanes::verticalFactor(layout, i);
        resamplers.emplace_back(JpegPlanes::planeSize(decodedSize, layout, i),
                                scaled.planeSize(i), planeScaleX, planeScaleY, scaled.data(i),
                                scaled.stride(i));
    }
    const bool decoded = m_decoder.decodeRows(eighths, [&](int plane, const std::uint8_t *row) {
        Resampler &resampler = resamplers[std::size_t(plane)];
        if (!resampler.isComplete())
            resampler.pushRow(row);
    });
    if (!decoded || !std::all_of(resamplers.begin(), resamplers.end(),
                                 [](const Resampler &r) { return r.isComplete(); }))
        return std::nullopt;
    resamplers.clear();
    scaled.replicateEdges();
    return PreviewEncoder::fromPlanes(scaled, metadata);
}

std::optional<QByteArray> JpegPreview::renderRgb(QSize target, int eighths,
                                                 const PhotoMetadata &metadata) const {
    const std::optional<std::vector<std::uint8_t>> decoded = m_decoder.decodeRgb(eighths);
    if (!decoded)
        return std::nullopt;
    const QSize scaledSize = m_decoder.scaledSize(eighths);
    PreviewRgbScaler scaler(scaledSize, target, scaleOf(size().width(), eighths, target.width()),
                            scaleOf(size().height(), eighths, target.height()));
    for (int y = 0; y < scaledSize.height(); ++y)
        scaler.pushRow(decoded->data() + std::size_t(y) * std::size_t(scaledSize.width()) * 3);
    return scaler.encode(metadata);
}
