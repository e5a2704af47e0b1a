// SPDX-License-Identifier: MIT
#include "sessionlog.h"

// Critical is the least a category says unless asked: nothing the program says is critical.
Q_LOGGING_CATEGORY(sessionLog, "quillmere.session", QtCriticalMsg)
