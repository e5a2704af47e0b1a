// SPDX-License-Identifier: MIT
#pragma once

#include <QLoggingCategory>

// What delivery went through, for a support person to read: every photo handed over, each step
// of its attempts, each failure and why, each wait and retry ("quillmere.delivery"), and what the
// journal wrote and how long its disk took ("quillmere.journal"). Silent as the program ships;
// QT_LOGGING_RULES="quillmere.*.debug=true" turns them on.
Q_DECLARE_LOGGING_CATEGORY(deliveryLog)
Q_DECLARE_LOGGING_CATEGORY(journalLog)
