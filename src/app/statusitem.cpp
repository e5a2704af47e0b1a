// SPDX-License-Identifier: MIT
#include "statusitem.h"

#include "sessionviewmodel.h"
#include "statusicon.h"
#include "trayplatform.h"

#include <QAction>
#include <QEvent>
#include <QGuiApplication>
#include <QPalette>

namespace {
bool isMacOS() {
    return QGuiApplication::platformName() == QLatin1String("cocoa");
}
} // namespace

StatusItem::StatusItem(SessionViewModel &viewModel, QObject *parent)
    : QObject(parent)
    , m_viewModel(viewModel) {
    connect(m_menu.addAction(QStringLiteral("Abrir")), &QAction::triggered, this,
            [this] { Q_EMIT openRequested(m_tray.geometry()); });
    connect(m_menu.addAction(QStringLiteral("Salir")), &QAction::triggered, this,
            &StatusItem::quitRequested);
    TrayPlatform::attachMenu(m_tray, m_menu);
    connect(&viewModel, &SessionViewModel::stateChanged, this, [this] { refresh(false); });
    connect(&viewModel, &SessionViewModel::deliveriesChanged, this, [this] { refresh(false); });
    connect(&m_tray, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger)
                    Q_EMIT clicked(m_tray.geometry());
            });
    // The camera is drawn in the desktop's text colour, which changes with its appearance.
    // On Windows it follows the taskbar's colours instead, which the system keeps apart.
    QGuiApplication::instance()->installEventFilter(this);
    TrayPlatform::watchLightTray(this, [this] { refresh(true); });
    refresh(true);
    m_tray.show();
}

StatusItem::~StatusItem() = default;

bool StatusItem::eventFilter(QObject *watched, QEvent *event) {
    if (watched == QGuiApplication::instance() && event->type() == QEvent::ApplicationPaletteChange)
        refresh(true);
    return QObject::eventFilter(watched, event);
}

void StatusItem::refresh(bool force) {
    const bool recording = m_viewModel.state() == AppState::recording;
    const QVariant waiting = m_viewModel.deliveryNotice();
    m_tray.setToolTip(waiting.isValid()
                          ? QStringLiteral("Quillmere Live — ") + waiting.toString()
                          : QStringLiteral("Quillmere Live"));
    if (!force && recording == m_showsRecording && waiting.isValid() == m_showsWaiting)
        return;
    m_showsRecording = recording;
    m_showsWaiting = waiting.isValid();
    const std::optional<bool> lightTray = TrayPlatform::lightTray();
    const QColor ink = lightTray ? QColor(*lightTray ? Qt::black : Qt::white)
                                 : QGuiApplication::palette().color(QPalette::WindowText);
    m_tray.setIcon(StatusIcon::icon(recording, ink, isMacOS(), m_showsWaiting));
}
