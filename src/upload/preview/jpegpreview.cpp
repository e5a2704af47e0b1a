// SPDX-License-Identifier: MIT
#include "jpegpreview.h"

#include "jpegmetadata.h"
#include "jpegplanes.h"
#include "jpegsource.h"
#include "previewencoder.h"
#include "previewrgbscaler.h"
#include "resampler.h"

#include <cstring>
#include <turbojpeg.h>

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
    std::optional<JpegPlanes> decoded = m_decoder.decodePlanes(eighths);
    if (!decoded)
        return std::nullopt;
    const double scaleX = scaleOf(size().width(), eighths, target.width());
    const double scaleY = scaleOf(size().height(), eighths, target.height());
    const bool sameSize = decoded->size() == target && scaleX == 1.0 && scaleY == 1.0;
    if (sameSize && decoded->subsampling() == TJSAMP_420)
        return PreviewEncoder::fromPlanes(*decoded, metadata);

    // A grey picture still becomes a colour JPEG, with flat chroma, like every other preview.
    JpegPlanes scaled(target, TJSAMP_420);
    if (decoded->planeCount() == 1)
        fillNeutralChroma(scaled);
    for (int i = 0; i < decoded->planeCount(); ++i) {
        // Chroma keeps the luma's scale, corrected by how much coarser its samples are in the
        // decode than in the 4:2:0 target; JPEG's centred chroma siting keeps the edges aligned.
        const double planeScaleX =
            scaleX * scaled.horizontalFactor(i) / decoded->horizontalFactor(i);
        const double planeScaleY = scaleY * scaled.verticalFactor(i) / decoded->verticalFactor(i);
        Resampler resampler(decoded->planeSize(i), scaled.planeSize(i), planeScaleX, planeScaleY,
                            scaled.data(i), scaled.stride(i));
        const std::uint8_t *source = decoded->data(i);
        for (int y = 0; y < decoded->planeSize(i).height() && !resampler.isComplete(); ++y)
            resampler.pushRow(source + std::ptrdiff_t(y) * decoded->stride(i));
        if (!resampler.isComplete())
            return std::nullopt;
    }
    decoded.reset(); // the scaled decode is no longer needed while the encoder runs
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
