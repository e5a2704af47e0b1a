// SPDX-License-Identifier: MIT
#include "testtrace.h"

#include "delivery.h"
#include "sessionviewmodel.h"
#include "uploadmanager.h"

#include <QAccessible>
#include <QGuiApplication>
#include <QImage>
#include <QQuickWindow>
#include <QSocketNotifier>
#include <QWindow>
#include <cstdio>
#include <functional>
#include <utility>
#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

bool TestTrace::enabled() {
    return !qEnvironmentVariableIsEmpty("QUILLMERE_TEST_TRACE");
}

TestTrace::TestTrace(SessionViewModel &viewModel, QWindow *panel, QObject *parent)
    : QObject(parent)
    , m_viewModel(viewModel)
    , m_panel(panel) {
    connect(panel, &QWindow::visibleChanged, this, [](bool visible) {
        say(visible ? QStringLiteral("panel shown") : QStringLiteral("panel hidden"));
    });
#ifdef Q_OS_UNIX
    // Commands come only where standard input can be watched like a socket: the tests that
    // send them drive the program on Linux. Elsewhere the trace only reports.
    m_commands = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
    connect(m_commands, &QSocketNotifier::activated, this, &TestTrace::readCommands);
#endif
    connect(&m_screen, &ScreenSwitch::screenChanged, this,
            [this] { say(QStringLiteral("screen ") + ScreenSwitch::name(m_screen.screen())); });
    connect(&viewModel, &SessionViewModel::uploadManagerChanged, this,
            [this] { follow(m_viewModel.uploadManager()); });
    connect(qGuiApp, &QGuiApplication::focusObjectChanged, this, &TestTrace::reportFocus);
    // How many photos are still owed (not wholly delivered), each time it changes.
    connect(&viewModel, &SessionViewModel::deliveriesChanged, this, [this] {
        const int owed = m_viewModel.deliveries().unfinishedCount();
        if (std::exchange(m_lastOwed, owed) != owed)
            say(QStringLiteral("owed %1").arg(owed));
    });
    // The line that says a session was taken up again after the program went away.
    connect(&viewModel, &SessionViewModel::resumeNoticeChanged, this, [this] {
        if (m_viewModel.resumeNotice().isValid())
            say(QStringLiteral("resumed ") + m_viewModel.resumeNotice().toString());
    });
    m_screen.setViewModel(&viewModel);
    if (viewModel.resumeNotice().isValid())
        say(QStringLiteral("resumed ") + viewModel.resumeNotice().toString());
    follow(viewModel.uploadManager());
}

TestTrace::~TestTrace() = default;

void TestTrace::say(const QString &line) {
    std::fputs(qPrintable(line + QLatin1Char('\n')), stdout);
    std::fflush(stdout);
}

void TestTrace::follow(UploadManager *manager) {
    disconnect(m_counter);
    m_manager = manager;
    m_lastCount = -1;
    if (!manager)
        return;
    const auto count = [this] {
        const UploadManager *current = m_manager.data();
        if (!current || current->uploadedCount() == m_lastCount)
            return;
        m_lastCount = current->uploadedCount();
        say(QStringLiteral("uploaded %1").arg(m_lastCount));
    };
    m_counter = connect(manager, &UploadManager::uploadedCountChanged, this, count);
    count();
}

void TestTrace::reportFocus(QObject *focused) {
    // The screens' controls carry the name a screen reader reads in `accessibleName`.
    const QString name = focused ? focused->property("accessibleName").toString() : QString();
    say(QStringLiteral("focus ") + name);
}

void TestTrace::reportShell(bool tray) {
    say(tray ? QStringLiteral("shell tray") : QStringLiteral("shell window"));
}

void TestTrace::readCommands() {
#ifdef Q_OS_UNIX
    char buffer[256];
    const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (count <= 0) {
        m_commands->setEnabled(false); // the other end is gone
        return;
    }
    m_pending.append(buffer, count);
    qsizetype end;
    while ((end = m_pending.indexOf('\n')) >= 0) {
        const QString line = QString::fromUtf8(m_pending.left(end)).trimmed();
        m_pending.remove(0, end + 1);
        if (line.startsWith(QLatin1String("press ")))
            press(line.mid(6));
        else if (line.startsWith(QLatin1String("grab ")))
            grab(line.mid(5));
    }
#endif
}

void TestTrace::grab(const QString &path) {
    auto *window = qobject_cast<QQuickWindow *>(m_panel.data());
    const bool saved = window && window->isVisible() && window->grabWindow().save(path);
    say((saved ? QStringLiteral("grabbed ") : QStringLiteral("could not grab ")) + path);
}

void TestTrace::press(const QString &name) {
    const std::function<bool(QAccessibleInterface *)> pressIn = [&](QAccessibleInterface *node) {
        if (!node || node->state().invisible)
            return false;
        QAccessibleActionInterface *actions = node->actionInterface();
        if (actions && node->text(QAccessible::Name) == name &&
            actions->actionNames().contains(QAccessibleActionInterface::pressAction())) {
            actions->doAction(QAccessibleActionInterface::pressAction());
            return true;
        }
        for (int child = 0; child < node->childCount(); ++child)
            if (pressIn(node->child(child)))
                return true;
        return false;
    };
    const bool pressed = m_panel && pressIn(QAccessible::queryAccessibleInterface(m_panel));
    say((pressed ? QStringLiteral("pressed ") : QStringLiteral("nothing to press named ")) + name);
}
