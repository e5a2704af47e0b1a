// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

// The two inner loops of the resampler, in a portable version and, where the processor has it,
// an AVX2 version. Both do the same integer arithmetic in the same order of rounding, so they
// give the same bytes; the portable one is the reference the vector one is tested against.
//
// Fixed point: weights carry ResampleWeights::fractionBits fraction bits; the rows between the
// two passes are int16 with `intermediateBits` fraction bits, which leaves room for the
// overshoot of the filter's negative lobes.
struct ResampleKernels {
    static constexpr int intermediateBits = 6;

    // One source row of 8-bit samples to one row of `width` intermediate samples. Reads `taps`
    // samples from `source + first[x]` for each x, all inside the row.
    using Horizontal = void (*)(const std::uint8_t *source, std::int16_t *destination, int width,
                                const std::int32_t *first, const std::int16_t *weights, int taps);
    // `count` intermediate rows, weighted and summed, to one row of `width` 8-bit samples.
    using Vertical = void (*)(const std::int16_t *const *rows, const std::int16_t *weights,
                              int count, std::uint8_t *destination, int width);

    Horizontal horizontal = nullptr;
    Vertical vertical = nullptr;
    // How many taps a horizontal window must be padded to.
    int tapMultiple = 1;

    static ResampleKernels portable();
    // The fastest set this processor runs; chosen once, read-only afterwards.
    static ResampleKernels best();
};
