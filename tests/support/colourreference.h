// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QImage>

// The yardstick for a preview's colours, through Little CMS: ICC profiles of the colour spaces
// cameras and editors use, made from their published definitions; a picture's true colours in
// sRGB, converted at full size; and the CIE76 colour difference of two sRGB pictures.
class ColourReference {
public:
    static QByteArray srgbProfile();
    static QByteArray adobeRgbProfile();
    // Wide-gamut spaces: Display P3 (D65, the sRGB curve) and ProPhoto RGB (D50, gamma 1.8).
    static QByteArray displayP3Profile();
    static QByteArray proPhotoProfile();
    // Adobe RGB as a camera maker's profile often has it: a lookup table from the camera's
    // values to CIELAB (A2B0 and A2B1), no matrix or curves.
    static QByteArray adobeRgbLookupProfile();

    // An RGB888 picture's values taken in one space, given in another (relative colorimetric,
    // out-of-gamut colours clipped); a null image when a profile cannot be read.
    static QImage convert(const QImage &rgb, const QByteArray &from, const QByteArray &to);

    struct Difference {
        double mean = 0;
        double p99 = 0;
    };
    // Between two sRGB pictures of the same size, pixel by pixel, in CIELAB (D50).
    static Difference deltaE76(const QImage &a, const QImage &b);
};
