// SPDX-License-Identifier: MIT
#include "quillmereliveapp.h"

#include "desktopnotifier.h"
#include "folderpanel.h"
#include "passwordfieldaccessible.h"
#include "progressaccessible.h"
#include "qttexts.h"
#include "quitconfirmation.h"
#include "recordingactivity.h"
#include "statusitem.h"
#include "trayhostwatch.h"
#include "traypanel.h"
#include "windowstatus.h"
#if QUILLMERE_TEST_SWITCHES
#include "testtrace.h"
#endif

#include <QApplication>
#include <QQmlApplicationEngine>
#include <QQuickWindow>
#include <QScopeGuard>
#include <QtQml/QQmlExtensionPlugin>

Q_IMPORT_QML_PLUGIN(Quillmere_LivePlugin)

QuillmereLiveApp::QuillmereLiveApp(QObject *parent)
    : QObject(parent)
    , m_activity(std::make_unique<RecordingActivity>()) {
    m_viewModel.setFolderChooser([this](const QString &prompt) { return chooseFolder(prompt); });
    // The system keeps the program awake, and off App Nap, while a session records.
    connect(&m_viewModel, &SessionViewModel::stateChanged, this, [this] {
        m_activity->setHeld(m_viewModel.state() == AppState::recording);
    });
}

QuillmereLiveApp::~QuillmereLiveApp() = default;

bool QuillmereLiveApp::start() {
    QGuiApplication::setApplicationDisplayName(QStringLiteral("Quillmere Live"));
    PasswordFieldAccessible::install();
    // The program ends through the quit row or the tray's menu only: the panel hides, and the
    // window that stands in for it where there is no tray closes to the taskbar.
    QApplication::setQuitOnLastWindowClosed(false);
    QtTexts::installSpanish(*QCoreApplication::instance());

    m_engine = std::make_unique<QQmlApplicationEngine>();
    m_engine->setInitialProperties(
        {{QStringLiteral("viewModel"), QVariant::fromValue(&m_viewModel)}});
    m_engine->load(QUrl(QStringLiteral("qrc:/qt/qml/Quillmere/Live/PanelWindow.qml")));
    const QList<QObject *> roots = m_engine->rootObjects();
    auto *window = roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow *>(roots.first());
    if (!window)
        return false;
    ProgressAccessible::install();

    // The quit row and the tray's menu alike: at once when nothing is owed, otherwise after
    // asking; the session is left open on the service either way, and offered to continue at
    // the next start.
    m_quit = std::make_unique<QuitConfirmation>(m_viewModel, &QuitConfirmation::askWithMessageBox);
    connect(m_quit.get(), &QuitConfirmation::quitConfirmed, this,
            [this] { m_viewModel.recordQuit(); });
    connect(m_quit.get(), &QuitConfirmation::quitConfirmed, qApp, &QCoreApplication::quit,
            Qt::QueuedConnection);
    connect(window, SIGNAL(quitRequested()), m_quit.get(), SLOT(request()));

    m_windowStatus = std::make_unique<WindowStatus>(m_viewModel, window);
    m_trayWatch = std::make_unique<TrayHostWatch>();
    m_panel = std::make_unique<TrayPanel>(window, m_trayWatch->available()
                                                      ? TrayPanel::Mode::underTrayIcon
                                                      : TrayPanel::Mode::standalone);
#if QUILLMERE_TEST_SWITCHES
    if (TestTrace::enabled())
        m_trace = std::make_unique<TestTrace>(m_viewModel, window);
#endif
    m_notifier = std::make_unique<DesktopNotifier>(m_viewModel);
    connect(m_notifier.get(), &DesktopNotifier::openRequested, this,
            &QuillmereLiveApp::openPanel);
    connect(m_trayWatch.get(), &TrayHostWatch::availableChanged, this,
            &QuillmereLiveApp::useTray);
    useTray(m_trayWatch->available());
    return true;
}

void QuillmereLiveApp::useTray(bool available) {
#if QUILLMERE_TEST_SWITCHES
    if (m_trace)
        m_trace->reportShell(available);
#endif
    if (!available) {
        m_notifier->setTrayIcon(nullptr);
        m_statusItem.reset();
        m_panel->setMode(TrayPanel::Mode::standalone);
        // The window is the only way in now.
        m_panel->showStandalone();
        return;
    }
    m_panel->setMode(TrayPanel::Mode::underTrayIcon);
    m_statusItem = std::make_unique<StatusItem>(m_viewModel);
    connect(m_statusItem.get(), &StatusItem::clicked, m_panel.get(), &TrayPanel::toggle);
    connect(m_statusItem.get(), &StatusItem::openRequested, m_panel.get(),
            &TrayPanel::showUnder);
    connect(m_statusItem.get(), &StatusItem::quitRequested, m_quit.get(),
            &QuitConfirmation::request, Qt::QueuedConnection);
    m_notifier->setTrayIcon(&m_statusItem->trayIcon());
}

void QuillmereLiveApp::openPanel() {
    if (m_statusItem)
        m_panel->showUnder(m_statusItem->trayIcon().geometry());
    else
        m_panel->showStandalone();
}

std::optional<QUrl> QuillmereLiveApp::chooseFolder(const QString &prompt) {
    if (!m_panel)
        return FolderPanel::ask(prompt);
    m_panel->setHeld(true);
    const auto release = qScopeGuard([this] { m_panel->setHeld(false); });
    return FolderPanel::ask(prompt);
}
