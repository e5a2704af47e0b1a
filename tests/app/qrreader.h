// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

// Reads the QR codes in a picture with zbar's own decoder (zbarimg, package zbar-tools), as a
// phone's camera would read them off the screen.
class QrReader {
public:
    // Where zbarimg is; empty when it is not installed.
    static QString program();
    // The text of every QR code in the PNG at `path`, none when it holds none. False, with
    // `error`, when zbarimg cannot read the picture.
    static bool read(const QString &path, QStringList *texts, QString *error);
};
