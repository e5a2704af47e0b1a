// SPDX-License-Identifier: MIT
#include "jpegencoder.h"

#include "imageresizer.h"
#include "jpeghandle.h"
#include "jpegplanes.h"

#include <array>
#include <memory>
#include <turbojpeg.h>

namespace {

struct TurboFree {
    void operator()(unsigned char *buffer) const { tjFree(buffer); }
};

std::optional<QByteArray> take(unsigned char *buffer, unsigned long size, bool succeeded) {
    // The codec allocates its own buffer (its worst-case bound is far bigger than a preview),
    // so the result is copied once into the size it really has.
    const std::unique_ptr<unsigned char, TurboFree> owned(buffer);
    if (!succeeded || buffer == nullptr || size == 0)
        return std::nullopt;
    return QByteArray(reinterpret_cast<const char *>(buffer), qsizetype(size));
}

} // namespace

std::optional<QByteArray> JpegEncoder::fromPlanes(const JpegPlanes &planes) {
    const JpegHandle handle(JpegHandle::Kind::Compress);
    if (!handle.isValid() || planes.planeCount() == 0)
        return std::nullopt;
    std::array<const unsigned char *, 3> pointers{};
    std::array<int, 3> strides{};
    for (int i = 0; i < planes.planeCount(); ++i) {
        pointers[std::size_t(i)] = planes.data(i);
        strides[std::size_t(i)] = planes.stride(i);
    }
    unsigned char *buffer = nullptr;
    unsigned long size = 0;
    const bool succeeded =
        tjCompressFromYUVPlanes(handle.get(), pointers.data(), planes.size().width(),
                                strides.data(), planes.size().height(), planes.subsampling(),
                                &buffer, &size, ImageResizer::jpegQuality, TJFLAG_ACCURATEDCT) == 0;
    return take(buffer, size, succeeded);
}

std::optional<QByteArray> JpegEncoder::fromRgb(const std::uint8_t *rgb, int width, int height) {
    const JpegHandle handle(JpegHandle::Kind::Compress);
    if (!handle.isValid())
        return std::nullopt;
    unsigned char *buffer = nullptr;
    unsigned long size = 0;
    const bool succeeded =
        tjCompress2(handle.get(), rgb, width, width * 3, height, TJPF_RGB, &buffer, &size,
                    TJSAMP_420, ImageResizer::jpegQuality, TJFLAG_ACCURATEDCT) == 0;
    return take(buffer, size, succeeded);
}
