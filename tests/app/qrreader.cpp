// SPDX-License-Identifier: MIT
#include "qrreader.h"

#include <QProcess>
#include <QStandardPaths>

QString QrReader::program() {
    return QStandardPaths::findExecutable(QStringLiteral("zbarimg"));
}

bool QrReader::read(const QString &path, QStringList *texts, QString *error) {
    texts->clear();
    QProcess zbar;
    zbar.start(program(), {QStringLiteral("--quiet"), QStringLiteral("--raw"),
                           QStringLiteral("-Sdisable"), QStringLiteral("-Sqrcode.enable"), path});
    if (!zbar.waitForFinished(30000)) {
        *error = QStringLiteral("zbarimg did not finish: ") + zbar.errorString();
        return false;
    }
    // zbarimg ends with 4 when the picture holds no code at all.
    if (zbar.exitStatus() == QProcess::NormalExit && zbar.exitCode() == 4)
        return true;
    if (zbar.exitStatus() != QProcess::NormalExit || zbar.exitCode() != 0) {
        *error = QStringLiteral("zbarimg failed: ") +
                 QString::fromLocal8Bit(zbar.readAllStandardError());
        return false;
    }
    *texts = QString::fromUtf8(zbar.readAllStandardOutput())
                 .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    return true;
}
