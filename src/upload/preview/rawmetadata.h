// SPDX-License-Identifier: MIT
#pragma once

#include "photometadata.h"

class LibRaw;

// What a camera RAW says of its pictures' orientation and colours, as LibRaw reads it, and how
// that combines with what a RAW's embedded JPEG says of itself.
class RawMetadata {
public:
    // From an opened RAW, before anything sets its flip aside: the orientation (LibRaw's flip),
    // and whether the camera was set to Adobe RGB (its EXIF, or a DNG's preview colour space).
    static PhotoMetadata of(const LibRaw &raw);
    // The RAW's orientation rules its embedded JPEG, whose own Exif block is the fallback; the
    // JPEG's profile, then either's Adobe RGB mark, give its colours.
    static PhotoMetadata forEmbeddedJpeg(const PhotoMetadata &raw, const PhotoMetadata &jpeg);
    // LibRaw develops to sRGB: only the orientation stays.
    static PhotoMetadata forDeveloped(const PhotoMetadata &raw);
};
