// SPDX-License-Identifier: MIT
#include "resamplekernels.h"

#include "resampleweights.h"

#include <algorithm>
#include <cstring>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#define QUILLMERE_RESAMPLE_AVX2 1
#endif

namespace {

constexpr int horizontalShift = ResampleWeights::fractionBits - ResampleKernels::intermediateBits;
constexpr int verticalShift = ResampleWeights::fractionBits + ResampleKernels::intermediateBits;

std::int16_t toIntermediate(std::int32_t sum) {
    return std::int16_t(
        std::clamp((sum + (1 << (horizontalShift - 1))) >> horizontalShift, -32768, 32767));
}

std::uint8_t toSample(std::int32_t sum) {
    return std::uint8_t(std::clamp((sum + (1 << (verticalShift - 1))) >> verticalShift, 0, 255));
}

void horizontalPortable(const std::uint8_t *source, std::int16_t *destination, int width,
                        const std::int32_t *first, const std::int16_t *weights, int taps) {
    for (int x = 0; x < width; ++x) {
        const std::uint8_t *s = source + first[x];
        const std::int16_t *w = weights + std::ptrdiff_t(x) * taps;
        std::int32_t sum = 0;
        for (int k = 0; k < taps; ++k)
            sum += std::int32_t(w[k]) * s[k];
        destination[x] = toIntermediate(sum);
    }
}

void verticalColumns(const std::int16_t *const *rows, const std::int16_t *weights, int count,
                     std::uint8_t *destination, int from, int to) {
    for (int x = from; x < to; ++x) {
        std::int32_t sum = 0;
        for (int k = 0; k < count; ++k)
            sum += std::int32_t(weights[k]) * rows[k][x];
        destination[x] = toSample(sum);
    }
}

void verticalPortable(const std::int16_t *const *rows, const std::int16_t *weights, int count,
                      std::uint8_t *destination, int width) {
    verticalColumns(rows, weights, count, destination, 0, width);
}

#ifdef QUILLMERE_RESAMPLE_AVX2

// The taps of one destination pixel, sixteen per multiply-add and a last eight in the low half,
// as eight partial sums.
__attribute__((target("avx2"))) inline __m256i dotAvx2(const std::uint8_t *source,
                                                       const std::int16_t *weights, int taps) {
    __m256i sum = _mm256_setzero_si256();
    int k = 0;
    for (; k + 16 <= taps; k += 16) {
        const __m256i samples =
            _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(source + k)));
        const __m256i factors = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(weights + k));
        sum = _mm256_add_epi32(sum, _mm256_madd_epi16(samples, factors));
    }
    if (k < taps) {
        const __m128i samples =
            _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(source + k)));
        const __m128i factors = _mm_loadu_si128(reinterpret_cast<const __m128i *>(weights + k));
        sum = _mm256_add_epi32(sum, _mm256_zextsi128_si256(_mm_madd_epi16(samples, factors)));
    }
    return sum;
}

__attribute__((target("avx2"))) inline void storeFour(std::int16_t *destination, __m256i quad) {
    const __m128i rounding = _mm_set1_epi32(1 << (horizontalShift - 1));
    __m128i sums = _mm_add_epi32(_mm256_castsi256_si128(quad), _mm256_extracti128_si256(quad, 1));
    sums = _mm_srai_epi32(_mm_add_epi32(sums, rounding), horizontalShift);
    _mm_storel_epi64(reinterpret_cast<__m128i *>(destination), _mm_packs_epi32(sums, sums));
}

// Pixels x and x + 1 of eight-tap windows in one multiply-add, their weights already side by
// side: four partial sums each, in the two lane halves.
__attribute__((target("avx2"))) inline __m256i pairAvx2(const std::uint8_t *source,
                                                        const std::int32_t *first,
                                                        const std::int16_t *weights, int x) {
    const __m128i both = _mm_unpacklo_epi64(
        _mm_loadl_epi64(reinterpret_cast<const __m128i *>(source + first[x])),
        _mm_loadl_epi64(reinterpret_cast<const __m128i *>(source + first[x + 1])));
    const __m256i factors =
        _mm256_loadu_si256(reinterpret_cast<const __m256i *>(weights + std::ptrdiff_t(x) * 8));
    return _mm256_madd_epi16(_mm256_cvtepu8_epi16(both), factors);
}

// Windows of eight taps, the usual case after a DCT-scaled decode: eight destination pixels
// share one reduction.
__attribute__((target("avx2"))) int horizontalEightTaps(const std::uint8_t *source,
                                                        std::int16_t *destination, int width,
                                                        const std::int32_t *first,
                                                        const std::int16_t *weights) {
    const __m256i rounding = _mm256_set1_epi32(1 << (horizontalShift - 1));
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    int x = 0;
    for (; x + 8 <= width; x += 8) {
        // Lane halves hold pixels x, x+2, x+4, x+6 and x+1, x+3, x+5, x+7; the permutation
        // puts them back in order.
        const __m256i sums =
            _mm256_hadd_epi32(_mm256_hadd_epi32(pairAvx2(source, first, weights, x),
                                                pairAvx2(source, first, weights, x + 2)),
                              _mm256_hadd_epi32(pairAvx2(source, first, weights, x + 4),
                                                pairAvx2(source, first, weights, x + 6)));
        const __m256i ordered = _mm256_srai_epi32(
            _mm256_add_epi32(_mm256_permutevar8x32_epi32(sums, order), rounding), horizontalShift);
        const __m128i words =
            _mm_packs_epi32(_mm256_castsi256_si128(ordered), _mm256_extracti128_si256(ordered, 1));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(destination + x), words);
    }
    return x;
}

__attribute__((target("avx2"))) void horizontalAvx2(const std::uint8_t *source,
                                                    std::int16_t *destination, int width,
                                                    const std::int32_t *first,
                                                    const std::int16_t *weights, int taps) {
    int x = taps == 8 ? horizontalEightTaps(source, destination, width, first, weights) : 0;
    // Otherwise four destination pixels share one reduction of their partial sums.
    for (; x + 4 <= width; x += 4) {
        const std::int16_t *w = weights + std::ptrdiff_t(x) * taps;
        const __m256i pair01 = _mm256_hadd_epi32(dotAvx2(source + first[x], w, taps),
                                                 dotAvx2(source + first[x + 1], w + taps, taps));
        const __m256i pair23 =
            _mm256_hadd_epi32(dotAvx2(source + first[x + 2], w + 2 * taps, taps),
                              dotAvx2(source + first[x + 3], w + 3 * taps, taps));
        storeFour(destination + x, _mm256_hadd_epi32(pair01, pair23));
    }
    if (x < width)
        horizontalPortable(source, destination + x, width - x, first + x,
                           weights + std::ptrdiff_t(x) * taps, taps);
}

// Sixteen destination pixels at a time; rows are taken in pairs so one multiply-add applies two
// weights.
__attribute__((target("avx2"))) void verticalAvx2(const std::int16_t *const *rows,
                                                  const std::int16_t *weights, int count,
                                                  std::uint8_t *destination, int width) {
    const __m256i rounding = _mm256_set1_epi32(1 << (verticalShift - 1));
    const __m256i zero = _mm256_setzero_si256();
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        __m256i low = rounding;
        __m256i high = rounding;
        int k = 0;
        for (; k + 2 <= count; k += 2) {
            const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(rows[k] + x));
            const __m256i b =
                _mm256_loadu_si256(reinterpret_cast<const __m256i *>(rows[k + 1] + x));
            std::int32_t pair;
            std::memcpy(&pair, weights + k, sizeof pair);
            const __m256i factors = _mm256_set1_epi32(pair);
            low = _mm256_add_epi32(low, _mm256_madd_epi16(_mm256_unpacklo_epi16(a, b), factors));
            high = _mm256_add_epi32(high, _mm256_madd_epi16(_mm256_unpackhi_epi16(a, b), factors));
        }
        if (k < count) {
            const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(rows[k] + x));
            const __m256i factors = _mm256_set1_epi32(std::uint16_t(weights[k]));
            low = _mm256_add_epi32(low, _mm256_madd_epi16(_mm256_unpacklo_epi16(a, zero), factors));
            high =
                _mm256_add_epi32(high, _mm256_madd_epi16(_mm256_unpackhi_epi16(a, zero), factors));
        }
        // unpacklo/unpackhi split each 128-bit lane, and packs joins them back the same way,
        // so the sixteen results come out in order.
        const __m256i words = _mm256_packs_epi32(_mm256_srai_epi32(low, verticalShift),
                                                 _mm256_srai_epi32(high, verticalShift));
        const __m128i bytes =
            _mm_packus_epi16(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(destination + x), bytes);
    }
    verticalColumns(rows, weights, count, destination, x, width);
}

#endif

} // namespace

ResampleKernels ResampleKernels::portable() {
    return {&horizontalPortable, &verticalPortable, 1};
}

ResampleKernels ResampleKernels::best() {
#ifdef QUILLMERE_RESAMPLE_AVX2
    static const bool avx2 = __builtin_cpu_supports("avx2");
    if (avx2)
        return {&horizontalAvx2, &verticalAvx2, 8};
#endif
    return portable();
}
