// SPDX-License-Identifier: MIT
// The preview maker on what it reads as JPEG: libjpeg-turbo, the resampler, the encoder.
#include "previewcheck.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    // The other signatures take other roads, each fuzzed by its own target.
    if (size < 3 || data[0] != 0xFF || data[1] != 0xD8 || data[2] != 0xFF)
        return 0;
    PreviewCheck::run({data, size}, &PreviewCheck::jpegSize);
    return 0;
}
