// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QPointer>

class QWindow;
class SessionViewModel;

// Where there is no tray, the panel is an ordinary window and its title and icon, which the
// taskbar and the window switcher show, take the tray's place: the program's camera, with the
// red dot and "Grabando" in the title while a session records (paused too, as in the tray).
class WindowStatus : public QObject {
    Q_OBJECT

public:
    static QString title(bool recording);

    WindowStatus(SessionViewModel &viewModel, QWindow *window, QObject *parent = nullptr);
    ~WindowStatus() override;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void refresh();

    SessionViewModel &m_viewModel;
    QPointer<QWindow> m_window;
};
