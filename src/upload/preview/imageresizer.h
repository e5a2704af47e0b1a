// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

#include <optional>

class QUrl;

// Makes the preview JPEG of one photo file: the first image of the file, at most 2000 pixels
// wide (height by the same factor, never enlarged), JPEG quality 85, pixels in the grid as
// stored. The preview carries the photo's orientation as its only EXIF tag, so viewers show it
// upright, and its colours are sRGB whatever profile or colour-space mark the photo has. Reads
// JPEG, PNG, TIFF and camera RAW. Stateless and thread-safe; CPU-bound, so never call it on the
// main thread. No value on any failure.
class ImageResizer {
public:
    static constexpr int maximumWidth = 2000;
    static constexpr int jpegQuality = 85;

    static std::optional<QByteArray> createPreview(const QUrl &from);
};
