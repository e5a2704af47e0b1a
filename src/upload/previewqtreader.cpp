// SPDX-License-Identifier: MIT
#include "previewqtreader.h"

#include "previewgeometry.h"
#include "previewrgbscaler.h"

#include <QImage>
#include <QImageReader>
#include <cstdint>
#include <vector>

namespace {

// Qt refuses images over 256 MB by default, which a 100-megapixel photo passes as 32-bit
// pixels and a 16-bit one passes by far; this still refuses absurd sizes from damaged headers.
constexpr int allocationLimitMegabytes = 2048;

// A few hundred rows at a time through Qt's converters for the formats read less often; only
// the band is ever converted, never a second full-size copy.
constexpr int bandRows = 64;

void pushBands(const QImage &image, PreviewRgbScaler &scaler) {
    std::vector<std::uint8_t> rgb(std::size_t(image.width()) * 3);
    for (int y = 0; y < image.height(); y += bandRows) {
        const int rows = std::min(bandRows, image.height() - y);
        const QImage band = image.copy(0, y, image.width(), rows)
                                .convertToFormat(QImage::Format_RGBA8888_Premultiplied);
        for (int r = 0; r < rows; ++r) {
            const std::uint8_t *in = band.constScanLine(r);
            for (int x = 0; x < image.width(); ++x) {
                rgb[std::size_t(x) * 3] = in[4 * x];
                rgb[std::size_t(x) * 3 + 1] = in[4 * x + 1];
                rgb[std::size_t(x) * 3 + 2] = in[4 * x + 2];
            }
            scaler.pushRow(rgb.data());
        }
    }
}

// The formats PNG decodes to most often, read in place.
bool pushRows(const QImage &image, PreviewRgbScaler &scaler) {
    const QImage::Format format = image.format();
    if (format != QImage::Format_RGB32 && format != QImage::Format_ARGB32_Premultiplied &&
        format != QImage::Format_RGB888 && format != QImage::Format_Grayscale8)
        return false;
    std::vector<std::uint8_t> rgb(std::size_t(image.width()) * 3);
    for (int y = 0; y < image.height(); ++y) {
        const std::uint8_t *row = image.constScanLine(y);
        if (format == QImage::Format_RGB888) {
            scaler.pushRow(row);
            continue;
        }
        for (int x = 0; x < image.width(); ++x) {
            std::uint8_t *out = rgb.data() + std::size_t(x) * 3;
            if (format == QImage::Format_Grayscale8) {
                out[0] = out[1] = out[2] = row[x];
            } else {
                const QRgb pixel = reinterpret_cast<const QRgb *>(row)[x];
                out[0] = std::uint8_t(qRed(pixel));
                out[1] = std::uint8_t(qGreen(pixel));
                out[2] = std::uint8_t(qBlue(pixel));
            }
        }
        scaler.pushRow(rgb.data());
    }
    return true;
}

} // namespace

std::optional<QByteArray> PreviewQtReader::createPreview(const QString &path) {
    QImageReader reader(path);
    reader.setDecideFormatFromContent(true);
    reader.setAllocationLimit(allocationLimitMegabytes);
    reader.setAutoTransform(false);
    QImage image;
    if (!reader.read(&image) || image.isNull())
        return std::nullopt;
    const std::optional<QSize> target = PreviewGeometry::targetSize(image.size());
    if (!target)
        return std::nullopt;
    // Same-depth conversions happen in place, without a second full-size image.
    if (image.format() == QImage::Format_ARGB32)
        image.convertTo(QImage::Format_ARGB32_Premultiplied);
    PreviewRgbScaler scaler(image.size(), *target);
    if (!pushRows(image, scaler))
        pushBands(image, scaler);
    return scaler.encode();
}
