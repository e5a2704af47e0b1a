// SPDX-License-Identifier: MIT
#include "rawdngwriter.h"

#include <QFile>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <tiffio.h>
#include <turbojpeg.h>
#include <vector>

namespace {

// The sensor's level for each 8-bit sRGB value, over the given black level.
std::array<std::uint16_t, 256> linearSamples(int black) {
    std::array<std::uint16_t, 256> table{};
    for (int v = 0; v < 256; ++v) {
        const double s = v / 255.0;
        const double linear = s <= 0.04045 ? s / 12.92 : std::pow((s + 0.055) / 1.055, 2.4);
        table[std::size_t(v)] =
            std::uint16_t(std::lround(black + linear * (RawDngWriter::whiteLevel - black)));
    }
    return table;
}

void setCommonCameraTags(TIFF *tiff, const std::array<float, 3> &neutral, int orientation) {
    static const std::uint8_t version[4] = {1, 4, 0, 0};
    static const std::uint8_t backward[4] = {1, 1, 0, 0};
    // XYZ (D65) to linear sRGB: the "camera" is an ideal sRGB sensor.
    static const float xyzToCamera[9] = {3.2406f, -1.5372f, -0.4986f, -0.9689f, 1.8758f,
                                         0.0415f, 0.0557f,  -0.2040f, 1.0570f};
    TIFFSetField(tiff, TIFFTAG_MAKE, "Quillmere");
    TIFFSetField(tiff, TIFFTAG_MODEL, "Fixture DNG");
    TIFFSetField(tiff, TIFFTAG_UNIQUECAMERAMODEL, "Quillmere Fixture DNG");
    TIFFSetField(tiff, TIFFTAG_DNGVERSION, version);
    TIFFSetField(tiff, TIFFTAG_DNGBACKWARDVERSION, backward);
    TIFFSetField(tiff, TIFFTAG_COLORMATRIX1, 9, xyzToCamera);
    TIFFSetField(tiff, TIFFTAG_CALIBRATIONILLUMINANT1, 21);
    TIFFSetField(tiff, TIFFTAG_ASSHOTNEUTRAL, 3, neutral.data());
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, orientation);
}

struct Layout {
    std::uint32_t subfileType;
    QSize size;
    int bitsPerSample;
    int samplesPerPixel;
    int photometric;
    int compression;
    std::uint32_t rowsPerStrip;
};

void setLayout(TIFF *tiff, const Layout &layout) {
    TIFFSetField(tiff, TIFFTAG_SUBFILETYPE, layout.subfileType);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, std::uint32_t(layout.size.width()));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, std::uint32_t(layout.size.height()));
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, layout.bitsPerSample);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, layout.samplesPerPixel);
    // The codec first: libtiff checks the photometric interpretation against it.
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, layout.compression);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, layout.photometric);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, layout.rowsPerStrip);
}

bool writeThumbnail(TIFF *tiff, const QImage &thumbnail, int subIfds,
                    const std::array<float, 3> &neutral, int orientation, bool exif) {
    const QImage rgb = thumbnail.convertToFormat(QImage::Format_RGB888);
    std::vector<std::uint64_t> offsets(static_cast<std::size_t>(subIfds), 0);
    setLayout(tiff, {FILETYPE_REDUCEDIMAGE, rgb.size(), 8, 3, PHOTOMETRIC_RGB, COMPRESSION_NONE,
                     std::uint32_t(rgb.height())});
    setCommonCameraTags(tiff, neutral, orientation);
    TIFFSetField(tiff, TIFFTAG_SUBIFD, std::uint16_t(subIfds), offsets.data());
    // Pointed at the Exif directory once the file is written, by ExifWriter.
    if (exif)
        TIFFSetField(tiff, TIFFTAG_EXIFIFD, std::uint64_t(8));
    for (int y = 0; y < rgb.height(); ++y)
        if (TIFFWriteScanline(tiff, const_cast<uchar *>(rgb.constScanLine(y)), std::uint32_t(y),
                              0) < 0)
            return false;
    return TIFFWriteDirectory(tiff) != 0;
}

bool writeRawData(TIFF *tiff, QSize size, const RawDngWriter::SensorRow &sensorRow,
                  const RawDngWriter::Camera &camera) {
    static const std::uint16_t repeat[2] = {2, 2};
    const std::uint32_t white[1] = {RawDngWriter::whiteLevel};
    constexpr int colourFilterArray = 32803;
    setLayout(tiff, {0, size, 16, 1, colourFilterArray, COMPRESSION_NONE, 32});
    TIFFSetField(tiff, TIFFTAG_CFAREPEATPATTERNDIM, repeat);
    TIFFSetField(tiff, TIFFTAG_CFAPATTERN, 4, camera.pattern.data());
    const auto &blacks = camera.black;
    if (std::all_of(blacks.begin(), blacks.end(), [&](int b) { return b == blacks[0]; })) {
        const float black[1] = {float(blacks[0])};
        TIFFSetField(tiff, TIFFTAG_BLACKLEVEL, 1, black);
    } else {
        // A level for each sample of the cell, the way some sensors are measured.
        const float black[4] = {float(blacks[0]), float(blacks[1]), float(blacks[2]),
                                float(blacks[3])};
        TIFFSetField(tiff, TIFFTAG_BLACKLEVELREPEATDIM, repeat);
        TIFFSetField(tiff, TIFFTAG_BLACKLEVEL, 4, black);
    }
    TIFFSetField(tiff, TIFFTAG_WHITELEVEL, 1, white);
    std::array<std::array<std::uint16_t, 256>, 4> linear{};
    for (std::size_t k = 0; k < linear.size(); ++k)
        linear[k] = linearSamples(blacks[k]);
    std::vector<uchar> in(std::size_t(size.width()) * 3);
    std::vector<std::uint16_t> row(std::size_t(size.width()));
    for (int y = 0; y < size.height(); ++y) {
        sensorRow(y, in.data());
        for (int x = 0; x < size.width(); ++x) {
            // Each sample sees the colour the pattern gives its place in the cell.
            const std::size_t cell = std::size_t((y & 1) * 2 + (x & 1));
            const std::size_t channel = camera.pattern[cell];
            row[std::size_t(x)] = linear[cell][in[std::size_t(x) * 3 + channel]];
        }
        if (TIFFWriteScanline(tiff, row.data(), std::uint32_t(y), 0) < 0)
            return false;
    }
    return TIFFWriteDirectory(tiff) != 0;
}

bool writePreview(TIFF *tiff, const QByteArray &jpeg) {
    static const std::uint16_t subsampling[2] = {2, 2};
    tjhandle handle = tjInitDecompress();
    int width = 0, height = 0, chroma = 0, colourspace = 0;
    const int header = tjDecompressHeader3(
        handle, reinterpret_cast<unsigned char *>(const_cast<char *>(jpeg.constData())),
        static_cast<unsigned long>(jpeg.size()), &width, &height, &chroma, &colourspace);
    tjDestroy(handle);
    if (header != 0)
        return false;
    setLayout(tiff, {FILETYPE_REDUCEDIMAGE, QSize(width, height), 8, 3, PHOTOMETRIC_YCBCR,
                     COMPRESSION_JPEG, std::uint32_t(height)});
    TIFFSetField(tiff, TIFFTAG_YCBCRSUBSAMPLING, subsampling[0], subsampling[1]);
    // The camera's JPEG goes in whole, as the single strip.
    if (TIFFWriteRawStrip(tiff, 0, const_cast<char *>(jpeg.constData()), tmsize_t(jpeg.size())) < 0)
        return false;
    return TIFFWriteDirectory(tiff) != 0;
}

bool writeFile(const QString &path, QSize sensor, const RawDngWriter::SensorRow &row,
               const QImage &thumbnail, const QByteArray &previewJpeg,
               const RawDngWriter::Camera &camera, int orientation,
               const ExifWriter::Fields *exif = nullptr) {
    TIFF *tiff = TIFFOpen(QFile::encodeName(path).constData(), "w");
    if (tiff == nullptr)
        return false;
    const bool ok =
        writeThumbnail(tiff, thumbnail, previewJpeg.isEmpty() ? 1 : 2, camera.asShotNeutral,
                       orientation, exif != nullptr) &&
        writeRawData(tiff, sensor, row, camera) &&
        (previewJpeg.isEmpty() || writePreview(tiff, previewJpeg));
    TIFFClose(tiff);
    return ok && (exif == nullptr || ExifWriter::appendExifToTiff(path, *exif));
}

bool writePicture(const QString &path, const QImage &sensor, const QImage &thumbnail,
                  const QByteArray &previewJpeg, const RawDngWriter::Camera &camera,
                  int orientation, const ExifWriter::Fields *exif = nullptr) {
    const QImage rgb = sensor.convertToFormat(QImage::Format_RGB888);
    const auto row = [&](int y, uchar *out) {
        std::memcpy(out, rgb.constScanLine(y), std::size_t(rgb.width()) * 3);
    };
    return writeFile(path, rgb.size(), row, thumbnail, previewJpeg, camera, orientation, exif);
}

} // namespace

bool RawDngWriter::write(const QString &path, const QImage &sensor, const QImage &thumbnail,
                         const QByteArray &previewJpeg, int orientation) {
    return writePicture(path, sensor, thumbnail, previewJpeg, Camera(), orientation);
}

bool RawDngWriter::write(const QString &path, const QImage &sensor, const QImage &thumbnail,
                         const Camera &camera) {
    return writePicture(path, sensor, thumbnail, {}, camera, ORIENTATION_TOPLEFT);
}

bool RawDngWriter::write(const QString &path, QSize sensor, const SensorRow &row,
                         const QImage &thumbnail) {
    return writeFile(path, sensor, row, thumbnail, {}, Camera(), ORIENTATION_TOPLEFT);
}

bool RawDngWriter::write(const QString &path, const QImage &sensor, const QImage &thumbnail,
                         const QByteArray &previewJpeg, int orientation,
                         const ExifWriter::Fields &exif) {
    return writePicture(path, sensor, thumbnail, previewJpeg, Camera(), orientation, &exif);
}
