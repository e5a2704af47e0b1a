// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

// Tools a test drives from outside (a virtual display, a compositor, a browser). On a
// developer's machine a missing one skips the test; under CI it fails it, so a green run has
// always run the test.
class RequiredTool {
public:
    // Whether this run is CI's (CI set to "true", as CI services set it).
    static bool underCi();
    // What to report when `tool` cannot be used: `why` says what is missing and how to get it.
    static QString missingMessage(const QString &tool, const QString &why);
};

// Skips the running test on a developer's machine, fails it under CI; the message names the tool.
#define QUILLMERE_MISSING_TOOL(tool, why)                                                          \
    do {                                                                                           \
        const QString quillmereToolMessage = RequiredTool::missingMessage(tool, why);              \
        if (RequiredTool::underCi())                                                               \
            QFAIL(qPrintable(quillmereToolMessage));                                               \
        QSKIP(qPrintable(quillmereToolMessage));                                                   \
    } while (false)
