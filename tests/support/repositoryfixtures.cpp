// SPDX-License-Identifier: MIT
#include "repositoryfixtures.h"

#include <QDir>
#include <QFileInfo>

QString RepositoryFixtures::path(const QString &name) {
    return QDir(QStringLiteral(QUILLMERE_FIXTURES_DIR)).filePath(name);
}

QString RepositoryFixtures::missing(const QString &name) {
    const QFileInfo file(path(name));
    if (file.isFile() && file.isReadable())
        return {};
    return QStringLiteral("the test fixture %1 is missing or unreadable: it belongs in the "
                          "repository's tests/fixtures folder")
        .arg(QDir::toNativeSeparators(file.filePath()));
}
