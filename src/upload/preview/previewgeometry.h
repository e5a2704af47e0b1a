// SPDX-License-Identifier: MIT
#pragma once

#include <QSize>
#include <QtGlobal>
#include <optional>

// The size of a preview, decided by the size of the full decoded image alone: the width is held
// to ImageResizer::maximumWidth, the height follows by the same factor, and nothing is ever
// enlarged. It is also where every decoder learns whether a picture is decoded at all: each asks
// with the size its file claims before it allocates anything for the pixels.
class PreviewGeometry {
public:
    // The largest production camera sensors have about 150 megapixels (14,204 x 10,652); 200
    // leaves room above every real photograph, and a header that claims more is damaged or
    // hostile and is refused before anything is allocated for it.
    static constexpr qint64 largestSourcePixels = 200'000'000;
    // The height of a preview has no rule of its own, but its memory does: a preview of a strip
    // four times as tall as wide (2000 x 8000 pixels) is the largest made. Nothing a camera
    // writes comes near it, while a picture one pixel wide and millions tall would otherwise get
    // a preview as large as itself.
    static constexpr qint64 largestPreviewPixels = 16'000'000;

    // No value for an image without pixels or beyond the limits above, which gets no preview.
    static std::optional<QSize> targetSize(QSize fullSize);
};
