// SPDX-License-Identifier: MIT
#include "photogenerator.h"

#include <algorithm>
#include <cmath>

namespace {

std::uint32_t mix(std::uint32_t a, std::uint32_t b) {
    std::uint32_t h = a * 0x9E3779B1u ^ (b + 0x7F4A7C15u + (a << 6) + (a >> 2));
    h ^= h >> 16;
    h *= 0x85EBCA6Bu;
    h ^= h >> 13;
    h *= 0xC2B2AE35u;
    h ^= h >> 16;
    return h;
}

float unitFloat(std::uint32_t h) {
    return float(h >> 8) * (1.0f / 16777216.0f);
}

class Random {
public:
    explicit Random(std::uint32_t seed)
        : m_state(seed) {}
    float next() { return unitFloat(m_state = mix(m_state, 0xA511E9B3u)); }
    float between(float low, float high) { return low + (high - low) * next(); }

private:
    std::uint32_t m_state;
};

float smooth(float t) {
    return t * t * (3.0f - 2.0f * t);
}

} // namespace

PhotoGenerator::PhotoGenerator(QSize size, std::uint32_t seed)
    : m_size(size)
    , m_seed(seed)
    , m_unit(float(size.width()) / 100.0f) {
    Random random(seed);
    const float w = float(size.width());
    const float h = float(size.height());
    for (int i = 0; i < 24; ++i) {
        Disc disc{random.between(0, w),
                  random.between(0, h),
                  random.between(1.5f, 9.0f) * m_unit,
                  i % 3 == 0 ? random.between(0.5f, 3.0f) * m_unit : 0.6f,
                  {random.next(), random.next(), random.next()}};
        m_discs.push_back(disc);
    }
    for (int i = 0; i < 10; ++i) {
        const float left = random.between(0, w);
        const float top = random.between(h * 0.35f, h);
        Block block{
            left,
            top,
            left + random.between(3.0f, 14.0f) * m_unit,
            top + random.between(3.0f, 20.0f) * m_unit,
            {random.between(0.1f, 0.9f), random.between(0.1f, 0.9f), random.between(0.1f, 0.9f)}};
        m_blocks.push_back(block);
    }
    buildTexture();
}

// Value noise over four octaves, each a third of the one before: clouds, foliage, gravel. The
// random lattice of each octave is drawn once, then sampled on the coarse grid.
void PhotoGenerator::buildTexture() {
    const float fineCell = 12.0f * m_unit / 27.0f;
    m_gridStep = std::clamp(int(fineCell / 3.0f), 1, 8);
    m_gridWidth = m_size.width() / m_gridStep + 2;
    m_gridHeight = m_size.height() / m_gridStep + 2;
    m_grid.assign(std::size_t(m_gridWidth) * std::size_t(m_gridHeight) * 3, 0.0f);

    float amplitude = 0.5f;
    float cell = 12.0f * m_unit;
    for (int octave = 0; octave < 4; ++octave) {
        const int across = int(float(m_gridWidth * m_gridStep) / cell) + 3;
        const int down = int(float(m_gridHeight * m_gridStep) / cell) + 3;
        std::vector<float> lattice(std::size_t(across) * std::size_t(down) * 3);
        for (std::size_t i = 0; i < lattice.size(); ++i)
            lattice[i] =
                unitFloat(mix(m_seed ^ std::uint32_t(octave * 7919), std::uint32_t(i))) - 0.5f;
        const auto at = [&](int x, int y, int c) {
            return lattice[(std::size_t(y) * std::size_t(across) + std::size_t(x)) * 3 +
                           std::size_t(c)];
        };
        for (int gy = 0; gy < m_gridHeight; ++gy) {
            const float fy = float(gy * m_gridStep) / cell;
            const int iy = int(fy);
            const float ty = smooth(fy - float(iy));
            for (int gx = 0; gx < m_gridWidth; ++gx) {
                const float fx = float(gx * m_gridStep) / cell;
                const int ix = int(fx);
                const float tx = smooth(fx - float(ix));
                float *out = m_grid.data() +
                             (std::size_t(gy) * std::size_t(m_gridWidth) + std::size_t(gx)) * 3;
                for (int c = 0; c < 3; ++c) {
                    const float top = at(ix, iy, c) + (at(ix + 1, iy, c) - at(ix, iy, c)) * tx;
                    const float bottom =
                        at(ix, iy + 1, c) + (at(ix + 1, iy + 1, c) - at(ix, iy + 1, c)) * tx;
                    out[c] += amplitude * (top + (bottom - top) * ty);
                }
            }
        }
        amplitude *= 0.5f;
        cell /= 3.0f;
    }
}

void PhotoGenerator::fillRow(int y, float *rgb) const {
    const int width = m_size.width();
    const float h = float(m_size.height());
    const float fy = float(y) + 0.5f;
    const float horizon = 0.4f * h;
    const bool sky = fy < horizon;
    const float t = sky ? fy / horizon : (fy - horizon) / (h - horizon);
    const float base[3] = {sky ? 0.30f + 0.35f * t : 0.35f - 0.15f * t,
                           sky ? 0.45f + 0.30f * t : 0.40f - 0.10f * t,
                           sky ? 0.85f - 0.10f * t : 0.20f - 0.05f * t};
    // Foliage: fine detail on the ground, which is what fills a camera's JPEG.
    const float detail = sky ? 0.006f : 0.09f;

    // The texture row, interpolated between two grid rows and then along the row, cell by cell.
    const int gy = y / m_gridStep;
    const float ty = float(y - gy * m_gridStep) / float(m_gridStep);
    const float *upper = m_grid.data() + std::size_t(gy) * std::size_t(m_gridWidth) * 3;
    const float *lower = upper + std::size_t(m_gridWidth) * 3;
    const float scale[3] = {sky ? 1.6f : 1.0f, sky ? 1.6f : 1.0f, sky ? 1.6f : 0.6f};
    const float step = 1.0f / float(m_gridStep);
    for (int x0 = 0, gx = 0; x0 < width; x0 += m_gridStep, ++gx) {
        const int x1 = std::min(width, x0 + m_gridStep);
        for (int c = 0; c < 3; ++c) {
            const std::size_t i = std::size_t(gx) * 3 + std::size_t(c);
            const float left = upper[i] + (lower[i] - upper[i]) * ty;
            const float right = upper[i + 3] + (lower[i + 3] - upper[i + 3]) * ty;
            const float slope = (right - left) * step;
            for (int x = x0; x < x1; ++x) {
                const float noise = (left + slope * float(x - x0)) * scale[c];
                rgb[x * 3 + c] = base[c] + (sky ? std::max(noise, 0.0f) : noise);
            }
        }
    }
    const std::uint32_t rowSeed = m_seed ^ std::uint32_t(y) * 0x27D4EB2Fu;
    for (int x = 0; x < width; ++x) {
        const float fine = (unitFloat(mix(rowSeed, std::uint32_t(x))) - 0.5f) * detail;
        for (int c = 0; c < 3; ++c)
            rgb[x * 3 + c] += fine;
    }
    for (const Block &b : m_blocks) {
        if (fy < b.top || fy >= b.bottom)
            continue;
        // Cloth: fine stripes a few pixels apart, which a poor filter turns to moire.
        const int from = std::max(0, int(std::ceil(b.left - 0.5f)));
        const int to = std::min(width, int(std::ceil(b.right - 0.5f)));
        const float across = std::sin(fy * 1.7f) * 0.08f;
        for (int x = from; x < to; ++x) {
            const float stripes = across * std::sin((float(x) + 0.5f) * 2.1f + fy * 0.35f);
            for (int k = 0; k < 3; ++k)
                rgb[x * 3 + k] = b.colour[k] + stripes;
        }
    }
    for (const Disc &d : m_discs) {
        const float reach = d.radius + d.softness;
        const float dy = fy - d.y;
        if (std::abs(dy) >= reach)
            continue;
        const float half = std::sqrt(reach * reach - dy * dy);
        const int from = std::max(0, int(std::floor(d.x - half)));
        const int to = std::min(width, int(std::ceil(d.x + half)) + 1);
        const float shade = 0.75f - 0.25f * dy / d.radius;
        for (int x = from; x < to; ++x) {
            const float dx = float(x) + 0.5f - d.x;
            const float distance = std::sqrt(dx * dx + dy * dy);
            const float cover =
                std::min(std::max((d.radius - distance) / d.softness + 0.5f, 0.0f), 1.0f);
            for (int k = 0; k < 3; ++k)
                rgb[x * 3 + k] += (d.colour[k] * shade - rgb[x * 3 + k]) * cover;
        }
    }
    // Grain over everything, about one level of 8 bits.
    for (int x = 0; x < width; ++x) {
        const std::uint32_t g = mix(m_seed ^ std::uint32_t(x) * 0x9E3779B1u, std::uint32_t(y));
        for (int k = 0; k < 3; ++k) {
            const float grain = (unitFloat(g >> (k * 3)) - 0.5f) * 0.012f;
            rgb[x * 3 + k] = std::min(std::max(rgb[x * 3 + k] + grain, 0.0f), 1.0f);
        }
    }
}

void PhotoGenerator::fillRow8(int y, uchar *rgb) const {
    std::vector<float> row(std::size_t(m_size.width()) * 3);
    fillRow(y, row.data());
    for (std::size_t i = 0; i < row.size(); ++i)
        rgb[i] = uchar(row[i] * 255.0f + 0.5f);
}

QImage PhotoGenerator::image8() const {
    QImage image(m_size, QImage::Format_RGB888);
    for (int y = 0; y < m_size.height(); ++y)
        fillRow8(y, image.scanLine(y));
    return image;
}

QImage PhotoGenerator::image16() const {
    QImage image(m_size, QImage::Format_RGBX64);
    std::vector<float> row(std::size_t(m_size.width()) * 3);
    for (int y = 0; y < m_size.height(); ++y) {
        fillRow(y, row.data());
        auto *out = reinterpret_cast<quint16 *>(image.scanLine(y));
        for (int x = 0; x < m_size.width(); ++x) {
            for (int k = 0; k < 3; ++k)
                out[x * 4 + k] =
                    quint16(row[std::size_t(x) * 3 + std::size_t(k)] * 65535.0f + 0.5f);
            out[x * 4 + 3] = 65535;
        }
    }
    return image;
}

QImage PhotoGenerator::gradient(QSize size) {
    QImage image(size, QImage::Format_RGB888);
    for (int y = 0; y < size.height(); ++y) {
        uchar *row = image.scanLine(y);
        for (int x = 0; x < size.width(); ++x) {
            row[x * 3] = uchar(x * 255 / size.width());
            row[x * 3 + 1] = uchar(y * 255 / size.height());
            row[x * 3 + 2] = uchar((x + y) & 0xFF);
        }
    }
    return image;
}
