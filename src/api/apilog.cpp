// SPDX-License-Identifier: MIT
#include "apilog.h"

// Critical is the least a category says unless asked: nothing the program says is critical.
Q_LOGGING_CATEGORY(apiLog, "quillmere.api", QtCriticalMsg)
