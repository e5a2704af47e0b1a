// SPDX-License-Identifier: MIT
#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>
#include <memory>
#include <optional>

// The program under test, run with its test trace on: its lines are collected as they come,
// and a test waits, in order, for the ones it expects.
class TracedApp {
public:
    TracedApp();
    ~TracedApp();

    bool start(const QString &program, const QProcessEnvironment &environment);
    // The next line, after those already taken, that starts with `prefix`; the lines before
    // it are taken too. Nothing when none comes within `milliseconds`.
    std::optional<QString> next(const QString &prefix, int milliseconds);
    bool waitFor(const QString &line, int milliseconds);
    // Whether the latest of all lines that start with `prefix` is, or within `milliseconds`
    // becomes, `line`: for states (the focus) whose report may come before or after another.
    // Every line so far is taken then.
    bool waitForLatest(const QString &prefix, const QString &line, int milliseconds);
    bool waitForExit(int milliseconds);

    QProcess &process() { return *m_process; }
    // Every line so far, for a failure message.
    QString transcript() const { return m_lines.join(QLatin1Char('\n')); }

private:
    void readLines();

    std::unique_ptr<QProcess> m_process;
    QStringList m_lines;
    qsizetype m_taken = 0;
};
