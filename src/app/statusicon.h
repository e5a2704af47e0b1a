// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QIcon>
#include <QImage>
#include <QSize>

// The tray's picture: the camera glyph and, while a session is recording (paused or not), a
// red dot 6 across beside it, 4 apart, both centred vertically.
class StatusIcon {
public:
    static constexpr int glyphSize = 18;
    static constexpr int dotSize = 6;
    static constexpr int spacing = 4;

    static QSize logicalSize(bool recording);
    // Drawn at `scale` device pixels per logical pixel, the camera in `ink`.
    static QImage image(bool recording, const QColor &ink, qreal scale);
    // Every size a tray asks for, drawn afresh rather than scaled. `template` marks the idle
    // picture as a mask, which macOS tints to suit its menu bar; the dot keeps its red.
    static QIcon icon(bool recording, const QColor &ink, bool templateImage);
    static QColor dotColor();
};
