// SPDX-License-Identifier: MIT
#pragma once

#include <QLoggingCategory>

// For a support person to read, "quillmere.upload": what an attempt at a photo does with its file: the preview made (how long, how large) or why none could be, the original opened for its upload. Silent as the program ships;
// QT_LOGGING_RULES="quillmere.*.debug=true" turns it on.
Q_DECLARE_LOGGING_CATEGORY(uploadLog)
