// SPDX-License-Identifier: MIT
#pragma once

#include <QLoggingCategory>

// For a support person to read, "quillmere.api": every request to the service and the object store: its endpoint, status and time, a connection that failed or closed unanswered and a request sent again, a busy server's word on when to come back, and each probe of the service. Silent as the program ships;
// QT_LOGGING_RULES="quillmere.*.debug=true" turns it on.
Q_DECLARE_LOGGING_CATEGORY(apiLog)
