// SPDX-License-Identifier: MIT
#include "windowstatus.h"

#include "sessionviewmodel.h"
#include "statusicon.h"

#include <QEvent>
#include <QGuiApplication>
#include <QPalette>
#include <QWindow>

QString WindowStatus::title(bool recording) {
    // The state first: a narrow taskbar button cuts the end of a title off.
    return recording ? QStringLiteral("● Grabando — Quillmere Live")
                     : QStringLiteral("Quillmere Live");
}

WindowStatus::WindowStatus(SessionViewModel &viewModel, QWindow *window, QObject *parent)
    : QObject(parent)
    , m_viewModel(viewModel)
    , m_window(window) {
    connect(&viewModel, &SessionViewModel::stateChanged, this, &WindowStatus::refresh);
    // The camera is drawn in the desktop's text colour, which changes with its appearance.
    QGuiApplication::instance()->installEventFilter(this);
    refresh();
}

WindowStatus::~WindowStatus() = default;

bool WindowStatus::eventFilter(QObject *watched, QEvent *event) {
    if (watched == QGuiApplication::instance() && event->type() == QEvent::ApplicationPaletteChange)
        refresh();
    return QObject::eventFilter(watched, event);
}

void WindowStatus::refresh() {
    if (!m_window)
        return;
    const bool recording = m_viewModel.state() == AppState::recording;
    const QColor ink = QGuiApplication::palette().color(QPalette::WindowText);
    m_window->setTitle(title(recording));
    m_window->setIcon(StatusIcon::icon(recording, ink, false));
}
