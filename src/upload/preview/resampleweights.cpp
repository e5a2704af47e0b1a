// SPDX-License-Identifier: MIT
#include "resampleweights.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

struct Window {
    int first = 0;
    std::vector<std::int32_t> weights;
};

// One destination pixel: the filter centred on its centre, stretched by the scale when
// shrinking so that it also removes what the smaller grid cannot hold. Windows that run over an
// edge are cut there and renormalised.
Window windowFor(int index, int sourceSize, double scale) {
    const double filterScale = std::max(scale, 1.0);
    const double support = 3.0 * filterScale;
    const double centre = (index + 0.5) * scale;
    const int low = std::max(0, int(std::floor(centre - support + 0.5)));
    const int high = std::min(sourceSize, int(std::floor(centre + support + 0.5)));

    Window window;
    std::vector<double> exact;
    double sum = 0.0;
    for (int x = low; x < high; ++x) {
        const double w = ResampleWeights::lanczos3((x + 0.5 - centre) / filterScale);
        exact.push_back(w);
        sum += w;
    }
    if (exact.empty() || sum <= 0.0) {
        // Only reachable for a centre outside the source: the nearest edge pixel stands in.
        window.first = std::clamp(int(centre), 0, sourceSize - 1);
        window.weights = {ResampleWeights::one};
        return window;
    }

    // Quantise, then give the rounding remainder to the largest weight, so a flat area stays
    // exactly flat.
    window.first = low;
    int total = 0;
    std::size_t largest = 0;
    for (std::size_t k = 0; k < exact.size(); ++k) {
        const int q = int(std::lround(exact[k] / sum * ResampleWeights::one));
        window.weights.push_back(q);
        total += q;
        if (exact[k] > exact[largest])
            largest = k;
    }
    window.weights[largest] += ResampleWeights::one - total;

    // Zero weights at the ends cost time and, on an aligned grid, are most of the window.
    auto begin = std::find_if(window.weights.begin(), window.weights.end(),
                              [](std::int32_t w) { return w != 0; });
    window.first += int(begin - window.weights.begin());
    window.weights.erase(window.weights.begin(), begin);
    while (!window.weights.empty() && window.weights.back() == 0)
        window.weights.pop_back();
    return window;
}

} // namespace

ResampleWeights::ResampleWeights(int sourceSize, int destinationSize, double scale, Windows windows,
                                 int tapMultiple)
    : m_sourceSize(sourceSize) {
    if (sourceSize <= 0 || destinationSize <= 0 || !(scale > 0.0) || tapMultiple <= 0)
        return;

    std::vector<Window> computed;
    computed.reserve(std::size_t(destinationSize));
    std::size_t longest = 1;
    for (int i = 0; i < destinationSize; ++i) {
        computed.push_back(windowFor(i, sourceSize, scale));
        longest = std::max(longest, computed.back().weights.size());
    }
    m_taps = int((longest + std::size_t(tapMultiple) - 1) / std::size_t(tapMultiple)) * tapMultiple;

    m_first.resize(std::size_t(destinationSize));
    m_count.resize(std::size_t(destinationSize));
    m_weights.assign(std::size_t(destinationSize) * std::size_t(m_taps), 0);
    for (int i = 0; i < destinationSize; ++i) {
        const Window &window = computed[std::size_t(i)];
        int first = window.first;
        int offset = 0;
        const bool uniform = windows == Windows::Uniform;
        if (uniform && first + m_taps > sourceSize) {
            // Slide the window back inside the source, with leading zero weights, so that a
            // whole-register read never leaves the row.
            const int slid = std::max(0, sourceSize - m_taps);
            offset = first - slid;
            first = slid;
        }
        m_first[std::size_t(i)] = first;
        m_count[std::size_t(i)] = uniform ? m_taps : int(window.weights.size());
        std::int16_t *out = m_weights.data() + std::size_t(i) * std::size_t(m_taps);
        for (std::size_t k = 0; k < window.weights.size(); ++k)
            out[std::size_t(offset) + k] = std::int16_t(window.weights[k]);
    }
}

bool ResampleWeights::isIdentity() const {
    if (destinationSize() != m_sourceSize)
        return false;
    for (int i = 0; i < destinationSize(); ++i) {
        const std::int16_t *w = weights(i);
        for (int k = 0; k < m_taps; ++k) {
            const bool centre = first(i) + k == i;
            if (w[k] != (centre ? one : 0))
                return false;
        }
    }
    return true;
}

double ResampleWeights::lanczos3(double x) {
    if (x == 0.0)
        return 1.0;
    if (x <= -3.0 || x >= 3.0)
        return 0.0;
    // sin(3a) = 3 sin(a) - 4 sin(a)^3 spares the second sine of every tap.
    const double a = std::numbers::pi * x / 3.0;
    const double s = std::sin(a);
    return s * (3.0 * s - 4.0 * s * s * s) / (3.0 * a * a);
}
