// SPDX-License-Identifier: MIT
#pragma once

#include <QSize>
#include <QString>

// The photo files a session benchmark shoots, written once beforehand, and the camera's way of
// writing each copy into the watch folder.
namespace SessionPhotos {

// A camera-like JPEG. `detail` adds texture at the scale a preview keeps (blocks of three
// pixels), as a busy scene (foliage, a crowd, fabric) has it: its preview is larger, and so is
// the original.
int makeJpeg(const QString &path, QSize size, int quality, int detail);
// A camera's RAW of the JPEG's picture: the picture as the sensor's, at `sensorWidth` pixels
// across (the JPEG's own width when 0), and the JPEG itself embedded, as modern cameras do.
int makeDng(const QString &path, const QString &jpegPath, int sensorWidth);
// A 16-bit RGB TIFF of the generated scene, as tethering software and editors write them:
// uncompressed, or deflated with the horizontal predictor.
int makeTiff(const QString &path, QSize size, bool deflate);

// Copies the file in four writes, as a camera or a card reader puts a photo down, a megabyte
// at a time so that the copy itself holds next to nothing.
bool copyAsCamera(const QString &from, const QString &to);

} // namespace SessionPhotos
