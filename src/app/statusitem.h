// SPDX-License-Identifier: MIT
#pragma once

#include <QMenu>
#include <QObject>
#include <QRect>
#include <QSystemTrayIcon>

class SessionViewModel;

// The tray icon: the camera, with the red dot while the controller records, an orange one while
// photos wait to be delivered (its tooltip says how many and why). A paused recording
// keeps its dot; the pause shows only inside the panel. A click toggles the panel; the context
// menu (right click, and the only way in on trays that open a menu for every click) opens it or
// ends the program.
class StatusItem : public QObject {
    Q_OBJECT

public:
    explicit StatusItem(SessionViewModel &viewModel, QObject *parent = nullptr);
    ~StatusItem() override;

    // What the desktop's tray is given: its picture, its menu, its clicks.
    QSystemTrayIcon &trayIcon() { return m_tray; }

Q_SIGNALS:
    // With the icon's rectangle on screen, which is empty where the tray does not say it.
    void clicked(const QRect &iconGeometry);
    void openRequested(const QRect &iconGeometry);
    void quitRequested();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void refresh(bool force);

    SessionViewModel &m_viewModel;
    QMenu m_menu; // before the icon that shows it, so it outlives it
    QSystemTrayIcon m_tray;
    bool m_showsRecording = false;
    bool m_showsWaiting = false;
};
