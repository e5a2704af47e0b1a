// SPDX-License-Identifier: MIT
#pragma once

#include <QLoggingCategory>

// For a support person to read, "quillmere.session": the live session: opened, resumed after a restart, paused and unpaused, stopped, left at a quit, and each photo the session hands to delivery or skips. Silent as the program ships;
// QT_LOGGING_RULES="quillmere.*.debug=true" turns it on.
Q_DECLARE_LOGGING_CATEGORY(sessionLog)
