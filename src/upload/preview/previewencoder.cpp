// SPDX-License-Identifier: MIT
#include "previewencoder.h"

#include "exiforientationtag.h"
#include "jpegencoder.h"
#include "jpeghandle.h"
#include "jpegplanes.h"
#include "srgbconverter.h"

#include <algorithm>
#include <array>
#include <turbojpeg.h>

namespace {

std::optional<QByteArray> tagged(std::optional<QByteArray> jpeg, const PhotoMetadata &metadata) {
    if (jpeg)
        *jpeg = ExifOrientationTag::addTo(*jpeg, metadata.orientation);
    return jpeg;
}

// Rows converted together: a multiple of every vertical chroma factor, and a band of RGB
// small enough to stay in the cache.
constexpr int bandRows = 16;

// Each band goes to RGB with chroma repeated (no interpolation across rows or bands), is
// converted, and comes back averaged over the same cells, so a band needs nothing of its
// neighbours and flat colour comes back exactly.
bool convertPlanes(JpegPlanes &planes, const SrgbConverter &converter) {
    const JpegHandle decoder(JpegHandle::Kind::Decompress);
    const JpegHandle encoder(JpegHandle::Kind::Compress);
    if (!decoder.isValid() || !encoder.isValid() || planes.planeCount() == 0)
        return false;
    const int width = planes.size().width();
    const int height = planes.size().height();
    std::vector<std::uint8_t> rgb(std::size_t(width) * bandRows * 3);
    for (int top = 0; top < height; top += bandRows) {
        const int rows = std::min(bandRows, height - top);
        std::array<unsigned char *, 3> pointers{};
        std::array<int, 3> strides{};
        for (int i = 0; i < planes.planeCount(); ++i) {
            strides[std::size_t(i)] = planes.stride(i);
            pointers[std::size_t(i)] =
                planes.data(i) + std::ptrdiff_t(top / planes.verticalFactor(i)) * planes.stride(i);
        }
        std::array<const unsigned char *, 3> sources{pointers[0], pointers[1], pointers[2]};
        if (tjDecodeYUVPlanes(decoder.get(), sources.data(), strides.data(), planes.subsampling(),
                              rgb.data(), width, width * 3, rows, TJPF_RGB,
                              TJFLAG_FASTUPSAMPLE) != 0)
            return false;
        converter.convert(rgb.data(), std::size_t(width) * std::size_t(rows));
        if (tjEncodeYUVPlanes(encoder.get(), rgb.data(), width, width * 3, rows, TJPF_RGB,
                              pointers.data(), strides.data(), planes.subsampling(), 0) != 0)
            return false;
    }
    planes.replicateEdges();
    return true;
}

} // namespace

std::optional<QByteArray> PreviewEncoder::fromPlanes(JpegPlanes &planes,
                                                     const PhotoMetadata &metadata) {
    // Grey planes keep their values: only RGB profiles are applied, and a grey picture's
    // profile is a grey one.
    if (planes.planeCount() == 3) {
        if (const std::optional<SrgbConverter> converter = SrgbConverter::forPhoto(metadata);
            converter && !convertPlanes(planes, *converter))
            return std::nullopt;
    }
    return tagged(JpegEncoder::fromPlanes(planes), metadata);
}

std::optional<QByteArray> PreviewEncoder::fromRgb(std::vector<std::uint8_t> &rgb, QSize size,
                                                  const PhotoMetadata &metadata) {
    if (const std::optional<SrgbConverter> converter = SrgbConverter::forPhoto(metadata))
        converter->convert(rgb.data(), rgb.size() / 3);
    return tagged(JpegEncoder::fromRgb(rgb.data(), size.width(), size.height()), metadata);
}
