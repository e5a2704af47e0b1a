// SPDX-License-Identifier: MIT
#include "hostilephotos.h"

#include "photofiles.h"
#include "photogenerator.h"
#include "rawdngwriter.h"

#include <QBuffer>
#include <QFile>
#include <QImageWriter>
#include <QTemporaryDir>
#include <array>
#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <png.h>
#include <tiffio.h>
#include <vector>

namespace {

void putBigEndian16(QByteArray &bytes, qsizetype at, int value) {
    bytes[at] = char((value >> 8) & 0xFF);
    bytes[at + 1] = char(value & 0xFF);
}

void putBigEndian32(QByteArray &bytes, qsizetype at, std::uint32_t value) {
    for (int i = 0; i < 4; ++i)
        bytes[at + i] = char((value >> (24 - 8 * i)) & 0xFF);
}

std::uint32_t crc32(const char *data, qsizetype size) {
    std::uint32_t crc = 0xFFFFFFFFu;
    for (qsizetype i = 0; i < size; ++i) {
        crc ^= std::uint8_t(data[i]);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

qint64 statusKilobytes(const char *field) {
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly | QIODevice::Text))
        return -1;
    const QByteArray prefix = QByteArray(field) + ':';
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith(prefix))
            return line.mid(prefix.size()).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

// Rewrites a little-endian TIFF directory entry of the tag whose single SHORT or LONG value is
// `from`, to a LONG `to`. Values up to four bytes sit in the entry itself.
bool rewriteEntry(QByteArray &tiff, std::uint16_t tag, std::uint32_t from, std::uint32_t to) {
    for (qsizetype at = 8; at + 12 <= tiff.size(); at += 2) {
        const auto u16 = [&](qsizetype i) {
            return std::uint16_t(std::uint8_t(tiff[i]) | std::uint8_t(tiff[i + 1]) << 8);
        };
        const auto u32 = [&](qsizetype i) {
            return std::uint32_t(u16(i)) | std::uint32_t(u16(i + 2)) << 16;
        };
        const std::uint16_t type = u16(at + 2);
        const std::uint32_t value = type == 3 ? u16(at + 8) : u32(at + 8);
        if (u16(at) == tag && (type == 3 || type == 4) && u32(at + 4) == 1 && value == from) {
            tiff[at + 2] = 4;
            tiff[at + 3] = 0;
            for (int i = 0; i < 4; ++i)
                tiff[at + 8 + i] = char((to >> (8 * i)) & 0xFF);
            return true;
        }
    }
    return false;
}

} // namespace

QByteArray HostilePhotos::jpegClaiming(QSize size) {
    QByteArray jpeg = PhotoFiles::encodeJpeg(PhotoGenerator::gradient({48, 32}), 90);
    const qsizetype frame = jpeg.indexOf("\xFF\xC0");
    if (frame < 0)
        return {};
    // SOF0: marker, length, precision, then height and width.
    putBigEndian16(jpeg, frame + 5, size.height());
    putBigEndian16(jpeg, frame + 7, size.width());
    return jpeg;
}

QByteArray HostilePhotos::pngClaiming(QSize size) {
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "png");
    if (!writer.write(PhotoGenerator::gradient({48, 32})))
        return {};
    // The signature, IHDR's length and type, then its width and height; its CRC covers the
    // type and the data.
    putBigEndian32(png, 16, std::uint32_t(size.width()));
    putBigEndian32(png, 20, std::uint32_t(size.height()));
    putBigEndian32(png, 29, crc32(png.constData() + 12, 17));
    return png;
}

bool HostilePhotos::writeBlankPng(const QString &path, QSize size) {
    std::FILE *file = std::fopen(QFile::encodeName(path).constData(), "wb");
    if (file == nullptr)
        return false;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png == nullptr ? nullptr : png_create_info_struct(png);
    bool ok = info != nullptr;
    std::vector<png_byte> row(std::size_t(size.width() + 7) / 8, 0xFF);
    if (ok && setjmp(png_jmpbuf(png)) == 0) {
        png_init_io(png, file);
        png_set_compression_level(png, 1);
        png_set_IHDR(png, info, png_uint_32(size.width()), png_uint_32(size.height()), 1,
                     PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                     PNG_FILTER_TYPE_DEFAULT);
        png_write_info(png, info);
        for (int y = 0; y < size.height(); ++y)
            png_write_row(png, row.data());
        png_write_end(png, nullptr);
    } else {
        ok = false;
    }
    png_destroy_write_struct(&png, &info);
    return std::fclose(file) == 0 && ok;
}

bool HostilePhotos::writeTiffClaiming(const QString &path, QSize size) {
    TIFF *tiff = TIFFOpen(QFile::encodeName(path).constData(), "w");
    if (tiff == nullptr)
        return false;
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, std::uint32_t(size.width()));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, std::uint32_t(size.height()));
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    // Many rows a strip keep the directory small; only the first strip is written.
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, std::uint32_t(1024));
    std::vector<std::uint8_t> row(std::size_t(size.width()) * 3, 128);
    const bool ok = TIFFWriteScanline(tiff, row.data(), 0, 0) == 1;
    TIFFClose(tiff);
    return ok;
}

bool HostilePhotos::writeDngClaiming(const QString &path, QSize size) {
    // The raw's size is written in a directory entry of its own: a sensor size no other field
    // has finds it.
    const QSize sensor(72, 54);
    const QImage picture = PhotoGenerator::gradient(sensor);
    if (!RawDngWriter::write(path, picture, picture.scaled(16, 12)))
        return false;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    QByteArray dng = file.readAll();
    file.close();
    if (!rewriteEntry(dng, TIFFTAG_IMAGEWIDTH, std::uint32_t(sensor.width()),
                      std::uint32_t(size.width())) ||
        !rewriteEntry(dng, TIFFTAG_IMAGELENGTH, std::uint32_t(sensor.height()),
                      std::uint32_t(size.height())))
        return false;
    return PhotoFiles::writeFile(path, dng);
}

qint64 HostilePhotos::residentPeak() {
    return statusKilobytes("VmHWM") * 1024;
}

qint64 HostilePhotos::resident() {
    return statusKilobytes("VmRSS") * 1024;
}

bool HostilePhotos::resetResidentPeak() {
    QFile clear(QStringLiteral("/proc/self/clear_refs"));
    return clear.open(QIODevice::WriteOnly) && clear.write("5") == 1;
}
