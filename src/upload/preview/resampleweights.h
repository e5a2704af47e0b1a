// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

// The Lanczos-3 filter of one axis, quantised once per preview so the pixel loops only multiply
// and add integers. Destination pixel i reads `taps()` consecutive source pixels from `first(i)`
// with the weights at `weights(i)`, which sum to exactly `one`.
class ResampleWeights {
public:
    static constexpr int fractionBits = 14;
    static constexpr int one = 1 << fractionBits;

    // `scale` is the number of source pixels per destination pixel, with the two edges of the
    // axis aligned; it is passed in rather than derived from the sizes because a DCT-scaled or
    // half-size decode covers the photo at a factor that its rounded size does not tell.
    // Uniform windows all have the same length, a multiple of `tapMultiple`, and lie inside the
    // source, so a loop can read whole registers without a bound check; exact windows are as
    // short as their weights allow.
    enum class Windows { Exact, Uniform };
    ResampleWeights(int sourceSize, int destinationSize, double scale, Windows windows,
                    int tapMultiple = 1);

    int sourceSize() const { return m_sourceSize; }
    int destinationSize() const { return int(m_first.size()); }
    // The longest window; with uniform windows, the length of every one.
    int taps() const { return m_taps; }
    int first(int i) const { return m_first[std::size_t(i)]; }
    int count(int i) const { return m_count[std::size_t(i)]; }
    const std::int32_t *firsts() const { return m_first.data(); }
    const std::int16_t *weights(int i) const {
        return m_weights.data() + std::size_t(i) * std::size_t(m_taps);
    }
    // True when a uniform window would reach past the source; the caller then reads from a
    // copy of the row with a zero tail.
    bool readsPastSource() const { return m_first.empty() ? false : m_taps > m_sourceSize; }
    // True when every destination pixel is one source pixel with weight one.
    bool isIdentity() const;

    static double lanczos3(double x);

private:
    int m_sourceSize;
    int m_taps = 1;
    std::vector<std::int32_t> m_first;
    std::vector<std::int32_t> m_count;
    std::vector<std::int16_t> m_weights;
};
