// SPDX-License-Identifier: MIT
// Windows. The notification-area icon sits on the taskbar, whose colours follow the
// "Windows mode" setting (Settings > Personalisation > Colours), not the apps' mode: Microsoft
// keeps it as SystemUsesLightTheme under
// HKCU\Software\Microsoft\Windows\CurrentVersion\Themes\Personalize (documented with the
// theme-aware app guidance, https://learn.microsoft.com/windows/apps/desktop/modernize/ui/apply-windows-themes).
// A change of the value is waited for with RegNotifyChangeKeyValue
// (https://learn.microsoft.com/windows/win32/api/winreg/nf-winreg-regnotifychangekeyvalue)
// and Qt's QWinEventNotifier. The menu is Qt's default, on a right click.
#include "trayplatform.h"

#include <QMenu>
#include <QSettings>
#include <QSystemTrayIcon>
#include <QWinEventNotifier>
#include <QWindow>

#include <windows.h>

namespace {

const wchar_t *const personalizeKey =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Themes\\Personalize";

// Signals `changed` every time a value of the Personalize key is set, for as long as `context`
// lives: the notification is asked for again after each one, as the API wants.
void watchPersonalizeKey(QObject *context, std::function<void()> changed) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, personalizeKey, 0, KEY_NOTIFY, &key) != ERROR_SUCCESS)
        return;
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    const auto arm = [key, event] {
        return RegNotifyChangeKeyValue(key, FALSE, REG_NOTIFY_CHANGE_LAST_SET, event, TRUE) ==
               ERROR_SUCCESS;
    };
    if (event == nullptr || !arm()) {
        if (event != nullptr)
            CloseHandle(event);
        RegCloseKey(key);
        return;
    }
    auto *notifier = new QWinEventNotifier(event, context);
    QObject::connect(notifier, &QWinEventNotifier::activated, notifier,
                     [arm, changed = std::move(changed)] {
                         arm();
                         changed();
                     });
    QObject::connect(notifier, &QObject::destroyed, [key, event] {
        CloseHandle(event);
        RegCloseKey(key);
    });
}

} // namespace

void TrayPlatform::attachMenu(QSystemTrayIcon &tray, QMenu &menu) {
    tray.setContextMenu(&menu);
}

void TrayPlatform::activate(QWindow &panel) {
    panel.requestActivate();
}

std::optional<bool> TrayPlatform::lightTray() {
    const QSettings personalize(
        QStringLiteral("HKEY_CURRENT_USER\\Software\\Microsoft\\Windows\\CurrentVersion\\Themes\\Personalize"),
        QSettings::NativeFormat);
    const QVariant light = personalize.value(QStringLiteral("SystemUsesLightTheme"));
    // Windows before 10 1903 has no light taskbar and no such value: the taskbar is dark.
    return light.isValid() ? light.toInt() != 0 : false;
}

void TrayPlatform::watchLightTray(QObject *context, std::function<void()> changed) {
    watchPersonalizeKey(context, std::move(changed));
}
