// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QUrl>
#include <optional>

// The modal folder chooser the controller asks when the photographer picks the watch folder.
class FolderPanel {
public:
#if QUILLMERE_TEST_SWITCHES
    // The folder an end-to-end test wants chosen (QUILLMERE_TEST_FOLDER), if it set one, in a
    // development build; a shipped build always asks the photographer.
    static std::optional<QUrl> testAnswer();
#endif
    // Directories only, with `prompt` as the dialog's caption; nothing when cancelled.
    static std::optional<QUrl> ask(const QString &prompt);
};
