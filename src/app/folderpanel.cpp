// SPDX-License-Identifier: MIT
#include "folderpanel.h"

#include <QFileDialog>

std::optional<QUrl> FolderPanel::testAnswer() {
    const QString folder = qEnvironmentVariable("QUILLMERE_TEST_FOLDER");
    if (folder.isEmpty())
        return std::nullopt;
    return QUrl::fromLocalFile(folder);
}

std::optional<QUrl> FolderPanel::ask(const QString &prompt) {
    if (std::optional<QUrl> answer = testAnswer())
        return answer;
    const QString folder = QFileDialog::getExistingDirectory(
        nullptr, prompt, QString(), QFileDialog::ShowDirsOnly | QFileDialog::DontResolveSymlinks);
    if (folder.isEmpty())
        return std::nullopt;
    return QUrl::fromLocalFile(folder);
}
