// SPDX-License-Identifier: MIT
#include "jpegstreamdecoder.h"

#include "jpegcoefficientstore.h"
#include "jpegsource.h"

#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <jpeglib.h>
#include <jerror.h>
#include <turbojpeg.h>

namespace {

// No camera writes more scans than this; a hostile file could make each one cost a pass.
constexpr int largestScanCount = 500;

struct Decoding {
    jpeg_decompress_struct decompressor{};
    jpeg_error_mgr errors{};
    jpeg_progress_mgr progress{};
    std::jmp_buf failed{};
    bool warned = false;
    bool anyWarningFails = false;
};

Decoding &decodingOf(j_common_ptr common) {
    // The error manager is the first thing libjpeg is given, and Decoding holds it.
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
    if (decoding.anyWarningFails || common->err->msg_code != JWRN_EXTRANEOUS_DATA)
        jumpOut(common);
}

void limitScans(j_common_ptr common) {
    auto *decompressor = reinterpret_cast<j_decompress_ptr>(common);
    if (decompressor->input_scan_number > largestScanCount)
        jumpOut(common);
}

// The TJSAMP layout the components' sampling factors make, as TurboJPEG names them; -1 for
// one that no plane set has.
int subsamplingOf(const jpeg_decompress_struct &d) {
    if (d.num_components == 1 && d.jpeg_color_space == JCS_GRAYSCALE)
        return TJSAMP_GRAY;
    constexpr std::array<int, TJ_NUMSAMP> samplesPerPixel{3, 3, 3, 1, 3, 3};
    const bool cmyk = d.jpeg_color_space == JCS_YCCK || d.jpeg_color_space == JCS_CMYK;
    const jpeg_component_info *components = d.comp_info;
    const auto othersAre = [&](int across, int down, int fourthAcross, int fourthDown) {
        for (int k = 1; k < d.num_components; ++k) {
            const bool fourth = cmyk && k == 3;
            if (components[k].h_samp_factor != (fourth ? fourthAcross : across) ||
                components[k].v_samp_factor != (fourth ? fourthDown : down))
                return false;
        }
        return true;
    };
    for (int i = 0; i < TJ_NUMSAMP; ++i) {
        const int pixel = samplesPerPixel[std::size_t(i)];
        if (d.num_components != pixel && !(cmyk && pixel == 3 && d.num_components == 4))
            continue;
        const int across = tjMCUWidth[i] / 8;
        const int down = tjMCUHeight[i] / 8;
        if (components[0].h_samp_factor == across && components[0].v_samp_factor == down &&
            othersAre(1, 1, across, down))
            return i;
        // 4:2:2 and 4:4:0 written with the luma at 2 x 2 and the chroma at 1 x 2 or 2 x 1.
        if (components[0].h_samp_factor == 2 && components[0].v_samp_factor == 2 &&
            (i == TJSAMP_422 || i == TJSAMP_440) && othersAre(down, across, 2, 2))
            return i;
        // 4:4:4 with every component at the same factors above 1.
        if (i == TJSAMP_444 && d.num_components > 1 &&
            components[0].h_samp_factor * components[0].v_samp_factor <=
                D_MAX_BLOCKS_IN_MCU / pixel &&
            othersAre(components[0].h_samp_factor, components[0].v_samp_factor,
                      components[0].h_samp_factor, components[0].v_samp_factor))
            return i;
    }
    return -1;
}

int colorspaceOf(J_COLOR_SPACE space) {
    switch (space) {
    case JCS_GRAYSCALE:
        return TJCS_GRAY;
    case JCS_RGB:
        return TJCS_RGB;
    case JCS_YCbCr:
        return TJCS_YCbCr;
    case JCS_CMYK:
        return TJCS_CMYK;
    case JCS_YCCK:
        return TJCS_YCCK;
    default:
        return -1;
    }
}

// One call's rows of a component, each handed on as a row of its plane, `extent` samples wide
// (the last one repeated where the decode is narrower). libjpeg decodes subsampled chroma at a
// larger DCT scale than luma where that spares it upsampling, so its rows may come at twice (or
// four times) the plane's resolution; they are then averaged down, block by block, in `out`.
void handRows(const jpeg_component_info &component, JSAMPARRAY rows, int rowCount, int call,
              int lumaScale, QSize extent, JSAMPROW out, const JpegStreamDecoder::RowSink &sink,
              int plane) {
    const int factor = std::max(1, component.DCT_scaled_size / lumaScale);
    const int available = int(component.width_in_blocks) * component.DCT_scaled_size / factor;
    const int width = std::min(extent.width(), available);
    const int area = factor * factor;
    for (int r = 0; r + factor <= rowCount; r += factor) {
        const int y = (call * rowCount + r) / factor;
        if (y >= extent.height() || width < 1)
            break;
        if (factor == 1) {
            std::memcpy(out, rows[r], std::size_t(width));
        } else {
            for (int x = 0; x < width; ++x) {
                int sum = 0;
                for (int dy = 0; dy < factor; ++dy)
                    for (int dx = 0; dx < factor; ++dx)
                        sum += rows[r + dy][x * factor + dx];
                out[x] = JSAMPLE((sum + area / 2) / area);
            }
        }
        std::memset(out + width, out[width - 1], std::size_t(extent.width() - width));
        sink(plane, out);
    }
}

// From the source's first byte through the header, then `work`. Everything that may leave by
// longjmp is in here and in `work`, with nothing that needs destroying: row buffers come from
// libjpeg's own pools.
template <typename Work>
bool readThen(Decoding &decoding, JpegCoefficientStore &store, const JpegSource &jpeg,
              Work &work) {
    jpeg_decompress_struct &d = decoding.decompressor;
    if (setjmp(decoding.failed))
        return false;
    jpeg.install(d);
    store.install(d);
    d.progress = &decoding.progress;
    if (jpeg_read_header(&d, TRUE) != JPEG_HEADER_OK)
        return false;
    return work(d);
}

template <typename Work>
bool decode(const JpegSource &jpeg, bool anyWarningFails, Work work) {
    JpegCoefficientStore store(JpegStreamDecoder::residentCoefficientBytes);
    Decoding decoding;
    decoding.anyWarningFails = anyWarningFails;
    decoding.decompressor.err = jpeg_std_error(&decoding.errors);
    decoding.errors.error_exit = &jumpOut;
    decoding.errors.emit_message = &noteMessage;
    decoding.progress.progress_monitor = &limitScans;
    if (setjmp(decoding.failed)) {
        jpeg_destroy_decompress(&decoding.decompressor);
        return false;
    }
    jpeg_create_decompress(&decoding.decompressor);
    const bool ok = readThen(decoding, store, jpeg, work);
    jpeg_destroy_decompress(&decoding.decompressor);
    return ok && (!decoding.warned || jpeg.endsWithEndOfImage());
}

} // namespace

std::optional<JpegStreamDecoder::Header> JpegStreamDecoder::readHeader(const JpegSource &jpeg) {
    Header header;
    const bool ok = decode(jpeg, true, [&](jpeg_decompress_struct &d) {
        header.size = QSize(int(std::min<JDIMENSION>(d.image_width, JPEG_MAX_DIMENSION)),
                            int(std::min<JDIMENSION>(d.image_height, JPEG_MAX_DIMENSION)));
        header.subsampling = subsamplingOf(d);
        header.colorspace = colorspaceOf(d.jpeg_color_space);
        return true;
    });
    if (!ok || header.subsampling < 0 || header.colorspace < 0 || header.size.width() < 1 ||
        header.size.height() < 1)
        return std::nullopt;
    return header;
}

bool JpegStreamDecoder::decodeRows(const JpegSource &jpeg, int eighths, QSize scaledSize,
                                   int subsampling, const RowSink &sink) {
    return decode(jpeg, false, [&](jpeg_decompress_struct &d) {
        if (d.num_components != JpegPlanes::planeCount(subsampling))
            return false;
        d.raw_data_out = TRUE;
        d.do_fancy_upsampling = FALSE;
        d.do_block_smoothing = FALSE;
        d.out_color_space = d.jpeg_color_space;
        d.dct_method = JDCT_ISLOW;
        d.scale_num = unsigned(eighths);
        d.scale_denom = 8;
        jpeg_start_decompress(&d);
        if (QSize(int(d.output_width), int(d.output_height)) != scaledSize)
            return false;

        // From libjpeg's own pools, as everything here: nothing to free on the way out.
        JSAMPARRAY rows[MAX_COMPONENTS] = {};
        int componentRows[MAX_COMPONENTS] = {};
        QSize extents[MAX_COMPONENTS] = {};
        for (int c = 0; c < d.num_components; ++c) {
            const jpeg_component_info &component = d.comp_info[c];
            componentRows[c] = component.v_samp_factor * component.DCT_scaled_size;
            rows[c] = (*d.mem->alloc_sarray)(
                reinterpret_cast<j_common_ptr>(&d), JPOOL_IMAGE,
                component.width_in_blocks * JDIMENSION(component.DCT_scaled_size),
                JDIMENSION(componentRows[c]));
            extents[c] = JpegPlanes::planeSize(scaledSize, subsampling, c);
        }
        const JSAMPROW out = (*d.mem->alloc_sarray)(
            reinterpret_cast<j_common_ptr>(&d), JPOOL_IMAGE,
            JDIMENSION(std::max(1, scaledSize.width())), 1)[0];
        const JDIMENSION rowsPerCall = JDIMENSION(d.max_v_samp_factor * d.min_DCT_scaled_size);
        for (int call = 0; d.output_scanline < d.output_height; ++call) {
            if (jpeg_read_raw_data(&d, rows, rowsPerCall) == 0)
                return false;
            for (int c = 0; c < d.num_components; ++c)
                handRows(d.comp_info[c], rows[c], componentRows[c], call, d.min_DCT_scaled_size,
                         extents[c], out, sink, c);
        }
        jpeg_finish_decompress(&d);
        return true;
    });
}

std::optional<JpegPlanes> JpegStreamDecoder::decodePlanes(const JpegSource &jpeg, int eighths,
                                                          QSize scaledSize, int subsampling) {
    JpegPlanes planes(scaledSize, subsampling);
    int rowsIn[3] = {};
    const bool ok = decodeRows(jpeg, eighths, scaledSize, subsampling,
                               [&](int plane, const std::uint8_t *row) {
                                   std::memcpy(planes.data(plane) + std::ptrdiff_t(rowsIn[plane]++) *
                                                                        planes.stride(plane),
                                               row, std::size_t(planes.planeSize(plane).width()));
                               });
    for (int i = 0; ok && i < planes.planeCount(); ++i)
        if (rowsIn[i] != planes.planeSize(i).height())
            return std::nullopt;
    if (!ok)
        return std::nullopt;
    // The codec's padding past the picture is the encoder's to read, when the planes go to it
    // as they are.
    planes.replicateEdges();
    return planes;
}

std::optional<std::vector<std::uint8_t>>
JpegStreamDecoder::decodePixels(const JpegSource &jpeg, int eighths, QSize scaledSize,
                                bool cmyk) {
    const std::size_t channels = cmyk ? 4 : 3;
    const std::size_t stride = std::size_t(scaledSize.width()) * channels;
    std::vector<std::uint8_t> pixels(stride * std::size_t(scaledSize.height()));
    const bool ok = decode(jpeg, false, [&](jpeg_decompress_struct &d) {
        d.out_color_space = cmyk ? JCS_CMYK : JCS_RGB;
        d.dct_method = JDCT_ISLOW;
        d.scale_num = unsigned(eighths);
        d.scale_denom = 8;
        jpeg_start_decompress(&d);
        if (QSize(int(d.output_width), int(d.output_height)) != scaledSize ||
            std::size_t(d.output_components) != channels)
            return false;
        while (d.output_scanline < d.output_height) {
            JSAMPROW row = pixels.data() + std::size_t(d.output_scanline) * stride;
            if (jpeg_read_scanlines(&d, &row, 1) != 1)
                return false;
        }
        jpeg_finish_decompress(&d);
        return true;
    });
    if (!ok)
        return std::nullopt;
    return pixels;
}
