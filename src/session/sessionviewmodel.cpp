// SPDX-License-Identifier: MIT
#include "sessionviewmodel.h"

#include "apiclient.h"
#include "deliveryqueue.h"
#include "folderwatcher.h"
#include "preferences.h"
#include "requestfailure.h"
#include "uploadmanager.h"

namespace {
QString describe(const std::exception &error)
{
    if (const auto *failure = dynamic_cast<const RequestFailure *>(&error))
        return failure->localizedDescription();
    return QString::fromUtf8(error.what());
}
} // namespace

SessionViewModel::SessionViewModel(QObject *parent)
    : QObject(parent)
    , m_email(Preferences::string(Preferences::savedEmailKey).value_or(QString()))
    , m_api(APIClient::shared())
    , m_deliveries(std::make_unique<DeliveryQueue>())
{
    connect(m_deliveries.get(), &DeliveryQueue::changed, this,
            &SessionViewModel::deliveriesChanged);
    connect(m_deliveries.get(), &DeliveryQueue::signInRequired, this,
            &SessionViewModel::signInExpired);
    // What an earlier run could not deliver goes now, into its own session.
    m_deliveries->resumeOwed();
}

SessionViewModel::~SessionViewModel() = default;

void SessionViewModel::setState(AppState state)
{
    if (m_state == state)
        return;
    m_state = state;
    Q_EMIT stateChanged();
}

void SessionViewModel::setSession(const LiveSession &session)
{
    if (m_session == session)
        return;
    m_session = session;
    Q_EMIT sessionChanged();
    // What the session still owes depends on which session it is.
    Q_EMIT deliveriesChanged();
}

void SessionViewModel::setClientName(const QString &clientName)
{
    LiveSession session = m_session;
    session.clientName = clientName;
    setSession(session);
}

void SessionViewModel::setError(std::optional<QString> error)
{
    if (m_error == error)
        return;
    m_error = std::move(error);
    Q_EMIT errorChanged();
}

void SessionViewModel::setIsAuthenticating(bool authenticating)
{
    if (m_isAuthenticating == authenticating)
        return;
    m_isAuthenticating = authenticating;
    Q_EMIT isAuthenticatingChanged();
}

void SessionViewModel::setIsPaused(bool paused)
{
    if (m_isPaused == paused)
        return;
    m_isPaused = paused;
    Q_EMIT isPausedChanged();
}

void SessionViewModel::setEmail(const QString &email)
{
    if (m_email == email)
        return;
    m_email = email;
    Q_EMIT emailChanged();
}

void SessionViewModel::setPassword(const QString &password)
{
    if (m_password == password)
        return;
    m_password = password;
    Q_EMIT passwordChanged();
}

void SessionViewModel::setUploadManager(std::unique_ptr<UploadManager> manager)
{
    if (m_uploadManager == manager)
        return;
    // Announce before the old manager goes, so no screen is left holding a dangling pointer.
    std::unique_ptr<UploadManager> previous = std::exchange(m_uploadManager, std::move(manager));
    Q_EMIT uploadManagerChanged();
    previous.reset();
}

QVariant SessionViewModel::deliveryNotice() const { return m_deliveries->notice(); }
QVariant SessionViewModel::refusedNotice() const { return m_deliveries->refusedNotice(); }
int SessionViewModel::waitingCount() const { return m_deliveries->waitingCount(); }
QString SessionViewModel::deliveryReason() const { return m_deliveries->reasonText(); }

int SessionViewModel::originalsOwed() const
{
    return m_session.folderId ? m_deliveries->unfinishedCount(*m_session.folderId) : 0;
}

QVariant SessionViewModel::quitWarning() const
{
    const int unfinished = m_deliveries->unfinishedCount();
    if (unfinished == 0)
        return {};
    if (unfinished == 1)
        return QStringLiteral("Queda 1 foto por enviar. Se enviará la próxima vez que abras "
                              "Quillmere Live.");
    return QStringLiteral("Quedan %1 fotos por enviar. Se enviarán la próxima vez que abras "
                          "Quillmere Live.")
        .arg(unfinished);
}

void SessionViewModel::signInExpired()
{
    // The token is dead: without it the panel shows the sign-in screen, over the session,
    // which goes on recording; its photos wait for the new token.
    Preferences::remove(Preferences::apiTokenKey);
    setError(signInExpiredMessage);
    Q_EMIT deliveriesChanged();
}

bool SessionViewModel::hasStoredToken() const
{
    return Preferences::string(Preferences::apiTokenKey).has_value();
}

void SessionViewModel::login() { loginTask(); }
void SessionViewModel::startSession() { startSessionTask(); }
void SessionViewModel::stopSession() { stopSessionTask(); }

QCoro::Task<> SessionViewModel::loginTask()
{
    setIsAuthenticating(true);
    setError(std::nullopt);
    const QString email = m_email;
    const QString password = m_password;
    QPointer<SessionViewModel> self(this);
    try {
        QCoro::Task<QString> signingIn = m_api.authenticate(email, password);
        co_await signingIn;
        if (!self)
            co_return;
        Preferences::setString(Preferences::savedEmailKey, email);
        m_deliveries->signedIn();
    } catch (const std::exception &error) {
        if (!self)
            co_return;
        setError(describe(error));
    }
    setIsAuthenticating(false);
}

void SessionViewModel::pickFolder()
{
    if (!m_folderChooser)
        return;
    if (const std::optional<QUrl> folder = m_folderChooser(folderPrompt)) {
        LiveSession session = m_session;
        session.watchFolder = *folder;
        setSession(session);
    }
}

QCoro::Task<> SessionViewModel::startSessionTask()
{
    if (m_session.clientName.isEmpty() || !m_session.watchFolder) {
        setError(missingSetupMessage);
        co_return;
    }
    setError(std::nullopt);

    QPointer<SessionViewModel> self(this);
    SessionResponse reply;
    try {
        QCoro::Task<SessionResponse> creating = m_api.createSession(m_session.clientName);
        reply = co_await creating;
    } catch (const std::exception &error) {
        if (self)
            setError(describe(error));
        co_return;
    }
    if (!self)
        co_return;

    LiveSession session = m_session;
    session.folderId = reply.folder_id;
    session.slug = reply.slug;
    session.liveURL = reply.live_url;
    session.galleryURL = reply.gallery_url;
    setSession(session);

    auto manager = std::make_unique<UploadManager>(reply.folder_id);
    m_deliveries->attach(manager.get(), reply.folder_id, reply.slug, m_session.clientName);
    setUploadManager(std::move(manager));

    const QUrl folder = *m_session.watchFolder;
    auto watcher = std::make_unique<FolderWatcher>(
        folder, [self](const QUrl &file) { if (self) self->handleNewFile(file); },
        FolderWatcher::listFiles(folder));
    connect(watcher.get(), &FolderWatcher::candidateQuiet, this, [this](const QUrl &file) {
        if (!m_isPaused && m_uploadManager)
            m_uploadManager->preparePreview(file);
    });
    m_watcher = std::move(watcher);
    m_watcher->start();

    setState(AppState::recording);
}

void SessionViewModel::handleNewFile(const QUrl &file)
{
    // A pause drops the photo for good: the watcher already counts it as known.
    if (m_isPaused)
        return;
    // Handed over in a turn of its own, so the watcher's poll returns at once.
    QMetaObject::invokeMethod(
        this, [this, file] {
            if (m_uploadManager)
                m_uploadManager->uploadFile(file);
        },
        Qt::QueuedConnection);
}

QCoro::Task<> SessionViewModel::stopSessionTask()
{
    if (m_watcher)
        m_watcher->invalidateTimer();
    m_watcher.reset();

    QPointer<SessionViewModel> self(this);
    if (m_session.slug) {
        try {
            QCoro::Task<> ending = m_api.endSession(*m_session.slug);
            co_await ending;
        } catch (const std::exception &error) {
            if (self)
                setError(describe(error));
        }
        if (!self)
            co_return;
    }

    if (m_uploadManager) {
        LiveSession session = m_session;
        session.uploadedCount = m_uploadManager->uploadedCount();
        session.fullResUploaded = m_uploadManager->fullResUploaded();
        session.fullResTotal = m_uploadManager->fullResTotal();
        setSession(session);
    }
    setState(AppState::finished);
}

void SessionViewModel::newSession()
{
    setSession(LiveSession());
    setUploadManager(nullptr);
    setIsPaused(false);
    setError(std::nullopt);
    setState(AppState::setup);
}
