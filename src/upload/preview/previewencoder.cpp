// SPDX-License-Identifier: MIT
#include "previewencoder.h"

#include "exiforientationtag.h"
#include "jpegencoder.h"
#include "jpeghandle.h"
#include "jpegplanes.h"
#include "srgbconverter.h"

#include <array>
#include <turbojpeg.h>

namespace {

std::optional<QByteArray> tagged(std::optional<QByteArray> jpeg, const PhotoMetadata &metadata) {
    if (jpeg)
        *jpeg = ExifOrientationTag::addTo(*jpeg, metadata.orientation);
    return jpeg;
}

// The planes as packed RGB, with TurboJPEG's own conversion (the one its decoder uses).
std::optional<std::vector<std::uint8_t>> toRgb(const JpegPlanes &planes) {
    const JpegHandle handle(JpegHandle::Kind::Decompress);
    if (!handle.isValid() || planes.planeCount() == 0)
        return std::nullopt;
    std::array<const unsigned char *, 3> pointers{};
    std::array<int, 3> strides{};
    for (int i = 0; i < planes.planeCount(); ++i) {
        pointers[std::size_t(i)] = planes.data(i);
        strides[std::size_t(i)] = planes.stride(i);
    }
    const QSize size = planes.size();
    std::vector<std::uint8_t> rgb(std::size_t(size.width()) * std::size_t(size.height()) * 3);
    if (tjDecodeYUVPlanes(handle.get(), pointers.data(), strides.data(), planes.subsampling(),
                          rgb.data(), size.width(), size.width() * 3, size.height(), TJPF_RGB,
                          TJFLAG_ACCURATEDCT) != 0)
        return std::nullopt;
    return rgb;
}

} // namespace

std::optional<QByteArray> PreviewEncoder::fromPlanes(const JpegPlanes &planes,
                                                     const PhotoMetadata &metadata) {
    const std::optional<SrgbConverter> converter = SrgbConverter::forPhoto(metadata);
    if (!converter)
        return tagged(JpegEncoder::fromPlanes(planes), metadata);
    std::optional<std::vector<std::uint8_t>> rgb = toRgb(planes);
    if (!rgb)
        return std::nullopt;
    const QSize size = planes.size();
    converter->convert(rgb->data(), rgb->size() / 3);
    return tagged(JpegEncoder::fromRgb(rgb->data(), size.width(), size.height()), metadata);
}

std::optional<QByteArray> PreviewEncoder::fromRgb(std::vector<std::uint8_t> &rgb, QSize size,
                                                  const PhotoMetadata &metadata) {
    if (const std::optional<SrgbConverter> converter = SrgbConverter::forPhoto(metadata))
        converter->convert(rgb.data(), rgb.size() / 3);
    return tagged(JpegEncoder::fromRgb(rgb.data(), size.width(), size.height()), metadata);
}
