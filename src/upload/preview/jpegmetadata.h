// SPDX-License-Identifier: MIT
#pragma once

#include "photometadata.h"

#include <cstdint>
#include <span>

// The metadata of a JPEG that a preview keeps, from the marker segments before its first scan:
// the Exif block's orientation and colour-space marks, and the ICC profile (APP2 "ICC_PROFILE",
// split over as many segments as it needs). A profile with a chunk missing or twice is no
// profile. Only reads; malformed segments are skipped or end the walk.
class JpegMetadata {
public:
    static PhotoMetadata read(std::span<const std::uint8_t> jpeg);
    // The photo's Exif block (the TIFF structure after "Exif\0\0" of the first APP1 that
    // holds one), within `jpeg`; empty when there is none among the segments given.
    static std::span<const std::uint8_t> exif(std::span<const std::uint8_t> jpeg);

private:
    // Calls `visit(marker, payload)` for each marker segment before the first scan.
    template <typename Visit>
    static void forEachSegment(std::span<const std::uint8_t> jpeg, Visit visit);
};
