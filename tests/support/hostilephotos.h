// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QSize>
#include <QString>

// Photo files whose headers claim far more pixels than the file holds, the way a damaged or
// hostile file does: a small real picture of each format with its size fields rewritten (and,
// where the format checks them, its checksums made right again), so that the decoders read the
// claim and nothing else stops them. Also the process's peak memory, to show what a claim cost.
class HostilePhotos {
public:
    static QByteArray jpegClaiming(QSize size);
    static QByteArray pngClaiming(QSize size);
    // A complete PNG of the size, one bit a pixel, all of it blank: a big picture in a small file.
    static bool writeBlankPng(const QString &path, QSize size);
    // A one-strip RGB TIFF whose directory claims the size; the strips it lacks are empty.
    static bool writeTiffClaiming(const QString &path, QSize size);
    // A raw-only DNG whose raw data claims the size.
    static bool writeDngClaiming(const QString &path, QSize size);

    // The most memory this process has had resident since the last reset, in bytes; Linux
    // keeps the mark and lets a process reset its own.
    static qint64 residentPeak();
    static qint64 resident();
    static bool resetResidentPeak();
};
