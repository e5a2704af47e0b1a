// SPDX-License-Identifier: MIT
#pragma once

#include "resamplekernels.h"
#include "resampleweights.h"

#include <QSize>
#include <cstddef>
#include <cstdint>
#include <vector>

// Resamples one 8-bit plane with a separable Lanczos-3 filter, fed one source row at a time:
// each row is filtered horizontally as it arrives, into a ring just tall enough for one vertical
// window, and every destination row is written as soon as its last source row is in. So a
// decoder that produces rows never has to hold the whole source, and the rows are still in the
// cache when they are filtered.
class Resampler {
public:
    // `scaleX` and `scaleY` are source pixels per destination pixel (see ResampleWeights).
    // Destination row r goes to `destinationPixels` + r * `destinationStride`.
    Resampler(QSize source, QSize destination, double scaleX, double scaleY,
              std::uint8_t *destinationPixels, std::ptrdiff_t destinationStride,
              ResampleKernels kernels = ResampleKernels::best());
    Resampler(const Resampler &) = delete;
    Resampler &operator=(const Resampler &) = delete;
    Resampler(Resampler &&) = default;
    Resampler &operator=(Resampler &&) = default;

    // The next source row, in order: source.width() samples.
    void pushRow(const std::uint8_t *row);
    // True once every destination row has been written.
    bool isComplete() const { return m_nextOutput == m_vertical.destinationSize(); }

private:
    void writeRow(int index);

    ResampleKernels m_kernels;
    ResampleWeights m_horizontal;
    ResampleWeights m_vertical;
    std::uint8_t *m_destination;
    std::ptrdiff_t m_destinationStride;
    bool m_copiesRows;
    // Source rows that must be in before destination row i can be written.
    std::vector<int> m_rowsNeeded;
    int m_ringRows = 1;
    std::vector<std::int16_t> m_ring;
    std::vector<std::uint8_t> m_paddedRow;
    std::vector<const std::int16_t *> m_window;
    int m_rowsPushed = 0;
    int m_nextOutput = 0;
};
