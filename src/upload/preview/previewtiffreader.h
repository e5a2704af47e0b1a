// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

// Previews of TIFF files, first page only, read with libtiff a row at a time so that only the
// small target is ever held, whatever the photo's size or depth. 8- and 16-bit RGB and grey
// strips are read directly, keeping 16-bit precision until the one rounding to 8 bits; any other
// layout libtiff knows (tiles, palettes, CMYK, YCbCr, 1-bit...) goes through its RGBA reader in
// bands. Alpha is composed over black.
class PreviewTiffReader {
public:
    static std::optional<QByteArray> createPreview(const QString &path);
};
