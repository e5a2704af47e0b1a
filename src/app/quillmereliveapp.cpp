// SPDX-License-Identifier: MIT
#include "quillmereliveapp.h"

#include "folderpanel.h"
#include "passwordfieldaccessible.h"
#include "statusitem.h"
#if QUILLMERE_TEST_SWITCHES
#include "testtrace.h"
#endif
#include "traypanel.h"

#include <QApplication>
#include <QQmlApplicationEngine>
#include <QQuickWindow>
#include <QScopeGuard>
#include <QSystemTrayIcon>
#include <QtQml/QQmlExtensionPlugin>

Q_IMPORT_QML_PLUGIN(Quillmere_LivePlugin)

QuillmereLiveApp::QuillmereLiveApp(QObject *parent)
    : QObject(parent) {
    m_viewModel.setFolderChooser([this](const QString &prompt) { return chooseFolder(prompt); });
}

QuillmereLiveApp::~QuillmereLiveApp() = default;

bool QuillmereLiveApp::start() {
    QGuiApplication::setApplicationDisplayName(QStringLiteral("Quillmere Live"));
    PasswordFieldAccessible::install();

    m_engine = std::make_unique<QQmlApplicationEngine>();
    m_engine->setInitialProperties(
        {{QStringLiteral("viewModel"), QVariant::fromValue(&m_viewModel)}});
    m_engine->load(QUrl(QStringLiteral("qrc:/qt/qml/Quillmere/Live/PanelWindow.qml")));
    const QList<QObject *> roots = m_engine->rootObjects();
    auto *window = roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow *>(roots.first());
    if (!window)
        return false;

#if QUILLMERE_TEST_SWITCHES
    if (TestTrace::enabled())
        m_trace = std::make_unique<TestTrace>(m_viewModel);
#endif

    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        m_panel = std::make_unique<TrayPanel>(window, TrayPanel::Mode::standalone);
        m_panel->showStandalone();
        return true;
    }
    // The panel only hides; the program ends through the quit row.
    QApplication::setQuitOnLastWindowClosed(false);
    m_panel = std::make_unique<TrayPanel>(window, TrayPanel::Mode::underTrayIcon);
    m_statusItem = std::make_unique<StatusItem>(m_viewModel);
    connect(m_statusItem.get(), &StatusItem::clicked, m_panel.get(), &TrayPanel::toggle);
    return true;
}

std::optional<QUrl> QuillmereLiveApp::chooseFolder(const QString &prompt) {
    if (!m_panel)
        return FolderPanel::ask(prompt);
    m_panel->setHeld(true);
    const auto release = qScopeGuard([this] { m_panel->setHeld(false); });
    return FolderPanel::ask(prompt);
}
