// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

// The one piece of EXIF a preview carries: an APP1 segment whose only directory holds only the
// Orientation tag, so that viewers turn the picture upright while the stored grid stays as it
// is. Nothing else of the photo's metadata is copied, so none of it can leak.
class ExifOrientationTag {
public:
    // The whole segment, marker included, for an orientation of 2..8.
    static QByteArray segment(int orientation);
    // The JPEG with the segment after its JFIF header (or its start of image); the JPEG
    // unchanged for orientation 0.
    static QByteArray addTo(const QByteArray &jpeg, int orientation);
};
