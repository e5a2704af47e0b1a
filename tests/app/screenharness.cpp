// SPDX-License-Identifier: MIT
#include "screenharness.h"

#include "accessibletexts.h"
#include "devservicefixture.h"
#include "livesession.h"
#include "preferences.h"
#include "progressaccessible.h"
#include "scopedpreferences.h"
#include "sessionviewmodel.h"

#include <QAccessible>
#include <QAccessibleActionInterface>
#include <QClipboard>
#include <QCoroTask>
#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QMetaEnum>
#include <QQuickItem>
#include <QSaveFile>

ScreenHarness::ScreenHarness(DevService &service, ScopedPreferences &preferences, QObject *parent)
    : QObject(parent)
    , m_service(service)
    , m_preferences(preferences)
    , m_viewModel(std::make_unique<SessionViewModel>()) {
    // Made when a test file first reaches it, after Qt Quick is loaded: as the program does.
    ProgressAccessible::install();
    m_viewModel->setFolderChooser([this](const QString &) -> std::optional<QUrl> {
        ++m_folderPanelShown;
        if (!m_folderAnswer || m_folderAnswer->isEmpty())
            return std::nullopt;
        return QUrl::fromLocalFile(*m_folderAnswer);
    });
}

ScreenHarness::~ScreenHarness() = default;

bool ScreenHarness::reset() {
    if (m_viewModel->state() == AppState::recording)
        QCoro::waitFor(m_viewModel->stopSessionTask());
    m_viewModel->newSession();
    m_viewModel->setEmail(QString());
    m_viewModel->setPassword(QString());
    m_folderAnswer.reset();
    m_folderPanelShown = 0;
    m_preferences.remove(Preferences::apiTokenKey);
    return m_service.clearFaults();
}

QString ScreenHarness::stateName() const {
    return QString::fromLatin1(
        QMetaEnum::fromType<AppState>().valueToKey(int(m_viewModel->state())));
}

bool ScreenHarness::signIn() {
    m_viewModel->setEmail(DevService::demoEmail());
    m_viewModel->setPassword(DevService::demoPassword());
    QCoro::waitFor(m_viewModel->loginTask());
    return m_viewModel->hasStoredToken() && !m_viewModel->error();
}

void ScreenHarness::forgetToken() {
    m_preferences.remove(Preferences::apiTokenKey);
}
bool ScreenHarness::hasStoredToken() const {
    return m_viewModel->hasStoredToken();
}

bool ScreenHarness::delaySignIn(int milliseconds) {
    return m_service.injectFault(
        DevService::Fault::withDelay(QStringLiteral("authenticate"), milliseconds));
}

int ScreenHarness::requestCount(const QString &endpoint) {
    return int(m_service.requests(endpoint).size());
}

bool ScreenHarness::refuseNext(const QString &endpoint, int status) {
    return m_service.injectFault(DevService::Fault::withStatus(endpoint, status));
}

QString ScreenHarness::makeFolder(const QString &relativePath) {
    const QString path = m_folders.filePath(relativePath);
    return QDir().mkpath(path) ? path : QString();
}

void ScreenHarness::answerFolderPanel(const QString &path) {
    m_folderAnswer = path;
}

bool ScreenHarness::startRecording(const QString &clientName) {
    if (!hasStoredToken() && !signIn())
        return false;
    m_watchFolder = makeFolder(QStringLiteral("session-%1").arg(m_folderPanelShown + 1));
    answerFolderPanel(m_watchFolder);
    m_viewModel->setClientName(clientName);
    m_viewModel->pickFolder();
    QCoro::waitFor(m_viewModel->startSessionTask());
    return m_viewModel->state() == AppState::recording;
}

bool ScreenHarness::stopRecording() {
    QCoro::waitFor(m_viewModel->stopSessionTask());
    return m_viewModel->state() == AppState::finished;
}

bool ScreenHarness::dropPhoto(const QString &fileName) {
    if (m_watchFolder.isEmpty())
        return false;
    QImage photo(1024, 683, QImage::Format_RGB32);
    photo.fill(QColor(0x4A, 0x6D, 0x8C));
    // Written aside and renamed in, so the watcher never sees half a file.
    QSaveFile file(QDir(m_watchFolder).filePath(fileName));
    return file.open(QIODevice::WriteOnly) && photo.save(&file, "JPEG", 85) && file.commit();
}

void ScreenHarness::editSession(const QVariantMap &changes) {
    LiveSession session = m_viewModel->session();
    const auto text = [&changes](const QString &key) -> std::optional<QString> {
        const QVariant value = changes.value(key);
        if (value.isNull() || !value.isValid())
            return std::nullopt;
        return value.toString();
    };
    for (auto change = changes.cbegin(); change != changes.cend(); ++change) {
        const QString &key = change.key();
        if (key == QLatin1String("uploadedCount"))
            session.uploadedCount = change->toLongLong();
        else if (key == QLatin1String("fullResUploaded"))
            session.fullResUploaded = change->toLongLong();
        else if (key == QLatin1String("fullResTotal"))
            session.fullResTotal = change->toLongLong();
        else if (key == QLatin1String("selectedCount"))
            session.selectedCount = change->toLongLong();
        else if (key == QLatin1String("liveURL"))
            session.liveURL = text(key);
        else if (key == QLatin1String("galleryURL"))
            session.galleryURL = text(key);
        else
            qFatal("editSession: no field %s", qPrintable(key));
    }
    m_viewModel->setSession(session);
}

bool ScreenHarness::pressAccessibly(QQuickItem *item) const {
    QAccessibleInterface *accessible = item ? QAccessible::queryAccessibleInterface(item) : nullptr;
    QAccessibleActionInterface *actions = accessible ? accessible->actionInterface() : nullptr;
    if (!actions || !actions->actionNames().contains(QAccessibleActionInterface::pressAction()))
        return false;
    actions->doAction(QAccessibleActionInterface::pressAction());
    return true;
}

QVariantMap ScreenHarness::accessibleReading(QQuickItem *item) const {
    QAccessibleInterface *accessible = item ? QAccessible::queryAccessibleInterface(item) : nullptr;
    if (!accessible)
        return {};
    QVariantMap reading{{"name", accessible->text(QAccessible::Name)},
                        {"value", accessible->text(QAccessible::Value)},
                        {"description", accessible->text(QAccessible::Description)},
                        {"password", bool(accessible->state().passwordEdit)}};
    if (QAccessibleTextInterface *text = accessible->textInterface())
        reading.insert("text", text->text(0, text->characterCount()));
    return reading;
}

QString ScreenHarness::clipboardText() const {
    return QGuiApplication::clipboard()->text();
}

QStringList ScreenHarness::visibleTexts(QQuickItem *root) const {
    return AccessibleTexts::visible(root);
}

QStringList ScreenHarness::unexposedTexts(QQuickItem *root) const {
    return AccessibleTexts::unexposed(root);
}

QVariantMap ScreenHarness::accessibleValue(QQuickItem *item) const {
    return AccessibleTexts::value(item);
}
