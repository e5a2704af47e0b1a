// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

// What libjpeg-turbo alone needs for a JPEG preview: read the file, decode at the DCT scale
// the preview uses, encode that decode as it is. No resampling, so no preview can be faster
// than this with the same codec.
class PreviewFloor {
public:
    static std::optional<QByteArray> run(const QString &path);
};
