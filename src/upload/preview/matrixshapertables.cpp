// SPDX-License-Identifier: MIT
#include "matrixshapertables.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <lcms2.h>

namespace {

using Matrix = std::array<std::array<double, 3>, 3>;

// Linear light to the sRGB curve, at a resolution fine enough that the darkest 8-bit steps,
// where the curve is steepest, still land on the right value.
constexpr int encodeSteps = 16384;
constexpr int top = encodeSteps - 1;
// The matrix's fixed point, and the largest coefficient it takes: real profiles stay far
// below, and the sums cannot overflow.
constexpr int matrixShift = 12;
constexpr double largestCoefficient = 8.0;

const std::array<std::uint8_t, encodeSteps> &srgbEncode() {
    static const std::array<std::uint8_t, encodeSteps> table = [] {
        std::array<std::uint8_t, encodeSteps> t{};
        for (int i = 0; i < encodeSteps; ++i) {
            const double linear = double(i) / (encodeSteps - 1);
            const double encoded =
                linear <= 0.0031308 ? 12.92 * linear : 1.055 * std::pow(linear, 1.0 / 2.4) - 0.055;
            t[std::size_t(i)] = std::uint8_t(std::clamp(std::lround(encoded * 255.0), 0L, 255L));
        }
        return t;
    }();
    return table;
}

// The colorants of a matrix-shaper profile as the columns of its RGB-to-XYZ (D50) matrix.
std::optional<Matrix> colorants(cmsHPROFILE profile) {
    const cmsTagSignature tags[3] = {cmsSigRedColorantTag, cmsSigGreenColorantTag,
                                     cmsSigBlueColorantTag};
    Matrix m{};
    for (std::size_t c = 0; c < 3; ++c) {
        const auto *xyz = static_cast<const cmsCIEXYZ *>(cmsReadTag(profile, tags[c]));
        if (xyz == nullptr || !std::isfinite(xyz->X) || !std::isfinite(xyz->Y) ||
            !std::isfinite(xyz->Z))
            return std::nullopt;
        m[0][c] = xyz->X;
        m[1][c] = xyz->Y;
        m[2][c] = xyz->Z;
    }
    return m;
}

std::optional<Matrix> inverse(const Matrix &m) {
    const double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                       m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                       m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    if (!std::isfinite(det) || std::abs(det) < 1e-9)
        return std::nullopt;
    Matrix r{};
    r[0][0] = (m[1][1] * m[2][2] - m[1][2] * m[2][1]) / det;
    r[0][1] = (m[0][2] * m[2][1] - m[0][1] * m[2][2]) / det;
    r[0][2] = (m[0][1] * m[1][2] - m[0][2] * m[1][1]) / det;
    r[1][0] = (m[1][2] * m[2][0] - m[1][0] * m[2][2]) / det;
    r[1][1] = (m[0][0] * m[2][2] - m[0][2] * m[2][0]) / det;
    r[1][2] = (m[0][2] * m[1][0] - m[0][0] * m[1][2]) / det;
    r[2][0] = (m[1][0] * m[2][1] - m[1][1] * m[2][0]) / det;
    r[2][1] = (m[0][1] * m[2][0] - m[0][0] * m[2][1]) / det;
    r[2][2] = (m[0][0] * m[1][1] - m[0][1] * m[1][0]) / det;
    return r;
}

Matrix product(const Matrix &a, const Matrix &b) {
    Matrix r{};
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j)
            for (std::size_t k = 0; k < 3; ++k)
                r[i][j] += a[i][k] * b[k][j];
    return r;
}

} // namespace

std::optional<MatrixShaperTables> MatrixShaperTables::of(void *profile) {
    // A profile with lookup tables for the intent is applied through them by Little CMS, and by
    // browsers: its matrix is only a fallback.
    if (!cmsIsMatrixShaper(profile) ||
        cmsIsCLUT(profile, INTENT_RELATIVE_COLORIMETRIC, LCMS_USED_AS_INPUT))
        return std::nullopt;
    const cmsHPROFILE srgb = cmsCreate_sRGBProfile();
    const std::optional<Matrix> toSrgbXyz = srgb ? colorants(srgb) : std::nullopt;
    if (srgb)
        cmsCloseProfile(srgb);
    const std::optional<Matrix> fromXyz = toSrgbXyz ? inverse(*toSrgbXyz) : std::nullopt;
    const std::optional<Matrix> toXyz = colorants(profile);
    if (!fromXyz || !toXyz)
        return std::nullopt;

    MatrixShaperTables tables;
    const cmsTagSignature curves[3] = {cmsSigRedTRCTag, cmsSigGreenTRCTag, cmsSigBlueTRCTag};
    for (std::size_t c = 0; c < 3; ++c) {
        const auto *curve = static_cast<const cmsToneCurve *>(cmsReadTag(profile, curves[c]));
        if (curve == nullptr)
            return std::nullopt;
        for (std::size_t v = 0; v < 256; ++v) {
            const float linear = cmsEvalToneCurveFloat(curve, float(v) / 255.0f);
            if (!std::isfinite(linear))
                return std::nullopt;
            tables.m_linear[c][v] =
                std::uint16_t(std::lround(double(std::clamp(linear, 0.0f, 1.0f)) * top));
        }
    }
    const Matrix m = product(*fromXyz, *toXyz);
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j) {
            if (!std::isfinite(m[i][j]) || std::abs(m[i][j]) > largestCoefficient)
                return std::nullopt;
            tables.m_matrix[i * 3 + j] = std::int32_t(std::lround(m[i][j] * (1 << matrixShift)));
        }
    return tables;
}

bool MatrixShaperTables::isIdentity() const {
    for (int r = 0; r <= 256; r += 32)
        for (int g = 0; g <= 256; g += 32)
            for (int b = 0; b <= 256; b += 32) {
                const std::uint8_t in[3] = {std::uint8_t(std::min(r, 255)),
                                            std::uint8_t(std::min(g, 255)),
                                            std::uint8_t(std::min(b, 255))};
                std::uint8_t out[3] = {};
                convertPixel(in, out, srgbEncode().data());
                for (std::size_t c = 0; c < 3; ++c)
                    if (std::abs(int(in[c]) - int(out[c])) > 1)
                        return false;
            }
    return true;
}

void MatrixShaperTables::convertPixel(const std::uint8_t *in, std::uint8_t *out,
                                      const std::uint8_t *encode) const {
    const std::int32_t r = m_linear[0][in[0]];
    const std::int32_t g = m_linear[1][in[1]];
    const std::int32_t b = m_linear[2][in[2]];
    const std::int32_t *m = m_matrix.data();
    constexpr std::int32_t half = 1 << (matrixShift - 1);
    // Out of sRGB's gamut is clipped, as Little CMS and browsers clip it.
    const auto step = [](std::int32_t sum) {
        return std::size_t(std::clamp((sum + half) >> matrixShift, 0, top));
    };
    const std::size_t x = step(m[0] * r + m[1] * g + m[2] * b);
    const std::size_t y = step(m[3] * r + m[4] * g + m[5] * b);
    const std::size_t z = step(m[6] * r + m[7] * g + m[8] * b);
    out[0] = encode[x];
    out[1] = encode[y];
    out[2] = encode[z];
}

void MatrixShaperTables::convert(std::uint8_t *rgb, std::size_t pixels) const {
    const std::uint8_t *encode = srgbEncode().data();
    for (std::size_t i = 0; i < pixels; ++i, rgb += 3)
        convertPixel(rgb, rgb, encode);
}
