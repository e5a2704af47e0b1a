// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

// Writes the metadata cameras put into their files, for the tests of what a preview keeps of
// it and of how the files of one shot are told apart: an Exif block with orientation,
// colour-space marks, GPS position, serial number, artist and capture time, and ICC profiles in
// APP2 segments.
class ExifWriter {
public:
    struct Fields {
        int orientation = 0; // none when 0
        // ColorSpace "uncalibrated" and InteropIndex "R03": Adobe RGB, the way cameras say it.
        bool adobeRgb = false;
        bool gpsPosition = false;
        QByteArray artist{};
        QByteArray bodySerialNumber{};
        // When the camera took it: "2015:06:08 12:10:44", and a fraction of its second ("42").
        QByteArray dateTimeOriginal{};
        QByteArray subSecTimeOriginal{};
    };

    // The Exif TIFF structure, big-endian, offsets from its own start.
    static QByteArray tiffBlock(const Fields &fields);
    // IFD0 entries other than the image's own (as a TIFF file would carry them) laid out to sit
    // at `at` in a little-endian TIFF file, whose IFD0 then points at the first returned byte
    // with its Exif IFD pointer; only the Exif and Interoperability directories are written.
    static QByteArray littleEndianExifDirectory(const Fields &fields, quint32 at);
    // The JPEG with an APP1 Exif segment right after its start of image.
    static QByteArray withExif(const QByteArray &jpeg, const Fields &fields);
    // The JPEG with the profile in APP2 "ICC_PROFILE" segments of at most `chunkBytes` each.
    static QByteArray withIccProfile(const QByteArray &jpeg, const QByteArray &profile,
                                     int chunkBytes = 65519);
    // Sets the Exif IFD pointer (tag 34665) of a little-endian TIFF file's IFD0, which must hold
    // that tag already, to an Exif directory appended at the end of the file.
    static bool appendExifToTiff(const QString &path, const Fields &fields);
};
