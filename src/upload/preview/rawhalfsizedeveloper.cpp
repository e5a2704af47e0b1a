// SPDX-License-Identifier: MIT
#include "rawhalfsizedeveloper.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <libraw/libraw.h>
#include <numeric>

namespace {

// LibRaw's histogram: 16-bit values in bins of eight.
constexpr int histogramBins = 0x2000;

// The sRGB curve, the same as every other preview gets.
double srgbEncoded(double linear) {
    return linear <= 0.0031308 ? 12.92 * linear : 1.055 * std::pow(linear, 1.0 / 2.4) - 0.055;
}

std::uint16_t clipped(float value) {
    return std::uint16_t(std::clamp(int(value), 0, 65535));
}

} // namespace

bool RawHalfSizeDeveloper::supports(LibRaw &raw) {
    const libraw_rawdata_t &data = raw.imgdata.rawdata;
    const libraw_image_sizes_t &sizes = data.sizes;
    // Phase One's raws need corrections LibRaw applies while it copies them.
    const char *decoder = raw.unpack_function_name();
    if (decoder == nullptr || std::strncmp(decoder, "phase_one", 9) == 0 ||
        std::strncmp(decoder, "canon_600", 9) == 0)
        return false;
    // Filters above 1000 describe a mosaic repeating every two columns; with three colours the
    // second green of each cell is told apart as colour 3.
    return data.raw_image != nullptr && data.iparams.filters > 1000 && data.iparams.colors == 3 &&
           data.ioparams.fuji_width == 0 && sizes.width >= 2 && sizes.height >= 2 &&
           sizes.raw_pitch == 2u * sizes.raw_width &&
           int(sizes.left_margin) + sizes.width <= sizes.raw_width &&
           int(sizes.top_margin) + sizes.height <= sizes.raw_height;
}

RawHalfSizeDeveloper::RawHalfSizeDeveloper(LibRaw &raw)
    : m_raw(raw) {
    const libraw_rawdata_t &data = raw.imgdata.rawdata;
    m_size = QSize((data.sizes.width + 1) / 2, (data.sizes.height + 1) / 2);

    // The camera's white balance when it recorded one, else its daylight balance; the weakest
    // channel keeps its level, so clipped highlights stay white instead of turning pink.
    const libraw_colordata_t &colour = data.color;
    std::array<float, 4> balance{};
    for (int c = 0; c < 4; ++c)
        balance[std::size_t(c)] = colour.as_shot_wb_applied ? 1.0f
                                  : colour.cam_mul[0] > 0 && colour.cam_mul[2] > 0
                                      ? colour.cam_mul[c]
                                      : colour.pre_mul[c];
    if (!(balance[1] > 0))
        balance[1] = 1;
    if (!(balance[3] > 0))
        balance[3] = balance[1];
    for (float &b : balance)
        if (!(b > 0))
            b = 1;
    const float weakest = *std::min_element(balance.begin(), balance.end());

    // Colours repeat every eight rows at most, black patterns every cblack[4] rows.
    const unsigned blackRows = colour.cblack[4] > 0 && colour.cblack[5] > 0 ? colour.cblack[4] : 1;
    const unsigned phases = std::lcm(8u, std::min(blackRows, 1024u));
    m_phases = phases <= 64 ? int(phases) : 0;
    const std::size_t width = data.sizes.width;
    m_colours.resize(width * std::size_t(std::max(m_phases, 1)));
    m_blacks.resize(m_colours.size());
    for (int phase = 0; phase < m_phases; ++phase)
        for (std::size_t col = 0; col < width; ++col) {
            m_colours[std::size_t(phase) * width + col] = std::uint8_t(colourAt(phase, int(col)));
            m_blacks[std::size_t(phase) * width + col] = blackAt(phase, int(col));
        }

    // The white level over black, lowered to the brightest value the photo holds when that is
    // close to it: some cameras clip below the level they declare.
    const auto [brightest, commonBlack] = dataRange();
    int white = int(colour.maximum) - commonBlack;
    libraw_decoder_info_t decoder{};
    raw.get_decoder_info(&decoder);
    const float threshold = raw.imgdata.params.adjust_maximum_thr;
    if (!(decoder.decoder_flags & LIBRAW_DECODER_FIXEDMAXC) && threshold > 0.00001f &&
        brightest > 0 && brightest < white && brightest > float(white) * std::min(threshold, 1.0f))
        white = brightest;
    // The mean of a cell's samples of a colour and its scale in one factor: no division for
    // every cell.
    for (std::size_t c = 0; c < 4; ++c) {
        const float scale = white > 0 ? balance[c] / weakest * 65535.0f / float(white) : 1.0f;
        for (std::size_t n = 1; n < m_cellScale[c].size(); ++n)
            m_cellScale[c][n] = scale / float(n);
    }

    m_convert = data.ioparams.raw_color == 0;
    std::memcpy(m_matrix, colour.rgb_cam, sizeof m_matrix);
}

int RawHalfSizeDeveloper::colourAt(int row, int col) const {
    const unsigned filters = m_raw.imgdata.rawdata.iparams.filters;
    return int(filters >> ((((row << 1) & 14) | (col & 1)) << 1) & 3);
}

int RawHalfSizeDeveloper::blackAt(int row, int col) const {
    // The file's levels are taken as they come: wide sums, so that no value overflows.
    const libraw_colordata_t &colour = m_raw.imgdata.rawdata.color;
    std::int64_t black = std::int64_t(colour.black) + colour.cblack[colourAt(row, col)];
    // A repeating pattern of levels on top of the per-colour ones, as DNG's BlackLevel allows.
    const unsigned rows = colour.cblack[4];
    const unsigned cols = colour.cblack[5];
    if (rows > 0 && cols > 0 && std::uint64_t(rows) * cols <= LIBRAW_CBLACK_SIZE - 6)
        black += colour.cblack[6 + unsigned(row) % rows * cols + unsigned(col) % cols];
    return int(std::min<std::int64_t>(black, 65535));
}

RawHalfSizeDeveloper::RowPattern RawHalfSizeDeveloper::patternOf(int row) {
    const std::size_t width = m_raw.imgdata.rawdata.sizes.width;
    if (m_phases > 0) {
        const std::size_t at = std::size_t(row % m_phases) * width;
        return {m_colours.data() + at, m_blacks.data() + at};
    }
    if (m_patternRow != row) {
        for (std::size_t col = 0; col < width; ++col) {
            m_colours[col] = std::uint8_t(colourAt(row, int(col)));
            m_blacks[col] = blackAt(row, int(col));
        }
        m_patternRow = row;
    }
    return {m_colours.data(), m_blacks.data()};
}

std::pair<int, int> RawHalfSizeDeveloper::dataRange() {
    const libraw_image_sizes_t &sizes = m_raw.imgdata.rawdata.sizes;
    const ushort *raw = m_raw.imgdata.rawdata.raw_image;
    int brightest = 0;
    int lowestBlack = 65535;
    for (int row = 0; row < sizes.height; ++row) {
        const ushort *line =
            raw + std::size_t(row + sizes.top_margin) * sizes.raw_width + sizes.left_margin;
        const std::int32_t *black = patternOf(row).black;
        for (int col = 0; col < sizes.width; ++col) {
            brightest = std::max(brightest, int(line[col]) - black[col]);
            lowestBlack = std::min(lowestBlack, int(black[col]));
        }
    }
    return {brightest, lowestBlack};
}

void RawHalfSizeDeveloper::gatherCells(int cellRow, std::vector<Cell> &cells) {
    const libraw_image_sizes_t &sizes = m_raw.imgdata.rawdata.sizes;
    const ushort *raw = m_raw.imgdata.rawdata.raw_image;
    std::fill(cells.begin(), cells.end(), Cell());
    // A cell past an odd edge borrows the row or column before it, which has the same colours.
    const int top = cellRow * 2;
    const int rows[2] = {top, top + 1 < sizes.height ? top + 1 : top - 1};
    for (const int row : rows) {
        const ushort *line =
            raw + std::size_t(row + sizes.top_margin) * sizes.raw_width + sizes.left_margin;
        const RowPattern pattern = patternOf(row);
        for (int col = 0; col < m_size.width() * 2; ++col) {
            const int source = col < sizes.width ? col : col - 2;
            const std::size_t colour = pattern.colour[source];
            Cell &cell = cells[std::size_t(col / 2)];
            cell.sum[colour] +=
                std::uint32_t(std::max(0, int(line[source]) - pattern.black[source]));
            ++cell.count[colour];
        }
    }
}

void RawHalfSizeDeveloper::developRow(int cellRow, std::vector<Cell> &cells,
                                      std::vector<std::uint16_t> &rgb) {
    gatherCells(cellRow, cells);
    for (std::size_t x = 0; x < cells.size(); ++x) {
        const Cell &cell = cells[x];
        std::array<int, 4> level{};
        for (std::size_t c = 0; c < 4; ++c)
            level[c] = clipped(float(cell.sum[c]) * m_cellScale[c][cell.count[c]]);
        // The two greens of a cell make one.
        const int green = cell.count[1] > 0 && cell.count[3] > 0 ? (level[1] + level[3]) / 2
                          : cell.count[1] > 0                    ? level[1]
                                                                 : level[3];
        const float camera[3] = {float(level[0]), float(green), float(level[2])};
        for (std::size_t c = 0; c < 3; ++c) {
            if (!m_convert) {
                rgb[x * 3 + c] = std::uint16_t(camera[c]);
                continue;
            }
            float value = 0;
            for (std::size_t k = 0; k < 3; ++k)
                value += m_matrix[c][k] * camera[k];
            rgb[x * 3 + c] = clipped(value);
        }
    }
}

std::array<std::uint8_t, 65536> RawHalfSizeDeveloper::outputCurve(int white) const {
    std::array<std::uint8_t, 65536> curve{};
    const double full = double(white) * 8;
    for (std::size_t i = 0; i < curve.size(); ++i) {
        const double linear = double(i) / full;
        curve[i] = linear >= 1.0
                       ? 255
                       : std::uint8_t(std::min(255.0, std::floor(srgbEncoded(linear) * 256)));
    }
    return curve;
}

void RawHalfSizeDeveloper::develop(const std::function<void(const std::uint8_t *)> &row) {
    std::vector<Cell> cells(std::size_t(m_size.width()));
    std::vector<std::uint16_t> rgb(std::size_t(m_size.width()) * 3);

    // LibRaw's automatic brightness: the level that one percent of the picture reaches in its
    // brightest channel becomes white.
    std::vector<std::array<std::uint32_t, 3>> histogram(histogramBins);
    for (int y = 0; y < m_size.height(); ++y) {
        developRow(y, cells, rgb);
        for (std::size_t i = 0; i < rgb.size(); ++i)
            ++histogram[rgb[i] >> 3][i % 3];
    }
    const auto brightest = std::uint64_t(double(m_size.width()) * m_size.height() *
                                         double(m_raw.imgdata.params.auto_bright_thr));
    int white = 0;
    for (std::size_t c = 0; c < 3; ++c) {
        std::uint64_t total = 0;
        int level = histogramBins;
        while (--level > 32)
            if ((total += histogram[std::size_t(level)][c]) > brightest)
                break;
        white = std::max(white, level);
    }
    const std::array<std::uint8_t, 65536> curve = outputCurve(white);

    std::vector<std::uint8_t> out(rgb.size());
    for (int y = 0; y < m_size.height(); ++y) {
        developRow(y, cells, rgb);
        for (std::size_t i = 0; i < rgb.size(); ++i)
            out[i] = curve[rgb[i]];
        row(out.data());
    }
}
