// SPDX-License-Identifier: MIT
#pragma once

#include <QImage>
#include <QString>

// A raw file developed at half size two ways, with the settings previews use (the camera's
// white balance, sRGB, the stored grid): by LibRaw's own processing, which holds its whole
// working image, and by RawHalfSizeDeveloper, which streams rows. Null images when either fails.
class RawDevelopments {
public:
    static QImage libRaw(const QString &path);
    static QImage streamed(const QString &path);
};
