// SPDX-License-Identifier: MIT
#include "virtualdisplay.h"

#include <QByteArray>
#include <QDeadlineTimer>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

VirtualDisplay::~VirtualDisplay() {
    if (m_pid <= 0)
        return;
    ::kill(m_pid, SIGTERM);
    int status = 0;
    ::waitpid(m_pid, &status, 0);
}

bool VirtualDisplay::start(QSize screen) {
    const QString server = QStandardPaths::findExecutable(QStringLiteral("Xvfb"));
    if (server.isEmpty()) {
        m_error = QStringLiteral("Xvfb is not installed");
        return false;
    }
    int pipeEnds[2];
    if (::pipe(pipeEnds) != 0) {
        m_error = QStringLiteral("no pipe");
        return false;
    }
    // Only the write end goes to the server, which prints its display number there.
    ::fcntl(pipeEnds[0], F_SETFD, FD_CLOEXEC);

    const QByteArray program = server.toLocal8Bit();
    const QByteArray displayFd = QByteArray::number(pipeEnds[1]);
    const QByteArray geometry =
        QByteArray::number(screen.width()) + 'x' + QByteArray::number(screen.height()) + "x24";
    QByteArrayList arguments = {program,  "-displayfd", displayFd, "-screen", "0",
                                geometry, "-nolisten",  "tcp",     "-noreset"};
    std::vector<char *> argv;
    for (QByteArray &argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);

    // The server's own output goes nowhere: should this test die, a server still holding the
    // test runner's output pipe would keep the runner waiting.
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const int spawned =
        ::posix_spawn(&m_pid, program.constData(), &actions, nullptr, argv.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(pipeEnds[1]);
    if (spawned != 0) {
        ::close(pipeEnds[0]);
        m_pid = -1;
        m_error = QStringLiteral("cannot start Xvfb");
        return false;
    }

    QByteArray number;
    pollfd ready{pipeEnds[0], POLLIN, 0};
    while (!number.endsWith('\n') && ::poll(&ready, 1, 10000) > 0) {
        char chunk[16];
        const ssize_t read = ::read(pipeEnds[0], chunk, sizeof chunk);
        if (read <= 0)
            break;
        number.append(chunk, read);
    }
    ::close(pipeEnds[0]);
    if (!number.endsWith('\n')) {
        m_error = QStringLiteral("Xvfb did not say its display");
        return false;
    }
    m_name = QLatin1Char(':') + QString::fromLatin1(number.trimmed());
    return true;
}

bool VirtualDisplay::startAsThisProcessDisplay() {
    if (!start()) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        return false;
    }
    qputenv("DISPLAY", m_name.toLocal8Bit());
    qputenv("QT_QPA_PLATFORM", "xcb");
    qunsetenv("WAYLAND_DISPLAY");
    return true;
}

QString VirtualDisplay::findWindow(const QString &name) {
    // xdotool gives up with BadWindow when a window it is looking at goes away mid-search,
    // as the windows a starting program makes and drops do on a slow machine: look again.
    QDeadlineTimer deadline(20000);
    do {
        QString windows;
        if (xdotool({QStringLiteral("search"), QStringLiteral("--sync"),
                     QStringLiteral("--onlyvisible"), QStringLiteral("--name"), name},
                    &windows))
            return windows.section(QLatin1Char('\n'), 0, 0);
        QTest::qWait(200);
    } while (!deadline.hasExpired());
    return {};
}

bool VirtualDisplay::xdotool(const QStringList &arguments, QString *output) {
    QProcess tool;
    tool.start(QStringLiteral("xdotool"), arguments);
    if (!tool.waitForFinished(20000) || tool.exitCode() != 0) {
        qWarning("xdotool %s: exit %d: %s", qPrintable(arguments.join(QLatin1Char(' '))),
                 tool.exitCode(), tool.readAllStandardError().constData());
        return false;
    }
    if (output)
        *output = QString::fromUtf8(tool.readAllStandardOutput()).trimmed();
    return true;
}
