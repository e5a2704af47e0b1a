// SPDX-License-Identifier: MIT
#pragma once

#include "screenswitch.h"

#include <QMetaObject>
#include <QObject>
#include <QPointer>

class QSocketNotifier;
class QWindow;
class SessionViewModel;
class UploadManager;

// For the end-to-end test that drives the program from outside, as a person would: with
// QUILLMERE_TEST_TRACE set, one line on standard output for every change of the screen shown
// ("screen setup"), of the upload count ("uploaded 3") and of the control that has the
// keyboard focus ("focus Detener"), of the panel's visibility ("panel shown", "panel hidden"),
// of what stands for the program on the desktop ("shell tray", "shell window") and of the line
// that says a session was taken up again ("resumed Sesión retomada…"). A line
// "press <name>" on standard input presses the control of that accessible name through its
// accessibility interface, as a screen reader would: for displays no input tool reaches
// (a Wayland compositor); "grab <path>" saves the panel as drawn to that PNG. Off otherwise, and
// absent from shipped builds.
class TestTrace : public QObject {
    Q_OBJECT

public:
    static bool enabled();

    TestTrace(SessionViewModel &viewModel, QWindow *panel, QObject *parent = nullptr);
    ~TestTrace() override;

    void reportShell(bool tray);

private:
    void readCommands();
    void press(const QString &name);
    void grab(const QString &path);
    void follow(UploadManager *manager);
    void reportFocus(QObject *focused);
    static void say(const QString &line);

    SessionViewModel &m_viewModel;
    QPointer<QWindow> m_panel;
    QSocketNotifier *m_commands = nullptr;
    QByteArray m_pending;
    ScreenSwitch m_screen;
    QPointer<UploadManager> m_manager;
    QMetaObject::Connection m_counter;
    qint64 m_lastCount = -1;
    int m_lastOwed = 0;
};
