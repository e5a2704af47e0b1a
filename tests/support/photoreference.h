// SPDX-License-Identifier: MIT
#pragma once

#include <QImage>
#include <QRect>
#include <QSize>
#include <array>

// The yardstick for preview quality: a full-size picture scaled with an exact separable
// Lanczos-3 filter in double precision (no fixed point, no DCT-domain shortcut), and the PSNR
// between two pictures. Written apart from the production resampler so that it shares none of
// its shortcuts or mistakes.
class PhotoReference {
public:
    // Edges of the source map onto the edges of the target; windows cut by an edge are
    // renormalised. Works on each byte of an RGB888 or Grayscale8 image.
    static QImage lanczos3(const QImage &source, QSize target);
    // Over every byte of two images of the same size and format; infinity when they are equal,
    // zero when they cannot be compared.
    static double psnr(const QImage &a, const QImage &b);
    // Pearson correlation of the two images' luma, both scaled to a small common size: whether
    // two pictures show the same scene, whatever their tone curves.
    static double lumaCorrelation(const QImage &a, const QImage &b);
    // Mean of each channel of an RGB888 image over a rectangle.
    static std::array<double, 3> meanColour(const QImage &image, const QRect &area);
    // Standard deviation of the luma: a photo has light and shade, a failed decode often not.
    static double lumaSpread(const QImage &image);
};
