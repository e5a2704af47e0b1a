// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

#include <optional>

class QUrl;

// Makes the preview JPEG of one photo file: the first image of the file, at most 2000 pixels
// wide (height by the same factor, never enlarged), JPEG quality 85, pixels as stored (no
// orientation correction). Reads JPEG, PNG, TIFF and camera RAW. Stateless and thread-safe;
// CPU-bound, so never call it on the main thread. No value on any failure.
class ImageResizer {
public:
    static constexpr int maximumWidth = 2000;
    static constexpr int jpegQuality = 85;

    static std::optional<QByteArray> createPreview(const QUrl &from);
};
