// SPDX-License-Identifier: MIT
#include "deliverylog.h"

// Critical is the least a category says unless asked: nothing the program says is critical.
Q_LOGGING_CATEGORY(deliveryLog, "quillmere.delivery", QtCriticalMsg)
Q_LOGGING_CATEGORY(journalLog, "quillmere.journal", QtCriticalMsg)
