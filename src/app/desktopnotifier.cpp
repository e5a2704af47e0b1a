// SPDX-License-Identifier: MIT
#include "desktopnotifier.h"

#include "delivery.h"
#include "sessionviewmodel.h"

#include <QLoggingCategory>
#include <QSystemTrayIcon>

#if defined(Q_OS_UNIX) && !defined(Q_OS_MACOS)
#include "freedesktopnotifications.h"
#define QUILLMERE_FREEDESKTOP_NOTIFICATIONS 1
#endif

Q_DECLARE_LOGGING_CATEGORY(quillmereNotify)
Q_LOGGING_CATEGORY(quillmereNotify, "quillmere.notify", QtWarningMsg)

DesktopNotifier::DesktopNotifier(SessionViewModel &viewModel, DeliveryAlerts::Timing timing,
                                 QObject *parent)
    : QObject(parent)
    , m_viewModel(viewModel)
    , m_alerts(timing) {
#ifdef QUILLMERE_FREEDESKTOP_NOTIFICATIONS
    m_freedesktop = new FreedesktopNotifications(this);
    connect(m_freedesktop, &FreedesktopNotifications::activated, this,
            &DesktopNotifier::openRequested);
    // No notification service on the bus: the tray's own balloon, where there is a tray.
    connect(m_freedesktop, &FreedesktopNotifications::failed, this, [this](const QString &why) {
        qCInfo(quillmereNotify) << "the desktop's notification service did not take it:" << why;
        if (QSystemTrayIcon *tray = m_tray.data())
            tray->showMessage(m_last.title, m_last.text, QSystemTrayIcon::Information);
    });
#endif
    connect(&m_alerts, &DeliveryAlerts::alert, this, &DesktopNotifier::tell);
    connect(&viewModel, &SessionViewModel::deliveriesChanged, this, &DesktopNotifier::follow);
    connect(&viewModel, &SessionViewModel::stateChanged, this, &DesktopNotifier::follow);
    connect(&viewModel, &SessionViewModel::sessionChanged, this, &DesktopNotifier::follow);
    follow();
}

DesktopNotifier::~DesktopNotifier() = default;

void DesktopNotifier::setTrayIcon(QSystemTrayIcon *icon) {
    if (m_tray)
        disconnect(m_tray, nullptr, this, nullptr);
    m_tray = icon;
    if (icon)
        connect(icon, &QSystemTrayIcon::messageClicked, this, &DesktopNotifier::openRequested);
}

void DesktopNotifier::follow() {
    const Delivery &deliveries = m_viewModel.deliveries();
    m_alerts.setWaiting(deliveries.waitingCount(), deliveries.reason());
    m_alerts.setRefused(deliveries.refusedCount(), deliveries.refusedNotice().toString());
    const LiveSession &session = m_viewModel.session();
    const bool stopped = m_viewModel.state() == AppState::finished && session.folderId;
    if (stopped && !std::exchange(m_stopped, true))
        m_alerts.sessionStopped(*session.folderId, session.clientName,
                                deliveries.unfinishedCount(*session.folderId));
    m_stopped = stopped;
    for (const qint64 folderId : m_alerts.stoppedSessionsOwed())
        m_alerts.setOwed(folderId, deliveries.unfinishedCount(folderId));
}

void DesktopNotifier::tell(const DeliveryAlerts::Alert &alert) {
    qCInfo(quillmereNotify) << alert.title << alert.text;
    m_last = alert;
    // Made only where desktops follow freedesktop.org.
    if (m_freedesktop) {
#ifdef QUILLMERE_FREEDESKTOP_NOTIFICATIONS
        m_freedesktop->show(int(alert.topic), alert.title, alert.text);
#endif
        return;
    }
    // Where the tray icon is the only way to the system's notifications, none goes without one.
    if (QSystemTrayIcon *tray = m_tray.data())
        tray->showMessage(alert.title, alert.text, QSystemTrayIcon::Information);
}
