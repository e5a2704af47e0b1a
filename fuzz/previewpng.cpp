// SPDX-License-Identifier: MIT
// The preview maker on what it reads as PNG, through libpng.
#include "previewcheck.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size < 8 || std::memcmp(data, "\x89PNG\r\n\x1A\n", 8) != 0)
        return 0;
    PreviewCheck::run({data, size}, &PreviewCheck::pngSize);
    return 0;
}
