// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <optional>

// The fast road to sRGB for the profiles nearly every photo carries (Adobe RGB, Display P3,
// ProPhoto, most cameras' own): three tone curves and a matrix. Little CMS works out the
// profile; the pixels then take a table look-up per channel into linear light, one 3x3 matrix
// into linear sRGB, and a table look-up back to the sRGB curve. That is the same arithmetic
// as Little CMS's own for such profiles, relative colorimetric, at a fraction of its cost on
// 8-bit pixels.
class MatrixShaperTables {
public:
    // No value for a profile that is no plain matrix-shaper (one with lookup tables for the
    // intent, or without its curves and colorants); the profile is a Little CMS handle.
    static std::optional<MatrixShaperTables> of(void *profile);

    // Whether the profile is sRGB under another name: no value of a coarse grid moves by more
    // than one step.
    bool isIdentity() const;
    // Packed 8-bit RGB, in place.
    void convert(std::uint8_t *rgb, std::size_t pixels) const;

private:
    MatrixShaperTables() = default;
    // `encode` is the table from linear steps to the sRGB curve, fetched once for many pixels.
    void convertPixel(const std::uint8_t *in, std::uint8_t *out, const std::uint8_t *encode) const;

    // Linear light in steps of the encoding table, and the matrix in fixed point: integer
    // arithmetic a pixel, no conversions between integers and floats.
    std::array<std::array<std::uint16_t, 256>, 3> m_linear{};
    std::array<std::int32_t, 9> m_matrix{};
};
