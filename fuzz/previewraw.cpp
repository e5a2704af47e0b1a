// SPDX-License-Identifier: MIT
// The preview maker on camera raw files through LibRaw: the embedded JPEG or the developed
// raw data. Its seeds are raw files; what LibRaw turns away falls through to libtiff or Qt.
#include "previewcheck.h"

#include <cstring>

namespace {

std::optional<QSize> sourceSize(const QString &path, std::span<const std::uint8_t> bytes) {
    if (std::optional<QSize> raw = PreviewCheck::rawSize(path, bytes))
        return raw;
    if (std::optional<QSize> tiff = PreviewCheck::tiffSize(path, bytes))
        return tiff;
    return PreviewCheck::qtSize(path, bytes);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    // JPEG and PNG signatures never reach LibRaw.
    if (size >= 3 && data[0] == 0xFF && data[1] == 0xD8 && data[2] == 0xFF)
        return 0;
    if (size >= 8 && std::memcmp(data, "\x89PNG\r\n\x1A\n", 8) == 0)
        return 0;
    PreviewCheck::run({data, size}, &sourceSize);
    return 0;
}
