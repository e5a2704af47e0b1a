// SPDX-License-Identifier: MIT
#include "progressivejpegdecoder.h"

#include "jpegcoefficientstore.h"

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <jpeglib.h>
#include <jerror.h>

namespace {

// No camera writes more scans than this; a hostile file could make each one cost a pass.
constexpr int largestScanCount = 500;

struct Decoding {
    jpeg_decompress_struct decompressor{};
    jpeg_error_mgr errors{};
    jpeg_progress_mgr progress{};
    std::jmp_buf failed{};
    bool warned = false;
};

Decoding &decodingOf(j_common_ptr common) {
    // The error manager is the first thing libjpeg is given, and Decoding starts with it.
    return *reinterpret_cast<Decoding *>(reinterpret_cast<char *>(common->err) -
                                         offsetof(Decoding, errors));
}

[[noreturn]] void jumpOut(j_common_ptr common) {
    std::longjmp(decodingOf(common).failed, 1);
}

void noteMessage(j_common_ptr common, int level) {
    if (level >= 0)
        return; // traces
    Decoding &decoding = decodingOf(common);
    decoding.warned = true;
    // Any warning but junk between markers means damaged or missing data, which gets no
    // preview: stop there rather than decode the rest of a picture that a few hundred bytes
    // claim is 85 megapixels.
    if (common->err->msg_code != JWRN_EXTRANEOUS_DATA)
        jumpOut(common);
}

void limitScans(j_common_ptr common) {
    auto *decompressor = reinterpret_cast<j_decompress_ptr>(common);
    if (decompressor->input_scan_number > largestScanCount)
        jumpOut(common);
}

// One call's rows of a component into its plane. libjpeg decodes subsampled chroma at a larger
// DCT scale than luma where that spares it upsampling, so its rows may come at twice (or four
// times) the plane's resolution; they are then averaged down, block by block.
void copyRows(const jpeg_component_info &component, JSAMPARRAY rows, int rowCount, int call,
              int lumaScale, JpegPlanes &planes, int plane) {
    const int factor = std::max(1, component.DCT_scaled_size / lumaScale);
    const QSize extent = planes.planeSize(plane);
    const int available = int(component.width_in_blocks) * component.DCT_scaled_size / factor;
    const int width = std::min(extent.width(), available);
    const int area = factor * factor;
    for (int r = 0; r + factor <= rowCount; r += factor) {
        const int y = (call * rowCount + r) / factor;
        if (y >= extent.height())
            break;
        std::uint8_t *out = planes.data(plane) + std::ptrdiff_t(y) * planes.stride(plane);
        if (factor == 1) {
            std::memcpy(out, rows[r], std::size_t(width));
            continue;
        }
        for (int x = 0; x < width; ++x) {
            int sum = 0;
            for (int dy = 0; dy < factor; ++dy)
                for (int dx = 0; dx < factor; ++dx)
                    sum += rows[r + dy][x * factor + dx];
            out[x] = std::uint8_t((sum + area / 2) / area);
        }
    }
}

// Everything that may leave by longjmp is in here, with nothing that needs destroying: the row
// buffers come from libjpeg's own pools.
bool decode(Decoding &decoding, JpegCoefficientStore &store, std::span<const std::uint8_t> jpeg,
            int eighths, JpegPlanes &planes) {
    jpeg_decompress_struct &d = decoding.decompressor;
    if (setjmp(decoding.failed))
        return false;
    jpeg_mem_src(&d, jpeg.data(), static_cast<unsigned long>(jpeg.size()));
    store.install(d);
    d.progress = &decoding.progress;
    if (jpeg_read_header(&d, TRUE) != JPEG_HEADER_OK || !d.progressive_mode ||
        d.num_components != planes.planeCount())
        return false;
    d.raw_data_out = TRUE;
    d.do_fancy_upsampling = FALSE;
    d.do_block_smoothing = FALSE;
    d.out_color_space = d.jpeg_color_space;
    d.dct_method = JDCT_ISLOW;
    d.scale_num = unsigned(eighths);
    d.scale_denom = 8;
    jpeg_start_decompress(&d);

    JSAMPARRAY rows[MAX_COMPONENTS] = {};
    int componentRows[MAX_COMPONENTS] = {};
    for (int c = 0; c < d.num_components; ++c) {
        const jpeg_component_info &component = d.comp_info[c];
        componentRows[c] = component.v_samp_factor * component.DCT_scaled_size;
        rows[c] = (*d.mem->alloc_sarray)(reinterpret_cast<j_common_ptr>(&d), JPOOL_IMAGE,
                                         component.width_in_blocks * JDIMENSION(component.DCT_scaled_size),
                                         JDIMENSION(componentRows[c]));
    }
    const JDIMENSION rowsPerCall = JDIMENSION(d.max_v_samp_factor * d.min_DCT_scaled_size);
    for (int call = 0; d.output_scanline < d.output_height; ++call) {
        if (jpeg_read_raw_data(&d, rows, rowsPerCall) == 0)
            return false;
        for (int c = 0; c < d.num_components; ++c)
            copyRows(d.comp_info[c], rows[c], componentRows[c], call, d.min_DCT_scaled_size,
                     planes, c);
    }
    jpeg_finish_decompress(&d);
    return true;
}

} // namespace

bool ProgressiveJpegDecoder::isProgressive(std::span<const std::uint8_t> jpeg) {
    // Marker segments from SOI on, each with its length, up to the first frame.
    std::size_t at = 2;
    while (at + 4 <= jpeg.size()) {
        if (jpeg[at] != 0xFF)
            return false;
        const std::uint8_t marker = jpeg[at + 1];
        if (marker == 0xFF) {
            ++at; // fill byte
            continue;
        }
        if (marker == 0xC2)
            return true;
        if ((marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 &&
             marker != 0xCC) ||
            marker == 0xDA)
            return false;
        at += 2 + ((std::size_t(jpeg[at + 2]) << 8) | jpeg[at + 3]);
    }
    return false;
}

std::optional<JpegPlanes> ProgressiveJpegDecoder::decodePlanes(std::span<const std::uint8_t> jpeg,
                                                               int eighths, QSize scaledSize,
                                                               int subsampling) {
    JpegPlanes planes(scaledSize, subsampling);
    JpegCoefficientStore store(residentCoefficientBytes);
    Decoding decoding;
    decoding.decompressor.err = jpeg_std_error(&decoding.errors);
    decoding.errors.error_exit = &jumpOut;
    decoding.errors.emit_message = &noteMessage;
    decoding.progress.progress_monitor = &limitScans;
    if (setjmp(decoding.failed)) {
        jpeg_destroy_decompress(&decoding.decompressor);
        return std::nullopt;
    }
    jpeg_create_decompress(&decoding.decompressor);
    const bool ok = decode(decoding, store, jpeg, eighths, planes);
    jpeg_destroy_decompress(&decoding.decompressor);
    const bool complete = jpeg.size() >= 2 && jpeg[jpeg.size() - 2] == 0xFF &&
                          jpeg[jpeg.size() - 1] == 0xD9;
    if (!ok || (decoding.warned && !complete))
        return std::nullopt;
    return planes;
}
