// SPDX-License-Identifier: MIT
#include "tracedapp.h"

#include <QDeadlineTimer>
#include <QTest>

TracedApp::TracedApp()
    : m_process(std::make_unique<QProcess>()) {
    m_process->setProcessChannelMode(QProcess::SeparateChannels);
    m_process->setReadChannel(QProcess::StandardOutput);
}

TracedApp::~TracedApp() {
    if (m_process->state() != QProcess::NotRunning) {
        m_process->kill();
        m_process->waitForFinished(5000);
    }
}

bool TracedApp::start(const QString &program, const QProcessEnvironment &environment,
                      const QStringList &arguments) {
    m_process->setProcessEnvironment(environment);
    m_process->start(program, arguments);
    return m_process->waitForStarted(10000);
}

bool TracedApp::send(const QString &command) {
    const QByteArray line = command.toUtf8() + '\n';
    return m_process->write(line) == line.size() && m_process->waitForBytesWritten(5000);
}

void TracedApp::readLines() {
    while (m_process->canReadLine())
        m_lines.append(QString::fromUtf8(m_process->readLine()).trimmed());
}

std::optional<QString> TracedApp::next(const QString &prefix, int milliseconds) {
    const QDeadlineTimer deadline(milliseconds);
    for (;;) {
        readLines();
        while (m_taken < m_lines.size()) {
            const QString line = m_lines.at(m_taken++);
            if (line.startsWith(prefix))
                return line;
        }
        if (deadline.hasExpired() || m_process->state() == QProcess::NotRunning)
            return std::nullopt;
        // Keeps this program's own event loop turning (devservice's fixture, the screen).
        QTest::qWait(20);
    }
}

bool TracedApp::waitFor(const QString &line, int milliseconds) {
    const QDeadlineTimer deadline(milliseconds);
    while (const std::optional<QString> found = next(line, int(deadline.remainingTime()))) {
        if (*found == line)
            return true;
    }
    return false;
}

bool TracedApp::waitForLatest(const QString &prefix, const QString &line, int milliseconds) {
    const QDeadlineTimer deadline(milliseconds);
    for (;;) {
        readLines();
        for (qsizetype i = m_lines.size() - 1; i >= 0; --i) {
            if (m_lines.at(i).startsWith(prefix)) {
                if (m_lines.at(i) != line)
                    break;
                m_taken = m_lines.size();
                return true;
            }
        }
        if (deadline.hasExpired() || m_process->state() == QProcess::NotRunning)
            return false;
        QTest::qWait(20);
    }
}

bool TracedApp::waitForExit(int milliseconds) {
    const QDeadlineTimer deadline(milliseconds);
    while (m_process->state() != QProcess::NotRunning && !deadline.hasExpired())
        QTest::qWait(20);
    readLines();
    return m_process->state() == QProcess::NotRunning;
}
