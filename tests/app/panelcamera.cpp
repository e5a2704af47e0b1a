// SPDX-License-Identifier: MIT
#include "panelcamera.h"

#include "screenshotnames.h"
#include "statusicon.h"
#include "theme.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QImage>
#include <QPainter>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTimer>

PanelCamera::PanelCamera(QQuickWindow &window, Theme &theme, const QDir &output)
    : m_window(window)
    , m_theme(theme)
    , m_output(output) {}

void PanelCamera::settle(int milliseconds) {
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

QQuickItem *PanelCamera::find(const char *objectName) const {
    return m_window.findChild<QQuickItem *>(QLatin1String(objectName));
}

void PanelCamera::waitForSteadyBadge() {
    QElapsedTimer waited;
    waited.start();
    while (waited.elapsed() < 3000) {
        const QQuickItem *badge = find("liveBadge");
        if (!badge || !badge->isVisible() || badge->opacity() >= 0.985)
            return;
        QEventLoop loop;
        QTimer::singleShot(2, &loop, &QEventLoop::quit);
        loop.exec();
    }
}

bool PanelCamera::shoot(const QString &state) {
    const Theme::Appearance before = m_theme.appearance();
    bool ok = true;
    for (const QString &appearance : ScreenshotNames::appearances) {
        m_theme.setAppearance(appearance == QLatin1String("dark") ? Theme::Appearance::Dark
                                                                  : Theme::Appearance::Light);
        settle(30);
        waitForSteadyBadge();
        const QImage image = m_window.grabWindow();
        const QString path = m_output.filePath(ScreenshotNames::fileName(state, appearance));
        if (image.isNull() || !image.save(path)) {
            m_error = QStringLiteral("could not grab or write %1").arg(path);
            ok = false;
            continue;
        }
        m_written.append(path);
    }
    m_theme.setAppearance(before);
    return ok;
}

bool PanelCamera::shootTrayIcons() {
    const qreal ratio = m_window.effectiveDevicePixelRatio();
    for (const QString &state : ScreenshotNames::trayStates) {
        const bool recording = state == QLatin1String("tray-recording");
        const bool waiting = state == QLatin1String("tray-waiting");
        for (const QString &appearance : ScreenshotNames::appearances) {
            const bool dark = appearance == QLatin1String("dark");
            const QImage icon = StatusIcon::image(recording, dark ? Qt::white : Qt::black,
                                                  qRound(StatusIcon::menuBarSize * ratio), waiting);
            // A strip of menu bar around the icon, 4 logical pixels on every side.
            const int margin = qRound(4 * ratio);
            QImage bar(icon.size() + QSize(2 * margin, 2 * margin), QImage::Format_RGB32);
            bar.fill(dark ? QColor(0x32, 0x32, 0x32) : QColor(0xEC, 0xEC, 0xEC));
            QPainter(&bar).drawImage(margin, margin, icon);
            const QString path = m_output.filePath(ScreenshotNames::fileName(state, appearance));
            if (!bar.save(path)) {
                m_error = QStringLiteral("could not write %1").arg(path);
                return false;
            }
            m_written.append(path);
        }
    }
    return true;
}
