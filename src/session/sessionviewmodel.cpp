// SPDX-License-Identifier: MIT
#include "sessionviewmodel.h"
#include "sessionlog.h"

#include "apiclient.h"
#include "delivery.h"
#include "folderwatcher.h"
#include "preferences.h"
#include "requestfailure.h"
#include "sessionjournal.h"
#include "sessionrecorder.h"
#include "sessionresumption.h"
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
    , m_deliveries(std::make_unique<Delivery>())
{
    connect(m_deliveries.get(), &Delivery::changed, this, &SessionViewModel::deliveriesChanged);
    connect(m_deliveries.get(), &Delivery::signInRequired, this,
            &SessionViewModel::signInExpired);
    // The session first, so that what it still owes counts on its screen as it goes.
    takeUpLiveSession();
    // What an earlier run could not deliver goes now, into its own session.
    m_deliveries->resumeOwed();
}

SessionViewModel::~SessionViewModel() = default;

FolderWatcher *SessionViewModel::watcher() const
{
    return m_recorder ? m_recorder->watcher() : nullptr;
}

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
    qCDebug(sessionLog, paused ? "paused" : "unpaused");
    if (m_recorder)
        m_recorder->setPaused(paused);
    // A session taken up after a restart comes back as paused as it was.
    if (m_state == AppState::recording && m_session.folderId)
        m_deliveries->sessions().setPaused(*m_session.folderId, paused);
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
QVariant SessionViewModel::journalNotice() const { return m_deliveries->journalNotice(); }

QVariant SessionViewModel::resumeNotice() const
{
    return m_resumeNotice ? QVariant(*m_resumeNotice) : QVariant();
}

QVariant SessionViewModel::resumeOffer() const
{
    return m_resumeOffer ? QVariant(m_resumeOffer->clientName) : QVariant();
}

QVariant SessionViewModel::folderNotice() const
{
    if (m_state != AppState::recording || !m_recorder || m_recorder->folderAvailable() ||
        !m_session.watchFolder)
        return {};
    return QStringLiteral("No se encuentra la carpeta «%1». Las fotos se enviarán en cuanto "
                          "vuelva.")
        .arg(m_session.watchFolder->fileName());
}

int SessionViewModel::originalsOwed() const
{
    return m_session.folderId ? m_deliveries->unfinishedCount(*m_session.folderId) : 0;
}

QVariant SessionViewModel::quitWarning() const { return m_deliveries->quitWarning(); }

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
        qCDebug(sessionLog, "not opened: %s", error.what());
        if (self)
            setError(describe(error));
        co_return;
    }
    if (!self)
        co_return;
    qCDebug(sessionLog, "opened: folder %lld", qlonglong(reply.folder_id));

    LiveSession session = m_session;
    session.folderId = reply.folder_id;
    session.slug = reply.slug;
    session.liveURL = reply.live_url;
    session.galleryURL = reply.gallery_url;
    setSession(session);

    // Written down before anything is watched, so that the program can take the session up
    // again whenever it goes away from here on. A session offered to continue is left as the
    // service has it, and what the journal owes it still goes.
    const QSet<QString> namesAtStart = FolderWatcher::listFiles(*m_session.watchFolder);
    m_deliveries->sessions().record(SessionResumption::recordOf(m_session, m_isPaused),
                                    namesAtStart);
    setResumeOffer(std::nullopt);
    setResumeNotice(std::nullopt);
    beginRecording(namesAtStart, {});
}

void SessionViewModel::beginRecording(QSet<QString> knownNames,
                                      const UploadCounts &counts)
{
    const qint64 folderId = *m_session.folderId;
    auto manager = std::make_unique<UploadManager>(folderId, m_deliveries->lanes(), counts);
    m_deliveries->countInto(manager.get());
    setUploadManager(std::move(manager));

    m_recorder = std::make_unique<SessionRecorder>(*m_deliveries, folderId, *m_session.watchFolder,
                                                   std::move(knownNames));
    m_recorder->setPaused(m_isPaused);
    connect(m_recorder.get(), &SessionRecorder::folderAvailableChanged, this,
            &SessionViewModel::folderNoticeChanged);
    m_recorder->start();

    setState(AppState::recording);
    Q_EMIT folderNoticeChanged();
}

void SessionViewModel::takeUpLiveSession()
{
    if (const std::optional<SessionResumption> crashed =
            SessionResumption::afterCrash(m_deliveries->sessions()))
        resume(*crashed);
    else
        setResumeOffer(SessionResumption::offer(m_deliveries->sessions()));
}

void SessionViewModel::continueSession()
{
    if (m_state != AppState::setup || !m_resumeOffer)
        return;
    const qint64 folderId = *m_resumeOffer->folderId;
    setResumeOffer(std::nullopt);
    if (const std::optional<SessionResumption> continuing =
            SessionResumption::continuing(m_deliveries->sessions(), folderId))
        resume(*continuing);
}

void SessionViewModel::resume(const SessionResumption &resumption)
{
    setError(std::nullopt);
    qCDebug(sessionLog, "folder %lld taken up again%s: %s", qlonglong(*resumption.session.folderId),
            resumption.paused ? ", paused" : "", qPrintable(resumption.notice));
    setSession(resumption.session);
    m_isPaused = resumption.paused;
    Q_EMIT isPausedChanged();
    beginRecording(resumption.knownNames, resumption.counts);
    setResumeNotice(resumption.notice);
}

void SessionViewModel::recordQuit()
{
    if (m_state == AppState::recording && m_session.folderId) {
        qCDebug(sessionLog, "folder %lld left at a quit", qlonglong(*m_session.folderId));
        m_deliveries->sessions().setEnding(*m_session.folderId, RecordedSession::Ending::quit);
    }
    // The program is about to go: what it says of itself is on disk first.
    m_deliveries->waitForJournal();
}

void SessionViewModel::setResumeOffer(std::optional<LiveSession> offer)
{
    if (!offer && !m_resumeOffer)
        return;
    m_resumeOffer = std::move(offer);
    Q_EMIT resumeOfferChanged();
}

void SessionViewModel::setResumeNotice(std::optional<QString> notice)
{
    if (m_resumeNotice == notice)
        return;
    m_resumeNotice = std::move(notice);
    Q_EMIT resumeNoticeChanged();
}

QCoro::Task<> SessionViewModel::stopSessionTask()
{
    if (m_recorder)
        m_recorder->stop();
    m_recorder.reset();
    // Stopped by the photographer: never taken up again, whatever the service answers.
    if (m_state == AppState::recording && m_session.folderId) {
        qCDebug(sessionLog, "folder %lld stopped", qlonglong(*m_session.folderId));
        m_deliveries->sessions().setEnding(*m_session.folderId, RecordedSession::Ending::stopped);
    }
    Q_EMIT folderNoticeChanged();

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
    setResumeNotice(std::nullopt);
    setState(AppState::setup);
}
