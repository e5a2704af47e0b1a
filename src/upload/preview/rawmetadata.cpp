// SPDX-License-Identifier: MIT
#include "rawmetadata.h"

#include <array>
#include <libraw/libraw.h>

namespace {

// LibRaw keeps dcraw's flip: bit 0 mirrors left to right, bit 1 top to bottom, bit 2 swaps the
// axes first. Each value is one of the eight EXIF orientations.
constexpr std::array<int, 8> orientationOfFlip{1, 2, 4, 3, 5, 8, 6, 7};

// The DNG PreviewColorSpace value for Adobe RGB.
constexpr unsigned dngPreviewAdobeRgb = 3;

} // namespace

PhotoMetadata RawMetadata::of(const LibRaw &raw) {
    PhotoMetadata metadata;
    const int flip = raw.imgdata.sizes.flip;
    if (flip >= 0 && flip < int(orientationOfFlip.size()))
        metadata.orientation =
            PhotoMetadata::validOrientation(orientationOfFlip[std::size_t(flip)]);
    metadata.adobeRgb = raw.imgdata.color.ExifColorSpace == LIBRAW_COLORSPACE_AdobeRGB ||
                        raw.imgdata.color.dng_levels.preview_colorspace == dngPreviewAdobeRgb;
    return metadata;
}

PhotoMetadata RawMetadata::forEmbeddedJpeg(const PhotoMetadata &raw, const PhotoMetadata &jpeg) {
    PhotoMetadata metadata;
    metadata.orientation = raw.orientation != 0 ? raw.orientation : jpeg.orientation;
    metadata.iccProfile = jpeg.iccProfile;
    metadata.adobeRgb = jpeg.iccProfile.isEmpty() && (jpeg.adobeRgb || raw.adobeRgb);
    return metadata;
}

PhotoMetadata RawMetadata::forDeveloped(const PhotoMetadata &raw) {
    PhotoMetadata metadata;
    metadata.orientation = raw.orientation;
    return metadata;
}
