// SPDX-License-Identifier: MIT
#include "testtrace.h"

#include "sessionviewmodel.h"
#include "uploadmanager.h"

#include <QGuiApplication>
#include <cstdio>

bool TestTrace::enabled() {
    return !qEnvironmentVariableIsEmpty("QUILLMERE_TEST_TRACE");
}

TestTrace::TestTrace(SessionViewModel &viewModel, QObject *parent)
    : QObject(parent)
    , m_viewModel(viewModel) {
    connect(&m_screen, &ScreenSwitch::screenChanged, this,
            [this] { say(QStringLiteral("screen ") + ScreenSwitch::name(m_screen.screen())); });
    connect(&viewModel, &SessionViewModel::uploadManagerChanged, this,
            [this] { follow(m_viewModel.uploadManager()); });
    connect(qGuiApp, &QGuiApplication::focusObjectChanged, this, &TestTrace::reportFocus);
    m_screen.setViewModel(&viewModel);
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
