// SPDX-License-Identifier: MIT
#include "previewgeometry.h"

#include "imageresizer.h"

#include <QtGlobal>
#include <cmath>

namespace {

qint64 truncated(double product) {
    // A decoded image cannot get here with such a product; if it did, something upstream broke.
    if (!std::isfinite(product) || product >= 9223372036854775808.0 ||
        product <= -9223372036854775808.0)
        qFatal("Preview size out of range: %f", product);
    return static_cast<qint64>(product);
}

} // namespace

std::optional<QSize> PreviewGeometry::targetSize(QSize fullSize) {
    if (fullSize.width() <= 0 || fullSize.height() <= 0 ||
        qint64(fullSize.width()) * fullSize.height() > largestSourcePixels)
        return std::nullopt;
    const double width = fullSize.width();
    const double height = fullSize.height();
    // The product is truncated after it is formed in double precision, so 3001 x 2000 gives
    // 1999 x 1332: that rounding is part of the behaviour, not an accident to fix.
    double scale = double(ImageResizer::maximumWidth) / width;
    if (scale > 1.0)
        scale = 1.0;
    const qint64 targetWidth = truncated(scale * width);
    const qint64 targetHeight = truncated(scale * height);
    if (targetWidth <= 0 || targetHeight <= 0 ||
        targetWidth * targetHeight > largestPreviewPixels)
        return std::nullopt;
    return QSize(int(targetWidth), int(targetHeight));
}
