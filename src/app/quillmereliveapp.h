// SPDX-License-Identifier: MIT
#pragma once

#include "sessionviewmodel.h"

#include <QObject>
#include <memory>

class DesktopNotifier;
class QQmlApplicationEngine;
class QuitConfirmation;
class QQuickWindow;
class RecordingActivity;
class StatusItem;
class TestTrace;
class TrayHostWatch;
class TrayPanel;
class WindowStatus;

// The application: one controller for the whole run, the tray icon and the panel that shows
// the controller's screens. Where the desktop has no tray, the panel is a small window of its
// own instead, whose title and icon show a recording; the program follows a tray that comes or
// goes while it runs. What the photographer must know while the panel is hidden goes to the
// desktop's notifications.
class QuillmereLiveApp : public QObject {
    Q_OBJECT

public:
    explicit QuillmereLiveApp(QObject *parent = nullptr);
    ~QuillmereLiveApp() override;

    // Loads the panel and shows the icon (or the window). False when the panel cannot load.
    bool start();

    SessionViewModel &viewModel() { return m_viewModel; }

private:
    void useTray(bool available);
    // A click on one of our notifications: the panel, under the icon or as the window.
    void openPanel();
    std::optional<QUrl> chooseFolder(const QString &prompt);

    SessionViewModel m_viewModel;
    std::unique_ptr<RecordingActivity> m_activity;
    std::unique_ptr<QQmlApplicationEngine> m_engine;
    std::unique_ptr<TrayPanel> m_panel;
    std::unique_ptr<WindowStatus> m_windowStatus;
    std::unique_ptr<StatusItem> m_statusItem;
    std::unique_ptr<TrayHostWatch> m_trayWatch;
    std::unique_ptr<QuitConfirmation> m_quit;
    std::unique_ptr<DesktopNotifier> m_notifier;
#if QUILLMERE_TEST_SWITCHES
    std::unique_ptr<TestTrace> m_trace;
#endif
};
