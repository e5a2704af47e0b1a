// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QProcess>

// The paths that must stop the process cannot run inside a test: the test program starts
// itself again as a child in a named mode, and the test looks at how the child ended.
//
//     int main(int argc, char **argv)
//     {
//         if (const QByteArray mode = FatalChild::mode(); !mode.isEmpty())
//             return runChildMode(mode);   // calls FatalChild::expectAbort() first
//         ...
//     }
class FatalChild {
public:
    struct Result {
        QProcess::ExitStatus status = QProcess::NormalExit;
        int exitCode = 0;
        QByteArray output;
        QByteArray errors;
    };

    // The mode this process was started in; empty in the test itself.
    static QByteArray mode();
    // No core file for an abort that is the expected outcome.
    static void expectAbort();
    // Runs this program in `mode`, with `environment` added to its own.
    static Result run(const QByteArray &mode, const QProcessEnvironment &environment = {});
};
