// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

// What a preview takes over from its photo besides the pixels: how a viewer should turn it
// upright, and what colours its values stand for. Nothing else of the photo's metadata (place,
// serial numbers, names) ever reaches a preview.
struct PhotoMetadata {
    // An EXIF orientation, 2..8; 0 when the stored grid is already upright or nothing valid was
    // recorded, and then the preview says nothing about it.
    int orientation = 0;
    // The photo's embedded ICC profile, as stored; empty when it has none.
    QByteArray iccProfile;
    // Marked Adobe RGB by its EXIF (or a RAW's colour-space setting) without a profile, as
    // cameras set to Adobe RGB write their JPEGs.
    bool adobeRgb = false;

    // Orientation 1 is the stored grid itself; anything outside 1..8 is damage.
    static int validOrientation(int value) { return value >= 2 && value <= 8 ? value : 0; }
};
