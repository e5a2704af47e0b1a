// SPDX-License-Identifier: MIT
#pragma once

#include <QImage>
#include <QSize>
#include <cstdint>
#include <vector>

// Pictures that behave like photographs where it matters to a scaler and a JPEG codec: smooth
// sky-like gradients, fractal texture at several scales, hard-edged and soft-edged objects, a
// finely striped cloth near the pixel pitch, foliage-like fine detail and sensor grain.
// Deterministic for a seed, and drawn in proportion to the size, so a small and a large picture
// show the same scene.
class PhotoGenerator {
public:
    PhotoGenerator(QSize size, std::uint32_t seed);

    QSize size() const { return m_size; }
    // One row as floats in 0..1 (sRGB-encoded), three per pixel.
    void fillRow(int y, float *rgb) const;
    // The same row as packed 8-bit RGB, as image8() holds it.
    void fillRow8(int y, uchar *rgb) const;
    QImage image8() const;  // Format_RGB888
    QImage image16() const; // Format_RGBX64

    // Cheap smooth content, for tests that look only at sizes.
    static QImage gradient(QSize size);

private:
    struct Disc {
        float x, y, radius, softness;
        float colour[3];
    };
    struct Block {
        float left, top, right, bottom;
        float colour[3];
    };

    void buildTexture();

    QSize m_size;
    std::uint32_t m_seed;
    float m_unit; // one hundredth of the picture's width, in pixels
    std::vector<Disc> m_discs;
    std::vector<Block> m_blocks;
    // The fractal texture sampled on a coarse grid and interpolated per pixel: its finest
    // octave is still several grid steps wide, and this keeps big pictures quick to draw.
    int m_gridStep = 8;
    int m_gridWidth = 0;
    int m_gridHeight = 0;
    std::vector<float> m_grid; // three channels per grid point
};
