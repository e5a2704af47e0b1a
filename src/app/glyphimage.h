// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QImage>
#include <QSize>
#include <QString>

// Our own glyphs (icons/<name>.svg, drawn in black on 24×24) in any colour and at any pixel
// size, so they stay crisp at every scale.
class GlyphImage {
public:
    static QString resourcePath(const QString &name);
    static bool exists(const QString &name);
    // The glyph fitted into `pixelSize` with its proportions kept and centred; transparent
    // elsewhere. A null image for an unknown name or an empty size.
    static QImage render(const QString &name, const QSize &pixelSize, const QColor &color);
};
