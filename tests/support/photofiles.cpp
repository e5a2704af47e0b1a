// SPDX-License-Identifier: MIT
#include "photofiles.h"

#include <QFile>
#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <tiffio.h>
#include <turbojpeg.h>
#include <vector>

namespace {

struct TurboDestroy {
    void operator()(void *handle) const { tjDestroy(handle); }
};
using Turbo = std::unique_ptr<void, TurboDestroy>;

QByteArray takeBuffer(unsigned char *buffer, unsigned long size, bool ok) {
    QByteArray bytes;
    if (ok && buffer != nullptr)
        bytes = QByteArray(reinterpret_cast<const char *>(buffer), qsizetype(size));
    tjFree(buffer);
    return bytes;
}

int subsamplingOf(PhotoFiles::Chroma chroma) {
    switch (chroma) {
    case PhotoFiles::Chroma::Subsampled420:
        return TJSAMP_420;
    case PhotoFiles::Chroma::Subsampled422:
        return TJSAMP_422;
    case PhotoFiles::Chroma::Full444:
        return TJSAMP_444;
    case PhotoFiles::Chroma::Grey:
        return TJSAMP_GRAY;
    }
    return TJSAMP_420;
}

void appendBigEndian16(QByteArray &bytes, int value) {
    bytes.append(char((value >> 8) & 0xFF));
    bytes.append(char(value & 0xFF));
}

void appendBigEndian32(QByteArray &bytes, quint32 value) {
    appendBigEndian16(bytes, int(value >> 16));
    appendBigEndian16(bytes, int(value & 0xFFFF));
}

// An Exif block as a big-endian TIFF structure: one IFD with the Orientation tag (0x0112) and,
// when a thumbnail is given, a second IFD that points at it, the thumbnail's JPEG last.
QByteArray exifTiff(int orientation, const QByteArray &thumbnail = {}) {
    QByteArray tiff("MM\0\x2A\0\0\0\x08", 8);
    const auto entry = [&](int tag, int type, quint32 value) {
        appendBigEndian16(tiff, tag);
        appendBigEndian16(tiff, type);
        appendBigEndian32(tiff, 1); // count
        if (type == 3) {            // SHORT, left-justified in the value field
            appendBigEndian16(tiff, int(value));
            appendBigEndian16(tiff, 0);
        } else {
            appendBigEndian32(tiff, value);
        }
    };
    constexpr int ifdSize = 2 + 12 + 4;
    appendBigEndian16(tiff, 1);
    entry(0x0112, 3, quint32(orientation));
    appendBigEndian32(tiff, thumbnail.isEmpty() ? 0 : quint32(8 + ifdSize)); // next IFD
    if (thumbnail.isEmpty())
        return tiff;
    const quint32 thumbnailAt = 8 + ifdSize + 2 + 2 * 12 + 4;
    appendBigEndian16(tiff, 2);
    entry(0x0201, 4, thumbnailAt);               // JPEGInterchangeFormat, LONG
    entry(0x0202, 4, quint32(thumbnail.size())); // JPEGInterchangeFormatLength
    appendBigEndian32(tiff, 0);
    return tiff + thumbnail;
}

quint32 crc32(const QByteArray &bytes) {
    quint32 crc = 0xFFFFFFFFu;
    for (const char byte : bytes) {
        crc ^= quint8(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

} // namespace

QByteArray PhotoFiles::encodeJpeg(const QImage &image, int quality, Chroma chroma,
                                  bool progressive) {
    const QImage rgb = image.convertToFormat(QImage::Format_RGB888);
    const Turbo handle(tjInitCompress());
    unsigned char *buffer = nullptr;
    unsigned long size = 0;
    const bool ok =
        tjCompress2(handle.get(), rgb.constBits(), rgb.width(), int(rgb.bytesPerLine()),
                    rgb.height(), TJPF_RGB, &buffer, &size, subsamplingOf(chroma), quality,
                    progressive ? TJFLAG_PROGRESSIVE : 0) == 0;
    return takeBuffer(buffer, size, ok);
}

QByteArray PhotoFiles::encodeCmykJpeg(QSize size, std::array<quint8, 4> cmyk, int quality) {
    std::vector<unsigned char> pixels(std::size_t(size.width()) * std::size_t(size.height()) * 4);
    for (std::size_t i = 0; i < pixels.size(); ++i)
        pixels[i] = cmyk[i % 4];
    const Turbo handle(tjInitCompress());
    unsigned char *buffer = nullptr;
    unsigned long length = 0;
    const bool ok =
        tjCompress2(handle.get(), pixels.data(), size.width(), size.width() * 4, size.height(),
                    TJPF_CMYK, &buffer, &length, TJSAMP_420, quality, 0) == 0;
    return takeBuffer(buffer, length, ok);
}

QByteArray PhotoFiles::encodeGradientJpeg(QSize size, int quality) {
    std::array<std::vector<unsigned char>, 3> planes;
    std::array<int, 3> strides{};
    std::array<const unsigned char *, 3> pointers{};
    for (int i = 0; i < 3; ++i) {
        const int width = tjPlaneWidth(i, size.width(), TJSAMP_420);
        const int height = tjPlaneHeight(i, size.height(), TJSAMP_420);
        strides[std::size_t(i)] = width;
        std::vector<unsigned char> &plane = planes[std::size_t(i)];
        plane.resize(std::size_t(width) * std::size_t(height));
        // Luma: diagonal ramps; chroma: a slow tint from top to bottom.
        std::vector<unsigned char> ramp(static_cast<std::size_t>(width));
        for (int x = 0; x < width; ++x)
            ramp[std::size_t(x)] = static_cast<unsigned char>(x / 7);
        for (int y = 0; y < height; ++y) {
            unsigned char *row = plane.data() + std::size_t(y) * std::size_t(width);
            if (i == 0) {
                const auto offset = static_cast<unsigned char>(y / 5);
                for (int x = 0; x < width; ++x)
                    row[x] = static_cast<unsigned char>(ramp[std::size_t(x)] + offset);
            } else {
                std::memset(row, 96 + i * 32 + (y * 64) / height, std::size_t(width));
            }
        }
        pointers[std::size_t(i)] = plane.data();
    }
    const Turbo handle(tjInitCompress());
    unsigned char *buffer = nullptr;
    unsigned long length = 0;
    const bool ok =
        tjCompressFromYUVPlanes(handle.get(), pointers.data(), size.width(), strides.data(),
                                size.height(), TJSAMP_420, &buffer, &length, quality, 0) == 0;
    return takeBuffer(buffer, length, ok);
}

QByteArray PhotoFiles::withExifOrientation(const QByteArray &jpeg, int orientation,
                                           const QByteArray &thumbnail) {
    // APP1 "Exif" right after the start of the image, where cameras put it.
    const QByteArray tiff = exifTiff(orientation, thumbnail);
    QByteArray app1("\xFF\xE1", 2);
    appendBigEndian16(app1, int(2 + 6 + tiff.size()));
    app1.append(QByteArray("Exif\0\0", 6));
    app1.append(tiff);
    return jpeg.left(2) + app1 + jpeg.mid(2);
}

QByteArray PhotoFiles::withPngExifOrientation(const QByteArray &png, int orientation) {
    // An eXIf chunk right after IHDR (8 bytes of signature, then 25 of IHDR).
    constexpr qsizetype afterHeader = 8 + 25;
    const QByteArray chunk = QByteArray("eXIf") + exifTiff(orientation);
    QByteArray bytes;
    appendBigEndian32(bytes, quint32(chunk.size() - 4));
    bytes.append(chunk);
    appendBigEndian32(bytes, crc32(chunk));
    return png.left(afterHeader) + bytes + png.mid(afterHeader);
}

bool PhotoFiles::writeTiff(const QString &path, const QList<QImage> &pages, int bitsPerSample,
                           int orientation, const QByteArray &iccProfile) {
    TIFF *tiff = TIFFOpen(QFile::encodeName(path).constData(), "w");
    if (tiff == nullptr)
        return false;
    bool ok = true;
    for (const QImage &page : pages) {
        const QImage pixels = page.convertToFormat(bitsPerSample == 16 ? QImage::Format_RGBX64
                                                                       : QImage::Format_RGB888);
        TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, std::uint32_t(pixels.width()));
        TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, std::uint32_t(pixels.height()));
        TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, bitsPerSample);
        TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 3);
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
        TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 16);
        TIFFSetField(tiff, TIFFTAG_ORIENTATION, orientation);
        if (!iccProfile.isEmpty())
            TIFFSetField(tiff, TIFFTAG_ICCPROFILE, std::uint32_t(iccProfile.size()),
                         iccProfile.constData());
        if (pages.size() > 1) {
            TIFFSetField(tiff, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
            TIFFSetField(tiff, TIFFTAG_PAGENUMBER, int(&page - pages.data()), int(pages.size()));
        }
        std::vector<std::uint16_t> wide(std::size_t(pixels.width()) * 3);
        for (int y = 0; ok && y < pixels.height(); ++y) {
            void *row = const_cast<uchar *>(pixels.constScanLine(y));
            if (bitsPerSample == 16) {
                const auto *in = reinterpret_cast<const std::uint16_t *>(pixels.constScanLine(y));
                for (int x = 0; x < pixels.width(); ++x)
                    for (int c = 0; c < 3; ++c)
                        wide[std::size_t(x) * 3 + std::size_t(c)] = in[x * 4 + c];
                row = wide.data();
            }
            ok = TIFFWriteScanline(tiff, row, std::uint32_t(y), 0) >= 0;
        }
        ok = ok && TIFFWriteDirectory(tiff);
    }
    TIFFClose(tiff);
    return ok;
}

bool PhotoFiles::writeTiledTiff(const QString &path, const QImage &page, int orientation) {
    constexpr int tile = 256;
    const QImage pixels = page.convertToFormat(QImage::Format_RGB888);
    TIFF *tiff = TIFFOpen(QFile::encodeName(path).constData(), "w");
    if (tiff == nullptr)
        return false;
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, std::uint32_t(pixels.width()));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, std::uint32_t(pixels.height()));
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    TIFFSetField(tiff, TIFFTAG_TILEWIDTH, std::uint32_t(tile));
    TIFFSetField(tiff, TIFFTAG_TILELENGTH, std::uint32_t(tile));
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, orientation);
    std::vector<uchar> buffer(std::size_t(tile) * tile * 3);
    bool ok = true;
    for (int top = 0; ok && top < pixels.height(); top += tile) {
        for (int left = 0; ok && left < pixels.width(); left += tile) {
            std::fill(buffer.begin(), buffer.end(), uchar(0));
            const int rows = std::min(tile, pixels.height() - top);
            const int columns = std::min(tile, pixels.width() - left);
            for (int y = 0; y < rows; ++y)
                std::memcpy(buffer.data() + std::size_t(y) * tile * 3,
                            pixels.constScanLine(top + y) + std::size_t(left) * 3,
                            std::size_t(columns) * 3);
            ok = TIFFWriteTile(tiff, buffer.data(), std::uint32_t(left), std::uint32_t(top), 0, 0) >= 0;
        }
    }
    ok = ok && TIFFWriteDirectory(tiff);
    TIFFClose(tiff);
    return ok;
}

bool PhotoFiles::writeFile(const QString &path, const QByteArray &bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QImage PhotoFiles::decodeJpeg(const QByteArray &jpeg) {
    const Turbo handle(tjInitDecompress());
    auto *bytes = reinterpret_cast<unsigned char *>(const_cast<char *>(jpeg.constData()));
    int width = 0, height = 0, subsampling = 0, colourspace = 0;
    if (tjDecompressHeader3(handle.get(), bytes, static_cast<unsigned long>(jpeg.size()), &width,
                            &height, &subsampling, &colourspace) != 0)
        return {};
    QImage image(width, height, QImage::Format_RGB888);
    if (tjDecompress2(handle.get(), bytes, static_cast<unsigned long>(jpeg.size()), image.bits(),
                      width, int(image.bytesPerLine()), height, TJPF_RGB, TJFLAG_ACCURATEDCT) != 0)
        return {};
    return image;
}

bool PhotoFiles::isBaselineColourJpeg(const QByteArray &jpeg) {
    const auto byte = [&](qsizetype i) { return i < jpeg.size() ? uchar(jpeg[i]) : 0; };
    if (byte(0) != 0xFF || byte(1) != 0xD8 || !jpeg.endsWith("\xFF\xD9"))
        return false;
    // Walk the marker segments up to the first frame header.
    for (qsizetype i = 2; i + 4 <= jpeg.size();) {
        if (byte(i) != 0xFF)
            return false;
        const int marker = byte(i + 1);
        const int length = byte(i + 2) << 8 | byte(i + 3);
        if (marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC)
            return marker == 0xC0 && byte(i + 4) == 8 && byte(i + 9) == 3;
        i += 2 + length;
    }
    return false;
}
