// SPDX-License-Identifier: MIT
// The preview maker on what carries the TIFF signature: LibRaw looks first (DNG and most raw
// formats are TIFF inside), and what it turns away is read with libtiff.
#include "previewcheck.h"

#include <cstring>

namespace {

std::optional<QSize> sourceSize(const QString &path, std::span<const std::uint8_t> bytes) {
    if (std::optional<QSize> raw = PreviewCheck::rawSize(path, bytes))
        return raw;
    return PreviewCheck::tiffSize(path, bytes);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size < 4 || (std::memcmp(data, "II*\0", 4) != 0 && std::memcmp(data, "MM\0*", 4) != 0))
        return 0;
    PreviewCheck::run({data, size}, &sourceSize);
    return 0;
}
