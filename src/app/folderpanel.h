// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QUrl>
#include <optional>

// The modal folder chooser the controller asks when the photographer picks the watch folder.
class FolderPanel {
public:
    // The folder the end-to-end test wants chosen (QUILLMERE_TEST_FOLDER), if it set one: a
    // modal system dialog cannot be driven reliably from outside the program.
    static std::optional<QUrl> testAnswer();
    // Directories only, with `prompt` as the dialog's caption; nothing when cancelled.
    static std::optional<QUrl> ask(const QString &prompt);
};
