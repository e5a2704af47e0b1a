// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QRect>
#include <QSystemTrayIcon>

class SessionViewModel;

// The tray icon: the camera, with the red dot while the controller records. A paused recording
// keeps its dot; the pause shows only inside the panel.
class StatusItem : public QObject {
    Q_OBJECT

public:
    explicit StatusItem(SessionViewModel &viewModel, QObject *parent = nullptr);
    ~StatusItem() override;

    bool showsRecording() const { return m_showsRecording; }

Q_SIGNALS:
    // With the icon's rectangle on screen, which is empty where the tray does not say it.
    void clicked(const QRect &iconGeometry);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void refresh(bool force);

    SessionViewModel &m_viewModel;
    QSystemTrayIcon m_tray;
    bool m_showsRecording = false;
};
