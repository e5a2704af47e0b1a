// SPDX-License-Identifier: MIT
#include "photoreference.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

namespace {

double kernel(double x) {
    if (std::abs(x) < 1e-12)
        return 1.0;
    if (std::abs(x) >= 3.0)
        return 0.0;
    const double px = std::numbers::pi * x;
    return 3.0 * std::sin(px) * std::sin(px / 3.0) / (px * px);
}

struct Tap {
    int index;
    double weight;
};

std::vector<std::vector<Tap>> taps(int sourceSize, int targetSize) {
    const double scale = double(sourceSize) / targetSize;
    const double stretch = std::max(1.0, scale);
    std::vector<std::vector<Tap>> all;
    all.resize(std::size_t(targetSize));
    for (int i = 0; i < targetSize; ++i) {
        const double centre = (i + 0.5) * scale;
        double sum = 0.0;
        std::vector<Tap> &window = all[std::size_t(i)];
        for (int s = std::max(0, int(centre - 3.0 * stretch) - 1);
             s <= std::min(sourceSize - 1, int(centre + 3.0 * stretch) + 1); ++s) {
            const double w = kernel((s + 0.5 - centre) / stretch);
            if (w != 0.0) {
                window.push_back({s, w});
                sum += w;
            }
        }
        for (Tap &tap : window)
            tap.weight /= sum;
    }
    return all;
}

} // namespace

QImage PhotoReference::lanczos3(const QImage &source, QSize target) {
    const int channels = source.format() == QImage::Format_Grayscale8 ? 1 : 3;
    const QImage input =
        source.convertToFormat(channels == 1 ? QImage::Format_Grayscale8 : QImage::Format_RGB888);
    const auto across = taps(input.width(), target.width());
    const auto down = taps(input.height(), target.height());

    // Horizontal pass into doubles, then vertical, rounding only once at the end.
    const std::size_t rowLength = std::size_t(target.width()) * std::size_t(channels);
    std::vector<double> middle(std::size_t(input.height()) * rowLength);
    std::vector<double> samples(std::size_t(input.width()) * std::size_t(channels));
    for (int y = 0; y < input.height(); ++y) {
        const uchar *in = input.constScanLine(y);
        for (std::size_t i = 0; i < samples.size(); ++i)
            samples[i] = in[i];
        double *out = middle.data() + std::size_t(y) * rowLength;
        for (int x = 0; x < target.width(); ++x) {
            double red = 0.0, green = 0.0, blue = 0.0;
            for (const Tap &tap : across[std::size_t(x)]) {
                const double *s = samples.data() + std::size_t(tap.index) * std::size_t(channels);
                red += tap.weight * s[0];
                if (channels == 3) {
                    green += tap.weight * s[1];
                    blue += tap.weight * s[2];
                }
            }
            out[x * channels] = red;
            if (channels == 3) {
                out[x * channels + 1] = green;
                out[x * channels + 2] = blue;
            }
        }
    }
    QImage result(target, input.format());
    std::vector<double> row(rowLength);
    for (int y = 0; y < target.height(); ++y) {
        std::fill(row.begin(), row.end(), 0.0);
        for (const Tap &tap : down[std::size_t(y)]) {
            const double *in = middle.data() + std::size_t(tap.index) * rowLength;
            for (std::size_t i = 0; i < rowLength; ++i)
                row[i] += tap.weight * in[i];
        }
        uchar *out = result.scanLine(y);
        for (std::size_t i = 0; i < rowLength; ++i)
            out[i] = uchar(std::clamp(row[i], 0.0, 255.0) + 0.5);
    }
    return result;
}

double PhotoReference::psnr(const QImage &a, const QImage &b) {
    if (a.size() != b.size() || a.format() != b.format() || a.isNull())
        return 0.0;
    const qsizetype length = qsizetype(a.width()) * (a.depth() / 8);
    double squares = 0.0;
    for (int y = 0; y < a.height(); ++y) {
        const uchar *p = a.constScanLine(y);
        const uchar *q = b.constScanLine(y);
        for (qsizetype i = 0; i < length; ++i) {
            const double d = double(p[i]) - double(q[i]);
            squares += d * d;
        }
    }
    if (squares == 0.0)
        return std::numeric_limits<double>::infinity();
    const double meanSquare = squares / (double(length) * a.height());
    return 10.0 * std::log10(255.0 * 255.0 / meanSquare);
}

double PhotoReference::lumaCorrelation(const QImage &a, const QImage &b) {
    // Whether two pictures show the same scene needs no fine detail: compare small copies.
    const QSize size = a.size().scaled(400, 400, Qt::KeepAspectRatio);
    const auto small = [size](const QImage &image) {
        return image.convertToFormat(QImage::Format_Grayscale8)
            .scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    };
    const QImage first = small(a);
    const QImage second = small(b);
    double sa = 0, sb = 0, saa = 0, sbb = 0, sab = 0;
    const double n = double(size.width()) * size.height();
    for (int y = 0; y < size.height(); ++y)
        for (int x = 0; x < size.width(); ++x) {
            const double p = first.constScanLine(y)[x];
            const double q = second.constScanLine(y)[x];
            sa += p;
            sb += q;
            saa += p * p;
            sbb += q * q;
            sab += p * q;
        }
    const double covariance = sab / n - (sa / n) * (sb / n);
    const double spread =
        std::sqrt((saa / n - (sa / n) * (sa / n)) * (sbb / n - (sb / n) * (sb / n)));
    return spread > 0.0 ? covariance / spread : 0.0;
}

std::array<double, 3> PhotoReference::meanColour(const QImage &image, const QRect &area) {
    const QImage rgb = image.convertToFormat(QImage::Format_RGB888);
    std::array<double, 3> sum{};
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x)
            for (int c = 0; c < 3; ++c)
                sum[std::size_t(c)] += rgb.constScanLine(y)[x * 3 + c];
    for (double &s : sum)
        s /= double(area.width()) * area.height();
    return sum;
}

double PhotoReference::lumaSpread(const QImage &image) {
    const QImage grey = image.convertToFormat(QImage::Format_Grayscale8);
    double sum = 0.0, squares = 0.0;
    for (int y = 0; y < grey.height(); ++y)
        for (int x = 0; x < grey.width(); ++x) {
            const double v = grey.constScanLine(y)[x];
            sum += v;
            squares += v * v;
        }
    const double n = double(grey.width()) * grey.height();
    return std::sqrt(squares / n - (sum / n) * (sum / n));
}
