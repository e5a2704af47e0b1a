// SPDX-License-Identifier: MIT
#include "previewtiffreader.h"

#include "photometadata.h"
#include "previewgeometry.h"
#include "previewrgbscaler.h"

#include <QFile>
#include <algorithm>
#include <climits>
#include <cstdint>
#include <memory>
#include <tiffio.h>
#include <vector>

namespace {

// libtiff reports to stderr unless a handler of the file's own says it took the message.
int swallowMessage(TIFF *, void *, const char *, const char *, va_list) {
    return 1;
}

struct TiffClose {
    void operator()(TIFF *tiff) const { TIFFClose(tiff); }
};
using TiffFile = std::unique_ptr<TIFF, TiffClose>;

TiffFile openQuietly(const QString &path) {
    TIFFOpenOptions *options = TIFFOpenOptionsAlloc();
    if (options == nullptr)
        return {};
    TIFFOpenOptionsSetErrorHandlerExtR(options, &swallowMessage, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options, &swallowMessage, nullptr);
    // "m": read with read(), not a memory map, so a large file's pages are not all resident at
    // once, and a file cut short while read fails instead of raising SIGBUS.
    TiffFile file(TIFFOpenExt(QFile::encodeName(path).constData(), "rm", options));
    TIFFOpenOptionsFree(options);
    return file;
}

// The strip layouts read directly: unsigned 8- or 16-bit samples, interleaved, grey or RGB,
// with or without one extra channel that may be alpha.
struct StripLayout {
    int bits = 0;
    int samples = 0;
    int colours = 0; // 1 or 3
    int alpha = -1;  // index of the alpha sample, if any
    bool premultiplied = false;
    bool whiteIsZero = false;

    static std::optional<StripLayout> of(TIFF *tiff) {
        std::uint16_t bits = 0, samples = 0, photometric = 0, planar = 0, format = 0;
        TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
        TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
        TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &planar);
        TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &format);
        if (!TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric) || TIFFIsTiled(tiff) ||
            planar != PLANARCONFIG_CONTIG || format != SAMPLEFORMAT_UINT ||
            (bits != 8 && bits != 16))
            return std::nullopt;
        StripLayout layout;
        layout.bits = bits;
        layout.samples = samples;
        if (photometric == PHOTOMETRIC_RGB)
            layout.colours = 3;
        else if (photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE)
            layout.colours = 1;
        else
            return std::nullopt;
        layout.whiteIsZero = photometric == PHOTOMETRIC_MINISWHITE;
        if (samples < layout.colours)
            return std::nullopt;
        std::uint16_t extraCount = 0;
        std::uint16_t *extraKinds = nullptr;
        if (TIFFGetField(tiff, TIFFTAG_EXTRASAMPLES, &extraCount, &extraKinds) && extraCount > 0 &&
            samples > layout.colours &&
            (extraKinds[0] == EXTRASAMPLE_ASSOCALPHA || extraKinds[0] == EXTRASAMPLE_UNASSALPHA)) {
            layout.alpha = layout.colours;
            layout.premultiplied = extraKinds[0] == EXTRASAMPLE_ASSOCALPHA;
        }
        return layout;
    }

    // One row of samples to packed 8-bit RGB over black.
    template <typename Sample> void convert(const Sample *in, std::uint8_t *out, int width) const {
        constexpr unsigned maximum = sizeof(Sample) == 1 ? 255u : 65535u;
        // The one rounding from the file's depth to 8 bits: round(v / 257), as a multiply and
        // a shift that give exactly that for every 16-bit value (checked over all of them).
        const auto byte = [](unsigned v) {
            if constexpr (sizeof(Sample) == 1)
                return std::uint8_t(v);
            else
                return std::uint8_t(((v + 128u) * 65281u) >> 24);
        };
        if (colours == 3 && alpha < 0 && !whiteIsZero) {
            // Plain RGB, nearly every photo: a loop the compiler can vectorise.
            for (int x = 0; x < width; ++x, in += samples, out += 3) {
                out[0] = byte(in[0]);
                out[1] = byte(in[1]);
                out[2] = byte(in[2]);
            }
            return;
        }
        for (int x = 0; x < width; ++x, in += samples, out += 3) {
            const unsigned a = alpha >= 0 ? in[alpha] : maximum;
            for (int c = 0; c < 3; ++c) {
                unsigned v = in[colours == 3 ? c : 0];
                if (whiteIsZero)
                    v = maximum - v;
                if (alpha >= 0 && !premultiplied)
                    v = (v * a + maximum / 2) / maximum;
                out[c] = byte(v);
            }
        }
    }
};

// A profile is a few kilobytes, a camera's own at most a few hundred; more is not a profile.
constexpr std::uint32_t largestProfileBytes = 4 * 1024 * 1024;

PhotoMetadata metadataOf(TIFF *tiff) {
    PhotoMetadata metadata;
    std::uint16_t orientation = 0;
    if (TIFFGetField(tiff, TIFFTAG_ORIENTATION, &orientation))
        metadata.orientation = PhotoMetadata::validOrientation(orientation);
    std::uint32_t length = 0;
    const void *profile = nullptr;
    if (TIFFGetField(tiff, TIFFTAG_ICCPROFILE, &length, &profile) && profile != nullptr &&
        length > 0 && length <= largestProfileBytes)
        metadata.iccProfile = QByteArray(static_cast<const char *>(profile), qsizetype(length));
    return metadata;
}

template <typename Sample>
std::optional<QByteArray> readStrips(TIFF *tiff, const StripLayout &layout, QSize size,
                                     QSize target, const PhotoMetadata &metadata) {
    const std::size_t bytes = std::size_t(TIFFScanlineSize64(tiff));
    if (bytes < std::size_t(size.width()) * std::size_t(layout.samples) * sizeof(Sample))
        return std::nullopt;
    std::vector<Sample> scanline((bytes + sizeof(Sample) - 1) / sizeof(Sample));
    std::vector<std::uint8_t> rgb(std::size_t(size.width()) * 3);
    PreviewRgbScaler scaler(size, target);
    for (int y = 0; y < size.height(); ++y) {
        if (TIFFReadScanline(tiff, scanline.data(), std::uint32_t(y), 0) < 0)
            return std::nullopt;
        layout.convert(scanline.data(), rgb.data(), size.width());
        scaler.pushRow(rgb.data());
    }
    return scaler.encode(metadata);
}

std::optional<QByteArray> readBands(TIFF *tiff, QSize size, QSize target,
                                    const PhotoMetadata &metadata) {
    char message[1024] = {};
    // The stored grid is wanted, so the file's orientation (already in the metadata) is set
    // aside before libtiff reads it.
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    if (!TIFFRGBAImageOK(tiff, message))
        return std::nullopt;
    TIFFRGBAImage image{};
    if (!TIFFRGBAImageBegin(&image, tiff, 0, message))
        return std::nullopt;
    image.req_orientation = ORIENTATION_TOPLEFT;
    constexpr int bandRows = 64;
    std::vector<std::uint32_t> band(std::size_t(size.width()) * bandRows);
    std::vector<std::uint8_t> rgb(std::size_t(size.width()) * 3);
    PreviewRgbScaler scaler(size, target);
    bool ok = true;
    for (int y = 0; ok && y < size.height(); y += bandRows) {
        const int rows = std::min(bandRows, size.height() - y);
        image.row_offset = y;
        ok = TIFFRGBAImageGet(&image, band.data(), std::uint32_t(size.width()),
                              std::uint32_t(rows)) != 0;
        for (int r = 0; ok && r < rows; ++r) {
            const std::uint32_t *abgr = band.data() + std::size_t(r) * std::size_t(size.width());
            // libtiff has already premultiplied any alpha, which composes over black.
            for (int x = 0; x < size.width(); ++x) {
                rgb[std::size_t(x) * 3] = std::uint8_t(TIFFGetR(abgr[x]));
                rgb[std::size_t(x) * 3 + 1] = std::uint8_t(TIFFGetG(abgr[x]));
                rgb[std::size_t(x) * 3 + 2] = std::uint8_t(TIFFGetB(abgr[x]));
            }
            scaler.pushRow(rgb.data());
        }
    }
    TIFFRGBAImageEnd(&image);
    return ok ? scaler.encode(metadata) : std::nullopt;
}

} // namespace

std::optional<QByteArray> PreviewTiffReader::createPreview(const QString &path) {
    const TiffFile tiff = openQuietly(path);
    if (!tiff)
        return std::nullopt;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    if (!TIFFGetField(tiff.get(), TIFFTAG_IMAGEWIDTH, &width) ||
        !TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &height) || width > INT_MAX ||
        height > INT_MAX)
        return std::nullopt;
    // The first directory of a raw container (DNG, NEF, ...) is a thumbnail of the raw data;
    // a raw that LibRaw turned away is broken, and its thumbnail is no preview of the photo.
    std::uint32_t subfileType = 0;
    void *dngVersion = nullptr;
    if ((TIFFGetField(tiff.get(), TIFFTAG_SUBFILETYPE, &subfileType) &&
         (subfileType & FILETYPE_REDUCEDIMAGE) != 0) ||
        TIFFGetField(tiff.get(), TIFFTAG_DNGVERSION, &dngVersion))
        return std::nullopt;
    const QSize size{int(width), int(height)};
    const std::optional<QSize> target = PreviewGeometry::targetSize(size);
    if (!target)
        return std::nullopt;
    const PhotoMetadata metadata = metadataOf(tiff.get());
    if (const std::optional<StripLayout> layout = StripLayout::of(tiff.get())) {
        return layout->bits == 8
                   ? readStrips<std::uint8_t>(tiff.get(), *layout, size, *target, metadata)
                   : readStrips<std::uint16_t>(tiff.get(), *layout, size, *target, metadata);
    }
    return readBands(tiff.get(), size, *target, metadata);
}
