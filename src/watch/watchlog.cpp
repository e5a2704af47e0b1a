// SPDX-License-Identifier: MIT
#include "watchlog.h"

// Critical is the least a category says unless asked: nothing the program says is critical.
Q_LOGGING_CATEGORY(watchLog, "quillmere.watch", QtCriticalMsg)
