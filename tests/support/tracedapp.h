// SPDX-License-Identifier: MIT
#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>
#include <memory>
#include <optional>

// The program under test, run with its test trace on (or a test's own program that reports
// the same way): its lines are collected as they come, a test waits, in order, for the ones it
// expects, and sends it commands on its standard input.
class TracedApp {
public:
    TracedApp();
    ~TracedApp();

    bool start(const QString &program, const QProcessEnvironment &environment,
               const QStringList &arguments = {});
    // The next line, after those already taken, that starts with `prefix`; the lines before
    // it are taken too. Nothing when none comes within `milliseconds`.
    std::optional<QString> next(const QString &prefix, int milliseconds);
    bool waitFor(const QString &line, int milliseconds);
    // Whether the latest of all lines that start with `prefix` is, or within `milliseconds`
    // becomes, `line`: for states (the focus) whose report may come before or after another.
    // Every line so far is taken then.
    bool waitForLatest(const QString &prefix, const QString &line, int milliseconds);
    bool waitForExit(int milliseconds);
    // A command on its standard input, as one line.
    bool send(const QString &command);

    QProcess &process() { return *m_process; }
    // Every line so far, for a failure message.
    QString transcript() const { return m_lines.join(QLatin1Char('\n')); }

private:
    void readLines();

    std::unique_ptr<QProcess> m_process;
    QStringList m_lines;
    qsizetype m_taken = 0;
};

// Fails the running test unless the program says `line` within `milliseconds`, after what was
// taken already; the failure shows everything it said.
#define QUILLMERE_EXPECT_LINE(program, line, milliseconds)                                         \
    QVERIFY2((program).waitFor((line), (milliseconds)), qPrintable((program).transcript()))
// The same for a state: the latest line that starts with `prefix` is, or becomes, `line`.
#define QUILLMERE_EXPECT_LATEST(program, prefix, line, milliseconds)                               \
    QVERIFY2((program).waitForLatest((prefix), (line), (milliseconds)),                            \
             qPrintable((program).transcript()))
