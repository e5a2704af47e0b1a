// SPDX-License-Identifier: MIT
#include "previewpngreader.h"

#include "exifreader.h"
#include "photometadata.h"
#include "previewgeometry.h"
#include "previewrgbscaler.h"

#include <QFile>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <png.h>
#include <span>
#include <vector>

namespace {

// Interlaced (Adam7) pictures come together only over seven passes across the whole picture,
// so they are decoded whole; photographs are not written that way, and those up to this size
// are still read.
constexpr qint64 largestInterlacedPixels = 8'000'000;
// What libpng may allocate for one ancillary chunk (an ICC profile, compressed text): a small
// file cannot ask for a decompression bomb's worth.
constexpr png_alloc_size_t largestChunkBytes = 8 * 1024 * 1024;

struct FileClose {
    void operator()(std::FILE *file) const { std::fclose(file); }
};

// libpng reports errors by longjmp to the last setjmp; warnings are of no interest.
[[noreturn]] void jumpOnError(png_structp png, png_const_charp) {
    png_longjmp(png, 1);
}
void ignoreWarning(png_structp, png_const_charp) {}

class PngReading {
public:
    explicit PngReading(std::FILE *file)
        : m_png(png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, &jumpOnError,
                                       &ignoreWarning)) {
        if (m_png == nullptr)
            return;
        m_info = png_create_info_struct(m_png);
        png_init_io(m_png, file);
        png_set_chunk_malloc_max(m_png, largestChunkBytes);
    }
    ~PngReading() { png_destroy_read_struct(&m_png, &m_info, nullptr); }
    PngReading(const PngReading &) = delete;
    PngReading &operator=(const PngReading &) = delete;

    bool isValid() const { return m_png != nullptr && m_info != nullptr; }
    png_structp png() const { return m_png; }
    png_infop info() const { return m_info; }

private:
    png_structp m_png = nullptr;
    png_infop m_info = nullptr;
};

// The only functions libpng may leave by longjmp: they hold nothing that needs destroying.
bool readHeader(png_structp png, png_infop info) {
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_read_info(png, info);
    png_set_expand(png); // palettes and low-depth grey to 8 bits, tRNS to alpha
    png_set_scale_16(png);
    png_set_gray_to_rgb(png);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    return true;
}

bool readRow(png_structp png, png_bytep row) {
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_read_row(png, row, nullptr);
    return true;
}

bool readWhole(png_structp png, png_bytepp rows) {
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_read_image(png, rows);
    return true;
}

// The data after the picture up to IEND: a file cut short there is incomplete too.
bool readEnd(png_structp png) {
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_read_end(png, nullptr);
    return true;
}

// One row of RGB or premultiplied-over-black RGBA to packed RGB.
void toRgb(const std::uint8_t *in, int channels, int width, std::uint8_t *out) {
    if (channels == 3) {
        std::copy(in, in + std::size_t(width) * 3, out);
        return;
    }
    for (int x = 0; x < width; ++x, in += 4, out += 3) {
        const unsigned alpha = in[3];
        for (int c = 0; c < 3; ++c)
            out[c] = std::uint8_t((in[c] * alpha + 127u) / 255u);
    }
}

// The orientation of an eXIf chunk and the profile of an iCCP chunk, when they come before the
// picture data, where PNG asks for them.
PhotoMetadata metadataOf(png_structp png, png_infop info) {
    PhotoMetadata metadata;
    png_uint_32 exifLength = 0;
    png_bytep exif = nullptr;
    if (png_get_eXIf_1(png, info, &exifLength, &exif) != 0 && exif != nullptr)
        metadata.orientation = PhotoMetadata::validOrientation(
            ExifReader(std::span<const std::uint8_t>(exif, exifLength)).orientation());
    png_charp name = nullptr;
    int compression = 0;
    png_bytep profile = nullptr;
    png_uint_32 profileLength = 0;
    if (png_get_iCCP(png, info, &name, &compression, &profile, &profileLength) != 0 &&
        profile != nullptr && profileLength > 0)
        metadata.iccProfile =
            QByteArray(reinterpret_cast<const char *>(profile), qsizetype(profileLength));
    return metadata;
}

} // namespace

std::optional<QByteArray> PreviewPngReader::createPreview(const QString &path) {
    const std::unique_ptr<std::FILE, FileClose> file(
        std::fopen(QFile::encodeName(path).constData(), "rb"));
    if (!file)
        return std::nullopt;
    PngReading reading(file.get());
    if (!reading.isValid() || !readHeader(reading.png(), reading.info()))
        return std::nullopt;
    png_structp png = reading.png();
    png_infop info = reading.info();
    const png_uint_32 width = png_get_image_width(png, info);
    const png_uint_32 height = png_get_image_height(png, info);
    const int channels = png_get_channels(png, info);
    // libpng has checked the sides against its own limits (a million pixels each); the
    // picture's area is checked against ours below, before any row is allocated.
    if (width == 0 || height == 0 || png_get_bit_depth(png, info) != 8 ||
        (channels != 3 && channels != 4))
        return std::nullopt;
    const QSize size{int(width), int(height)};
    const std::optional<QSize> target = PreviewGeometry::targetSize(size);
    if (!target)
        return std::nullopt;
    const std::size_t rowBytes = png_get_rowbytes(png, info);
    if (rowBytes != std::size_t(width) * std::size_t(channels))
        return std::nullopt;

    const PhotoMetadata metadata = metadataOf(png, info);
    PreviewRgbScaler scaler(size, *target);
    std::vector<std::uint8_t> rgb(std::size_t(width) * 3);
    if (png_get_interlace_type(png, info) == PNG_INTERLACE_NONE) {
        std::vector<std::uint8_t> row(rowBytes);
        for (png_uint_32 y = 0; y < height; ++y) {
            if (!readRow(png, row.data()))
                return std::nullopt;
            toRgb(row.data(), channels, size.width(), rgb.data());
            scaler.pushRow(rgb.data());
        }
    } else {
        if (qint64(width) * height > largestInterlacedPixels)
            return std::nullopt;
        std::vector<std::uint8_t> pixels(rowBytes * height);
        std::vector<png_bytep> rows(height);
        for (png_uint_32 y = 0; y < height; ++y)
            rows[y] = pixels.data() + std::size_t(y) * rowBytes;
        if (!readWhole(png, rows.data()))
            return std::nullopt;
        for (png_uint_32 y = 0; y < height; ++y) {
            toRgb(rows[y], channels, size.width(), rgb.data());
            scaler.pushRow(rgb.data());
        }
    }
    if (!readEnd(png))
        return std::nullopt;
    return scaler.encode(metadata);
}
