// SPDX-License-Identifier: MIT
#include "folderpanel.h"

#include <QFileDialog>

#if QUILLMERE_TEST_SWITCHES
std::optional<QUrl> FolderPanel::testAnswer() {
    const QString folder = qEnvironmentVariable("QUILLMERE_TEST_FOLDER");
    if (folder.isEmpty())
        return std::nullopt;
    return QUrl::fromLocalFile(folder);
}
#endif

std::optional<QUrl> FolderPanel::ask(const QString &prompt) {
#if QUILLMERE_TEST_SWITCHES
    if (std::optional<QUrl> answer = testAnswer())
        return answer;
#endif
    const QString folder = QFileDialog::getExistingDirectory(
        nullptr, prompt, QString(), QFileDialog::ShowDirsOnly | QFileDialog::DontResolveSymlinks);
    if (folder.isEmpty())
        return std::nullopt;
    return QUrl::fromLocalFile(folder);
}
