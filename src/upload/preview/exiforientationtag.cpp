// SPDX-License-Identifier: MIT
#include "exiforientationtag.h"

namespace {

void append16(QByteArray &bytes, int value) {
    bytes.append(char((value >> 8) & 0xFF));
    bytes.append(char(value & 0xFF));
}

void append32(QByteArray &bytes, quint32 value) {
    append16(bytes, int(value >> 16));
    append16(bytes, int(value & 0xFFFF));
}

} // namespace

QByteArray ExifOrientationTag::segment(int orientation) {
    // Big-endian TIFF structure: header, IFD0 at offset 8 with one entry, no next directory.
    QByteArray tiff("MM\0\x2A", 4);
    append32(tiff, 8);
    append16(tiff, 1);
    append16(tiff, 0x0112); // Orientation
    append16(tiff, 3);      // SHORT
    append32(tiff, 1);
    append16(tiff, orientation); // left-justified in the four-byte value field
    append16(tiff, 0);
    append32(tiff, 0);

    QByteArray app1("\xFF\xE1", 2);
    append16(app1, int(2 + 6 + tiff.size()));
    app1.append("Exif\0\0", 6);
    return app1 + tiff;
}

QByteArray ExifOrientationTag::addTo(const QByteArray &jpeg, int orientation) {
    if (orientation < 2 || orientation > 8 || !jpeg.startsWith("\xFF\xD8"))
        return jpeg;
    qsizetype at = 2;
    // JFIF asks to come first; Exif readers find the segment after it just as well.
    if (jpeg.size() >= 6 && uchar(jpeg[2]) == 0xFF && uchar(jpeg[3]) == 0xE0)
        at = 4 + (qsizetype(uchar(jpeg[4])) << 8 | uchar(jpeg[5]));
    if (at > jpeg.size())
        return jpeg;
    const QByteArray tag = segment(orientation);
    QByteArray tagged;
    tagged.reserve(jpeg.size() + tag.size());
    tagged.append(jpeg.constData(), at);
    tagged.append(tag);
    tagged.append(jpeg.constData() + at, jpeg.size() - at);
    return tagged;
}
