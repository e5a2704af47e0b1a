// SPDX-License-Identifier: MIT
#pragma once

#include <QDir>
#include <QString>
#include <QTemporaryDir>
#include <memory>

class DevService;
class PanelCamera;
class QQmlApplicationEngine;
class QQuickItem;
class QQuickWindow;
class SessionViewModel;

// Walks the real controller, against devservice, through every state the screens know, and
// has the camera take each one: sign-in, setup, a recording and its end.
class ScreenshotTour {
public:
    ScreenshotTour(DevService &service, const QDir &output);
    ~ScreenshotTour();

    bool run();
    QString errorString() const { return m_error; }
    QStringList written() const;

private:
    bool load();
    bool shoot(const QString &state);
    bool fail(const QString &message);
    bool waitUntil(const std::function<bool()> &condition, int milliseconds);
    bool login();
    bool setup();
    bool recording();
    // Photos the service turns away wait, on the recording and the finished screens.
    bool waiting();
    bool finished();
    // The screen's link as a QR code, opened as its button opens it.
    bool shootQrCode(const QString &screen, const QString &state);
    // A session quit from while it recorded: offered at the next start, then taken up again.
    bool resumed();
    // The program as it starts again: a new controller on the same journal, in the same panel.
    void restartController();
    void editSession(const std::function<void(class LiveSession &)> &edit);

    DevService &m_service;
    QDir m_output;
    QTemporaryDir m_folders;
    QString m_watchFolder;
    std::unique_ptr<SessionViewModel> m_viewModel;
    std::unique_ptr<QQmlApplicationEngine> m_engine;
    QQuickWindow *m_window = nullptr;
    std::unique_ptr<PanelCamera> m_camera;
    QString m_error;
};
