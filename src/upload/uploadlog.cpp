// SPDX-License-Identifier: MIT
#include "uploadlog.h"

// Critical is the least a category says unless asked: nothing the program says is critical.
Q_LOGGING_CATEGORY(uploadLog, "quillmere.upload", QtCriticalMsg)
