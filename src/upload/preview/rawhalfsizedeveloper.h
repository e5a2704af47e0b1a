// SPDX-License-Identifier: MIT
#pragma once

#include <QSize>
#include <array>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

class LibRaw;

// Develops the unpacked data of a Bayer sensor at half size, one row at a time, the way LibRaw's
// own half-size processing does (each 2x2 cell one pixel, black subtracted, the camera's white
// balance, its colour matrix to sRGB, LibRaw's automatic brightness and the sRGB curve) but
// without LibRaw's working image. That image holds four 16-bit channels for every cell, as many
// bytes as the raw data itself, and LibRaw fills it while the raw is still there: a 61-megapixel
// raw would take twice 122 MB. Here only the raw data is held, read three times.
class RawHalfSizeDeveloper {
public:
    // Whether the unpacked raw is a plain RGB Bayer mosaic whose data this class can read;
    // others (X-Trans, linear and legacy layouts, Fuji's rotated sensors, Phase One's
    // corrections) keep LibRaw's processing.
    static bool supports(LibRaw &raw);

    explicit RawHalfSizeDeveloper(LibRaw &raw);

    // Each cell of the visible area, rounded up, like LibRaw's half-size image.
    QSize size() const { return m_size; }
    // Hands out every developed row, top to bottom, as packed 8-bit RGB.
    void develop(const std::function<void(const std::uint8_t *)> &row);

private:
    struct Cell {
        std::array<std::uint32_t, 4> sum{};
        std::array<std::uint8_t, 4> count{};
    };

    int colourAt(int row, int col) const;
    int blackAt(int row, int col) const;
    // The colours and black levels of one row of the visible area. They repeat every few rows,
    // so a row of each phase is worked out once; an unusually long pattern is done row by row.
    struct RowPattern {
        const std::uint8_t *colour;
        const std::int32_t *black;
    };
    RowPattern patternOf(int row);
    // The largest value over black anywhere in the visible area, and the smallest black.
    std::pair<int, int> dataRange();
    void gatherCells(int cellRow, std::vector<Cell> &cells);
    void developRow(int cellRow, std::vector<Cell> &cells, std::vector<std::uint16_t> &rgb);
    std::array<std::uint8_t, 65536> outputCurve(int white) const;

    LibRaw &m_raw;
    QSize m_size;
    // By colour and by how many samples of it a cell has (at most four): the factor from their
    // sum to the scaled level; zero samples give zero.
    std::array<std::array<float, 5>, 4> m_cellScale{};
    float m_matrix[3][4] = {};
    bool m_convert = true;
    int m_phases = 0;
    int m_patternRow = -1; // the row the patterns hold when rows are done one by one
    std::vector<std::uint8_t> m_colours;
    std::vector<std::int32_t> m_blacks;
};
