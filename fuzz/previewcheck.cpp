// SPDX-License-Identifier: MIT
#include "previewcheck.h"

#include "fuzzrules.h"
#include "imageresizer.h"

#include <QFile>
#include <QImageReader>
#include <QUrl>
#include <cmath>
#include <cstring>
#include <libraw/libraw.h>
#include <sys/mman.h>
#include <tiffio.h>
#include <turbojpeg.h>
#include <unistd.h>

namespace {

using FuzzRules::require;

// One in-memory file for the whole run, rewritten for each input: the decoders open it by
// name like any photo, and nothing touches the disk.
class MemoryFile {
public:
    MemoryFile()
        : m_fd(memfd_create("photo", 0))
        , m_path(QStringLiteral("/proc/self/fd/%1").arg(m_fd)) {
        require(m_fd >= 0, "an in-memory file can be made");
    }
    const QString &write(std::span<const std::uint8_t> bytes) {
        require(ftruncate(m_fd, 0) == 0 &&
                    pwrite(m_fd, bytes.data(), bytes.size(), 0) == ssize_t(bytes.size()),
                "the input is written");
        return m_path;
    }

private:
    int m_fd;
    QString m_path;
};

// The width rule, written out again: at most 2000 pixels wide, the height by the same factor,
// truncated, never enlarged.
QSize expectedPreview(QSize source) {
    const double scale = std::min(1.0, 2000.0 / source.width());
    return {int(scale * source.width()), int(scale * source.height())};
}

int silent(TIFF *, void *, const char *, const char *, va_list) {
    return 1;
}

} // namespace

void PreviewCheck::run(std::span<const std::uint8_t> bytes, SizeReader sourceSize) {
    static MemoryFile file;
    const QString &path = file.write(bytes);
    const std::optional<QByteArray> preview = ImageResizer::createPreview(QUrl::fromLocalFile(path));
    if (!preview)
        return;
    const std::optional<QSize> source = sourceSize(path, bytes);
    require(source.has_value() && source->width() > 0 && source->height() > 0,
            "a preview comes only from a picture with a size");
    require(qint64(source->width()) * source->height() <= 200'000'000,
            "no picture over 200 megapixels is decoded");
    const QSize expected = expectedPreview(*source);
    require(qint64(expected.width()) * expected.height() <= 16'000'000,
            "no preview over 16 megapixels is made");
    const auto *jpeg = reinterpret_cast<const std::uint8_t *>(preview->constData());
    const std::optional<QSize> made = jpegSize(path, {jpeg, std::size_t(preview->size())});
    require(made == expected, "the preview has the size the width rule gives");
    require(preview->endsWith("\xFF\xD9"), "the preview is a complete JPEG");
}

std::optional<QSize> PreviewCheck::jpegSize(const QString &, std::span<const std::uint8_t> jpeg) {
    tjhandle handle = tjInitDecompress();
    int width = 0, height = 0, subsampling = 0, colorspace = 0;
    const bool ok = tjDecompressHeader3(handle, const_cast<std::uint8_t *>(jpeg.data()),
                                        jpeg.size(), &width, &height, &subsampling,
                                        &colorspace) == 0;
    tjDestroy(handle);
    return ok ? std::optional(QSize(width, height)) : std::nullopt;
}

std::optional<QSize> PreviewCheck::pngSize(const QString &, std::span<const std::uint8_t> png) {
    // The signature, then IHDR, which must come first: its length, its type, then the width
    // and the height as big-endian 32-bit numbers.
    if (png.size() < 24 || std::memcmp(png.data() + 12, "IHDR", 4) != 0)
        return std::nullopt;
    const auto number = [&](std::size_t at) {
        return (std::uint32_t(png[at]) << 24) | (std::uint32_t(png[at + 1]) << 16) |
               (std::uint32_t(png[at + 2]) << 8) | std::uint32_t(png[at + 3]);
    };
    const std::uint32_t width = number(16);
    const std::uint32_t height = number(20);
    if (width > 0x7fffffff || height > 0x7fffffff)
        return std::nullopt;
    return QSize(int(width), int(height));
}

std::optional<QSize> PreviewCheck::rawSize(const QString &path, std::span<const std::uint8_t>) {
    // By name, as the preview maker opens it: LibRaw reads some files from a buffer differently.
    LibRaw raw;
    raw.imgdata.params.user_flip = 0;
    if (raw.open_file(QFile::encodeName(path).constData()) != LIBRAW_SUCCESS)
        return std::nullopt;
    raw.imgdata.sizes.flip = 0;
    int width = 0, height = 0, colors = 0, bits = 0;
    raw.get_mem_image_format(&width, &height, &colors, &bits);
    return width > 0 && height > 0 ? std::optional(QSize(width, height)) : std::nullopt;
}

std::optional<QSize> PreviewCheck::tiffSize(const QString &path, std::span<const std::uint8_t>) {
    TIFFOpenOptions *options = TIFFOpenOptionsAlloc();
    TIFFOpenOptionsSetErrorHandlerExtR(options, &silent, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options, &silent, nullptr);
    TIFF *tiff = TIFFOpenExt(QFile::encodeName(path).constData(), "rm", options);
    TIFFOpenOptionsFree(options);
    if (tiff == nullptr)
        return std::nullopt;
    std::uint32_t width = 0, height = 0;
    const bool ok = TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width) &&
                    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
    TIFFClose(tiff);
    if (!ok || width > 0x7fffffff || height > 0x7fffffff)
        return std::nullopt;
    return QSize(int(width), int(height));
}

std::optional<QSize> PreviewCheck::qtSize(const QString &path, std::span<const std::uint8_t>) {
    QImageReader reader(path);
    reader.setDecideFormatFromContent(true);
    const QSize size = reader.size();
    return size.isValid() ? std::optional(size) : std::nullopt;
}
