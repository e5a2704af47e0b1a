// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QTimer>

#include <chrono>
#include <functional>

// Follows whether the desktop has a tray: a panel or a tray host may start or stop while the
// program runs (a GNOME extension switched on, a panel restarted). Qt says whether a tray is
// there but not when that changes, so it is asked every few seconds: a wake-up cheap enough to
// leave running.
class TrayHostWatch : public QObject {
    Q_OBJECT

public:
    using Probe = std::function<bool()>;

    // `probe` says whether a tray is there now; by default Qt's own test.
    explicit TrayHostWatch(std::chrono::milliseconds interval = std::chrono::seconds(2),
                           Probe probe = {}, QObject *parent = nullptr);
    ~TrayHostWatch() override;

    bool available() const { return m_available; }

Q_SIGNALS:
    void availableChanged(bool available);

private:
    void look();

    Probe m_probe;
    QTimer m_timer;
    bool m_available;
};
