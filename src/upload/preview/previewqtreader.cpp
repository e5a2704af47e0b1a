// SPDX-License-Identifier: MIT
#include "previewqtreader.h"

#include "previewgeometry.h"
#include "previewrgbscaler.h"

#include <QImage>
#include <QImageReader>
#include <cstdint>
#include <vector>

namespace {

// A few hundred rows at a time through Qt's converters for the formats read less often; only
// the band is ever converted, never a second full-size copy.
constexpr int bandRows = 64;

void pushBands(const QImage &image, PreviewRgbScaler &scaler) {
    const int width = image.width();
    std::vector<std::uint8_t> rgb(std::size_t(width) * 3);
    for (int y = 0; y < image.height(); y += bandRows) {
        const int rows = std::min(bandRows, image.height() - y);
        const QImage band =
            image.copy(0, y, width, rows).convertToFormat(QImage::Format_RGBA8888_Premultiplied);
        for (int r = 0; r < rows; ++r) {
            const std::uint8_t *in = band.constScanLine(r);
            for (int x = 0; x < width; ++x) {
                rgb[std::size_t(x) * 3] = in[4 * x];
                rgb[std::size_t(x) * 3 + 1] = in[4 * x + 1];
                rgb[std::size_t(x) * 3 + 2] = in[4 * x + 2];
            }
            scaler.pushRow(rgb.data());
        }
    }
}

// The formats Qt decodes to most often, read in place.
bool pushRows(const QImage &image, PreviewRgbScaler &scaler) {
    const QImage::Format format = image.format();
    if (format != QImage::Format_RGB32 && format != QImage::Format_ARGB32_Premultiplied &&
        format != QImage::Format_RGB888 && format != QImage::Format_Grayscale8)
        return false;
    const int width = image.width();
    std::vector<std::uint8_t> rgb(std::size_t(width) * 3);
    for (int y = 0; y < image.height(); ++y) {
        const std::uint8_t *row = image.constScanLine(y);
        if (format == QImage::Format_RGB888) {
            scaler.pushRow(row);
            continue;
        }
        std::uint8_t *out = rgb.data();
        if (format == QImage::Format_Grayscale8) {
            for (int x = 0; x < width; ++x, out += 3)
                out[0] = out[1] = out[2] = row[x];
        } else {
            // Premultiplied already: the colour over black.
            const auto *pixels = reinterpret_cast<const QRgb *>(row);
            for (int x = 0; x < width; ++x, out += 3) {
                out[0] = std::uint8_t(qRed(pixels[x]));
                out[1] = std::uint8_t(qGreen(pixels[x]));
                out[2] = std::uint8_t(qBlue(pixels[x]));
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
    reader.setAutoTransform(false);
    // The size the header claims is checked before anything is decoded. Qt's own allocation
    // limit (a process-wide setting, left as it is) then refuses a whole-image decode of more
    // than 128 MB, which bounds the memory of these rarer formats.
    if (const QSize claimed = reader.size(); claimed.isValid() && !PreviewGeometry::targetSize(claimed))
        return std::nullopt;
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
