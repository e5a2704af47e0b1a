// SPDX-License-Identifier: MIT
#pragma once

#include <QProcessEnvironment>
#include <QString>

class SessionHarness;

// The program as it runs, without its screens: the controller alone, in a process of its own
// that a test starts, kills and starts again. A test program is its own headless program: its
// main() asks isProgram() first and, if so, runs it instead of the tests.
//
// It says what a person would see, one line each, as it changes: "screen recording 1001",
// "paused 1", "offer Ana", "resumed Sesión retomada…", "folder …" ("folder ok" once the watch
// folder is back), "journal …" ("journal ok"), "notice …" ("notice none"), "refused …",
// "error …", "owed 2", "uploaded 3", "stored 3". It takes commands on its standard input, one a
// line: "signin", "start <client>" (on the harness's watch folder), "pause", "unpause", "stop",
// "new", "continue", "quit" (the photographer's "Salir"), and "fill <folder>" / "unfill
// <folder>", which fill the disk that folder is on with a file of their own and take it away.
class HeadlessProgram {
public:
    static bool isProgram();
    static int run();
    // This test program as the program, pointed at the harness's service, preferences, journal
    // and watch folder.
    static QProcessEnvironment environment(SessionHarness &harness);
    // Where the harness puts it: this test program itself.
    static QString path();
};

// The main() of a test program that is its own headless program.
#define QUILLMERE_HEADLESS_TEST_MAIN(TestObject)                                                   \
    int main(int argc, char *argv[]) {                                                             \
        QCoreApplication application(argc, argv);                                                  \
        if (HeadlessProgram::isProgram())                                                          \
            return HeadlessProgram::run();                                                         \
        TestObject test;                                                                           \
        return QTest::qExec(&test, argc, argv);                                                    \
    }
