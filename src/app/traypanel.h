// SPDX-License-Identifier: MIT
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QRect>

class QQuickWindow;

// Shows and hides the panel window: under the tray icon, gone as soon as it loses the focus or
// Escape is pressed; or, on a desktop without a tray, as an ordinary small window, which closes
// to the taskbar rather than ending the program. The desktops' quirks are handled here: X11
// trays that report no icon geometry, Wayland, where a compositor may ignore where a client
// asks to be placed, and macOS, where the panel must float over other windows.
class TrayPanel : public QObject {
    Q_OBJECT

public:
    enum class Mode { underTrayIcon, standalone };

    TrayPanel(QQuickWindow *window, Mode mode, QObject *parent = nullptr);
    ~TrayPanel() override;

    Mode mode() const { return m_mode; }
    // A tray that comes or goes while the program runs: the window changes kind, and is hidden
    // in between.
    void setMode(Mode mode);
    bool isShown() const;

    // A click on the tray icon: opens the panel under it, or closes it. The click that took
    // the focus from an open panel has already closed it and does not open it again.
    void toggle(const QRect &iconGeometry);
    void showUnder(const QRect &iconGeometry);
    void showStandalone();
    void hide();

    // While a modal dialog of ours is up (the folder chooser), the panel stays open although
    // the dialog has the focus, and takes the focus back afterwards.
    void setHeld(bool held);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void applyWindowFlags();
    void place();
    void handleActiveChanged();

    QPointer<QQuickWindow> m_window;
    Mode m_mode;
    QRect m_anchor;
    bool m_placeable = false;
    QElapsedTimer m_sinceFocusLoss;
    bool m_held = false;
};
