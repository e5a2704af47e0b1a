// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QIcon>
#include <QImage>
#include <QRectF>

// The tray's picture: a square holding the camera glyph at full size and, while a session is
// recording (paused or not), a red dot as a badge in its bottom-right corner; an orange one
// while photos wait to be delivered, recording or not. Trays on every
// desktop ask for square pictures of their own size; a picture that grew wider with the dot
// would be shrunk to fit, camera and all, the moment recording starts.
class StatusIcon {
public:
    // The picture's side in a menu bar of the usual height, in logical pixels.
    static constexpr int menuBarSize = 18;

    // The square picture, `pixels` device pixels across, the camera in `ink`.
    static QImage image(bool recording, const QColor &ink, int pixels, bool waiting = false);
    // Drawn afresh for every size and scale a tray or taskbar asks for, never scaled from
    // another size. `templateImage` marks the idle picture as a mask, which macOS tints to suit
    // its menu bar; the dot keeps its red.
    static QIcon icon(bool recording, const QColor &ink, bool templateImage, bool waiting = false);
    static QColor dotColor();
    static QColor waitingDotColor();
    // Where the dot lies in a picture `pixels` across, and the clear ring around it that keeps
    // it apart from the camera on any background.
    static QRectF dotRect(int pixels);
    static QRectF ringRect(int pixels);
};
