// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

// Previews of PNG files through libpng, one row at a time, so that only the small target is
// held whatever the photo's size (Qt's reader decodes the whole picture at once). Palettes, grey,
// 16 bits and transparency are expanded to 8-bit RGB, and alpha is composed over black. A file
// whose data is damaged or cut short, anywhere up to its end, gets no preview.
class PreviewPngReader {
public:
    static std::optional<QByteArray> createPreview(const QString &path);
};
