// SPDX-License-Identifier: MIT
#include "jpegplanes.h"

#include <cstring>
#include <turbojpeg.h>

JpegPlanes::JpegPlanes(QSize size, int subsampling)
    : m_size(size)
    , m_subsampling(subsampling) {
    for (int i = 0; i < planeCount(); ++i) {
        m_strides[std::size_t(i)] = tjPlaneWidth(i, size.width(), subsampling);
        m_paddedHeights[std::size_t(i)] = tjPlaneHeight(i, size.height(), subsampling);
        m_planes[std::size_t(i)] = std::make_unique_for_overwrite<std::uint8_t[]>(
            std::size_t(m_strides[std::size_t(i)]) * std::size_t(m_paddedHeights[std::size_t(i)]));
    }
}

int JpegPlanes::planeCount() const {
    return planeCount(m_subsampling);
}

int JpegPlanes::horizontalFactor(int plane) const {
    return horizontalFactor(m_subsampling, plane);
}

int JpegPlanes::verticalFactor(int plane) const {
    return verticalFactor(m_subsampling, plane);
}

QSize JpegPlanes::planeSize(int plane) const {
    return planeSize(m_size, m_subsampling, plane);
}

int JpegPlanes::planeCount(int subsampling) {
    if (subsampling < 0)
        return 0;
    return subsampling == TJSAMP_GRAY ? 1 : 3;
}

int JpegPlanes::horizontalFactor(int subsampling, int plane) {
    return plane == 0 ? 1 : tjMCUWidth[subsampling] / 8;
}

int JpegPlanes::verticalFactor(int subsampling, int plane) {
    return plane == 0 ? 1 : tjMCUHeight[subsampling] / 8;
}

QSize JpegPlanes::planeSize(QSize size, int subsampling, int plane) {
    const int across = horizontalFactor(subsampling, plane);
    const int down = verticalFactor(subsampling, plane);
    return {(size.width() + across - 1) / across, (size.height() + down - 1) / down};
}

void JpegPlanes::replicateEdges() {
    for (int i = 0; i < planeCount(); ++i) {
        const QSize used = planeSize(i);
        const int stride = m_strides[std::size_t(i)];
        std::uint8_t *pixels = data(i);
        for (int y = 0; y < used.height(); ++y) {
            std::uint8_t *row = pixels + std::ptrdiff_t(y) * stride;
            std::memset(row + used.width(), row[used.width() - 1],
                        std::size_t(stride - used.width()));
        }
        const std::uint8_t *last = pixels + std::ptrdiff_t(used.height() - 1) * stride;
        for (int y = used.height(); y < m_paddedHeights[std::size_t(i)]; ++y)
            std::memcpy(pixels + std::ptrdiff_t(y) * stride, last, std::size_t(stride));
    }
}
