// SPDX-License-Identifier: MIT
#include "resampler.h"

#include <algorithm>
#include <cstring>

Resampler::Resampler(QSize source, QSize destination, double scaleX, double scaleY,
                     std::uint8_t *destinationPixels, std::ptrdiff_t destinationStride,
                     ResampleKernels kernels)
    : m_kernels(kernels)
    , m_horizontal(source.width(), destination.width(), scaleX, ResampleWeights::Windows::Uniform,
                   kernels.tapMultiple)
    , m_vertical(source.height(), destination.height(), scaleY, ResampleWeights::Windows::Exact)
    , m_destination(destinationPixels)
    , m_destinationStride(destinationStride)
    , m_copiesRows(m_horizontal.isIdentity() && m_vertical.isIdentity()) {
    const int rows = m_vertical.destinationSize();
    m_rowsNeeded.resize(std::size_t(rows));
    int needed = 0;
    for (int i = 0; i < rows; ++i) {
        // A later window may end before an earlier one; it then waits for the earlier one, and
        // the ring must still hold its first row by then.
        needed = std::max(needed, m_vertical.first(i) + m_vertical.count(i));
        m_rowsNeeded[std::size_t(i)] = needed;
        m_ringRows = std::max(m_ringRows, needed - m_vertical.first(i));
    }
    if (m_copiesRows)
        return;
    m_ring.resize(std::size_t(m_ringRows) * std::size_t(destination.width()));
    m_window.resize(std::size_t(m_vertical.taps()));
    if (m_horizontal.readsPastSource())
        m_paddedRow.assign(std::size_t(m_horizontal.taps()), 0);
}

void Resampler::pushRow(const std::uint8_t *row) {
    const int index = m_rowsPushed++;
    const int width = m_horizontal.destinationSize();
    if (m_copiesRows) {
        if (index < m_vertical.destinationSize()) {
            std::memcpy(m_destination + index * m_destinationStride, row, std::size_t(width));
            m_nextOutput = index + 1;
        }
        return;
    }
    if (isComplete())
        return; // rows below the last window change nothing

    const std::uint8_t *samples = row;
    if (!m_paddedRow.empty()) {
        std::memcpy(m_paddedRow.data(), row, std::size_t(m_horizontal.sourceSize()));
        samples = m_paddedRow.data();
    }
    std::int16_t *slot = m_ring.data() + std::size_t(index % m_ringRows) * std::size_t(width);
    m_kernels.horizontal(samples, slot, width, m_horizontal.firsts(), m_horizontal.weights(0),
                         m_horizontal.taps());

    while (m_nextOutput < m_vertical.destinationSize() &&
           m_rowsNeeded[std::size_t(m_nextOutput)] <= index + 1)
        writeRow(m_nextOutput++);
}

void Resampler::writeRow(int index) {
    const int width = m_horizontal.destinationSize();
    const int first = m_vertical.first(index);
    const int count = m_vertical.count(index);
    for (int k = 0; k < count; ++k)
        m_window[std::size_t(k)] =
            m_ring.data() + std::size_t((first + k) % m_ringRows) * std::size_t(width);
    m_kernels.vertical(m_window.data(), m_vertical.weights(index), count,
                       m_destination + index * m_destinationStride, width);
}
