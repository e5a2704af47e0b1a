// SPDX-License-Identifier: MIT
#pragma once

#include <QLoggingCategory>

// For a support person to read, "quillmere.watch": the watch folder: when it is watched, when it goes missing and comes back, each new file and when it is handed over once its writer has finished. Silent as the program ships;
// QT_LOGGING_RULES="quillmere.*.debug=true" turns it on.
Q_DECLARE_LOGGING_CATEGORY(watchLog)
