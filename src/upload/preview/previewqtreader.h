// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

// Previews of whatever else Qt's image readers recognise by content (BMP, GIF, WebP...: files
// named like photos that are something else). Qt decodes the whole first image at once, so this
// holds one full-size decode (and nothing else of that size) while its rows stream into the
// resampler. Alpha is composed over black.
class PreviewQtReader {
public:
    static std::optional<QByteArray> createPreview(const QString &path);
};
