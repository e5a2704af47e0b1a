// SPDX-License-Identifier: MIT
#pragma once

#include <QSize>
#include <array>
#include <cstdint>
#include <memory>

// A picture as a JPEG codec holds it: a luma plane and, unless it is grey, two chroma planes,
// smaller by the subsampling. Handing these from decoder to resampler to encoder spares a
// colour conversion each way. Planes are allocated to the codec's padded size, whole MCUs,
// because the encoder reads that far.
class JpegPlanes {
public:
    JpegPlanes() = default;
    // `subsampling` is a TJSAMP value; a grey picture has one plane.
    JpegPlanes(QSize size, int subsampling);

    QSize size() const { return m_size; }
    int subsampling() const { return m_subsampling; }
    int planeCount() const;
    // The picture's own extent of plane i, without the padding.
    QSize planeSize(int plane) const;
    int stride(int plane) const { return m_strides[std::size_t(plane)]; }
    std::uint8_t *data(int plane) { return m_planes[std::size_t(plane)].get(); }
    const std::uint8_t *data(int plane) const { return m_planes[std::size_t(plane)].get(); }
    // How many luma pixels one sample of plane i spans across and down.
    int horizontalFactor(int plane) const;
    int verticalFactor(int plane) const;

    // The same for planes of this size and layout not made (yet): what a decoder hands out row by
    // row.
    static int planeCount(int subsampling);
    static QSize planeSize(QSize size, int subsampling, int plane);
    static int horizontalFactor(int subsampling, int plane);
    static int verticalFactor(int subsampling, int plane);

    // Repeats the last column and row of every plane into its padding, so the encoder's edge
    // blocks carry no stray content that would cost bits or ring into the picture.
    void replicateEdges();

private:
    QSize m_size;
    int m_subsampling = -1;
    // Not zero-filled: the decoder or the resampler writes every sample.
    std::array<std::unique_ptr<std::uint8_t[]>, 3> m_planes;
    std::array<int, 3> m_strides{};
    std::array<int, 3> m_paddedHeights{};
};
