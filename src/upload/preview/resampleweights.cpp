// SPDX-License-Identifier: MIT
#include "resampleweights.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

// What one window's computation needs, kept from one destination pixel to the next: a preview
// has thousands of them, and allocating for each was most of the cost of a small picture.
struct Scratch {
    std::vector<double> exact;
    std::vector<std::int32_t> weights;
};

// One destination pixel: the filter centred on its centre, stretched by the scale when
// shrinking so that it also removes what the smaller grid cannot hold. Windows that run over an
// edge are cut there and renormalised. The weights land in scratch.weights; the result is the
// first source pixel they apply to.
int windowFor(int index, int sourceSize, double scale, Scratch &scratch) {
    const double filterScale = std::max(scale, 1.0);
    const double support = 3.0 * filterScale;
    const double centre = (index + 0.5) * scale;
    const int low = std::max(0, int(std::floor(centre - support + 0.5)));
    const int high = std::min(sourceSize, int(std::floor(centre + support + 0.5)));

    std::vector<double> &exact = scratch.exact;
    std::vector<std::int32_t> &weights = scratch.weights;
    exact.clear();
    weights.clear();
    double sum = 0.0;
    for (int x = low; x < high; ++x) {
        const double w = ResampleWeights::lanczos3((x + 0.5 - centre) / filterScale);
        exact.push_back(w);
        sum += w;
    }
    if (exact.empty() || sum <= 0.0) {
        // Only reachable for a centre outside the source: the nearest edge pixel stands in.
        weights.push_back(ResampleWeights::one);
        return std::clamp(int(centre), 0, sourceSize - 1);
    }

    // Quantise, then give the rounding remainder to the largest weight, so a flat area stays
    // exactly flat.
    int total = 0;
    std::size_t largest = 0;
    for (std::size_t k = 0; k < exact.size(); ++k) {
        const int q = int(std::lround(exact[k] / sum * ResampleWeights::one));
        weights.push_back(q);
        total += q;
        if (exact[k] > exact[largest])
            largest = k;
    }
    weights[largest] += ResampleWeights::one - total;

    // Zero weights at the ends cost time and, on an aligned grid, are most of the window.
    const auto begin =
        std::find_if(weights.begin(), weights.end(), [](std::int32_t w) { return w != 0; });
    const int first = low + int(begin - weights.begin());
    weights.erase(weights.begin(), begin);
    while (!weights.empty() && weights.back() == 0)
        weights.pop_back();
    return first;
}

} // namespace

ResampleWeights::ResampleWeights(int sourceSize, int destinationSize, double scale, Windows windows,
                                 int tapMultiple)
    : m_sourceSize(sourceSize) {
    if (sourceSize <= 0 || destinationSize <= 0 || !(scale > 0.0) || tapMultiple <= 0)
        return;

    // Every window's weights end to end first: the longest one decides the table's width.
    Scratch scratch;
    std::vector<std::int32_t> computed;
    std::vector<std::size_t> starts(std::size_t(destinationSize) + 1, 0);
    m_first.resize(std::size_t(destinationSize));
    std::size_t longest = 1;
    for (int i = 0; i < destinationSize; ++i) {
        m_first[std::size_t(i)] = windowFor(i, sourceSize, scale, scratch);
        computed.insert(computed.end(), scratch.weights.begin(), scratch.weights.end());
        starts[std::size_t(i) + 1] = computed.size();
        longest = std::max(longest, scratch.weights.size());
    }
    m_taps = int((longest + std::size_t(tapMultiple) - 1) / std::size_t(tapMultiple)) * tapMultiple;

    m_count.resize(std::size_t(destinationSize));
    m_weights.assign(std::size_t(destinationSize) * std::size_t(m_taps), 0);
    for (int i = 0; i < destinationSize; ++i) {
        const std::size_t begin = starts[std::size_t(i)];
        const std::size_t length = starts[std::size_t(i) + 1] - begin;
        int first = m_first[std::size_t(i)];
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
        m_count[std::size_t(i)] = uniform ? m_taps : int(length);
        std::int16_t *out = m_weights.data() + std::size_t(i) * std::size_t(m_taps);
        for (std::size_t k = 0; k < length; ++k)
            out[std::size_t(offset) + k] = std::int16_t(computed[begin + k]);
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
