// SPDX-License-Identifier: MIT
#pragma once

#include "photometadata.h"

#include <QByteArray>
#include <cstdint>

class JpegSource;

// The metadata of a JPEG that a preview keeps, from the marker segments before its first scan:
// the Exif block's orientation and colour-space marks, and the ICC profile (APP2 "ICC_PROFILE",
// split over as many segments as it needs). A profile with a chunk missing or twice is no
// profile. Only reads; malformed segments are skipped or end the walk. Only the segments it
// keeps are read whole; the others are stepped over, so a file is never read beyond them.
class JpegMetadata {
public:
    static PhotoMetadata read(const JpegSource &jpeg);
    // The photo's Exif block (the TIFF structure after "Exif\0\0" of the first APP1 that
    // holds one); empty when there is none among the segments.
    static QByteArray exif(const JpegSource &jpeg);

private:
    // Calls `visit(marker, offset, length)` for each marker segment before the first scan,
    // with where its payload lies in the source.
    template <typename Visit>
    static void forEachSegment(const JpegSource &jpeg, Visit visit);
};
