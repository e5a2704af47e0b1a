// SPDX-License-Identifier: MIT
#pragma once

#include "appstate.h"
#include "livesession.h"
#include "uploadmanager.h"

#include <QCoroTask>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QUrl>
#include <QVariant>

#include <functional>
#include <memory>
#include <optional>

class APIClient;
class Delivery;
class FolderWatcher;
class SessionRecorder;
struct SessionResumption;

// The one controller: holds what the screens show, signs in, and carries a live session from
// its start to its stop. A session outlives the program: the journal keeps it while it records,
// and at the next start the controller goes straight back into a session the program left
// without being asked to (a crash, a power cut), or offers to continue one the photographer
// quit from. Every property changes on the main thread only; no operation reports to its
// caller, every failure ends as the one line of text in `error`.
class SessionViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(AppStates::AppState state READ state NOTIFY stateChanged)
    Q_PROPERTY(LiveSession session READ session WRITE setSession NOTIFY sessionChanged)
    Q_PROPERTY(QVariant error READ errorValue NOTIFY errorChanged)
    Q_PROPERTY(bool isAuthenticating READ isAuthenticating NOTIFY isAuthenticatingChanged)
    Q_PROPERTY(bool isPaused READ isPaused WRITE setIsPaused NOTIFY isPausedChanged)
    Q_PROPERTY(QString email READ email WRITE setEmail NOTIFY emailChanged)
    Q_PROPERTY(QString password READ password WRITE setPassword NOTIFY passwordChanged)
    Q_PROPERTY(UploadManager *uploadManager READ uploadManager NOTIFY uploadManagerChanged)
    // What waits to be delivered, for the screens: one line each, undefined when there is none.
    Q_PROPERTY(QVariant deliveryNotice READ deliveryNotice NOTIFY deliveriesChanged)
    Q_PROPERTY(QVariant refusedNotice READ refusedNotice NOTIFY deliveriesChanged)
    // Photos of the session on screen not yet wholly delivered (original stored), live.
    Q_PROPERTY(int originalsOwed READ originalsOwed NOTIFY deliveriesChanged)
    Q_PROPERTY(int waitingCount READ waitingCount NOTIFY deliveriesChanged)
    Q_PROPERTY(QString deliveryReason READ deliveryReason NOTIFY deliveriesChanged)
    // That the delivery journal cannot be written; undefined while it can.
    Q_PROPERTY(QVariant journalNotice READ journalNotice NOTIFY deliveriesChanged)
    // The client of the session the photographer quit from while it recorded, which the setup
    // screen offers to continue; undefined when there is none.
    Q_PROPERTY(QVariant resumeOffer READ resumeOffer NOTIFY resumeOfferChanged)
    // The line that says the session on screen was taken up again; undefined otherwise.
    Q_PROPERTY(QVariant resumeNotice READ resumeNotice NOTIFY resumeNoticeChanged)
    // That the watch folder cannot be found; undefined while it is there.
    Q_PROPERTY(QVariant folderNotice READ folderNotice NOTIFY folderNoticeChanged)

public:
    // Shows the platform's modal folder panel with the given prompt; no value on cancel. The
    // app installs the real panel; tests answer it themselves.
    using FolderChooser = std::function<std::optional<QUrl>(const QString &prompt)>;
    static inline const QString folderPrompt =
        QStringLiteral("Selecciona la carpeta donde llegarán las fotos");
    static inline const QString missingSetupMessage =
        QStringLiteral("Ingresa el nombre del cliente y selecciona una carpeta");
    static inline const QString signInExpiredMessage =
        QStringLiteral("Tu sesión expiró. Vuelve a iniciar sesión: las fotos esperan y se "
                       "enviarán después.");

    explicit SessionViewModel(QObject *parent = nullptr);
    ~SessionViewModel() override;

    AppState state() const { return m_state; }
    const LiveSession &session() const { return m_session; }
    void setSession(const LiveSession &session);
    Q_INVOKABLE void setClientName(const QString &clientName);
    const std::optional<QString> &error() const { return m_error; }
    QVariant errorValue() const { return m_error ? QVariant(*m_error) : QVariant(); }
    bool isAuthenticating() const { return m_isAuthenticating; }
    bool isPaused() const { return m_isPaused; }
    void setIsPaused(bool paused);
    const QString &email() const { return m_email; }
    void setEmail(const QString &email);
    const QString &password() const { return m_password; }
    void setPassword(const QString &password);
    FolderWatcher *watcher() const;
    UploadManager *uploadManager() const { return m_uploadManager.get(); }
    APIClient &api() const { return m_api; }
    Delivery &deliveries() const { return *m_deliveries; }
    QVariant deliveryNotice() const;
    QVariant refusedNotice() const;
    int originalsOwed() const;
    int waitingCount() const;
    QString deliveryReason() const;
    QVariant journalNotice() const;
    QVariant resumeOffer() const;
    QVariant resumeNotice() const;
    QVariant folderNotice() const;
    // What quitting now would leave undelivered, as the question put before quitting;
    // undefined when nothing would be.
    Q_INVOKABLE QVariant quitWarning() const;

    // Whether a bearer token is stored: the screens show the login screen until there is one.
    Q_INVOKABLE bool hasStoredToken() const;

    void setFolderChooser(FolderChooser chooser) { m_folderChooser = std::move(chooser); }

    Q_INVOKABLE void login();
    Q_INVOKABLE void pickFolder();
    Q_INVOKABLE void startSession();
    Q_INVOKABLE void stopSession();
    Q_INVOKABLE void newSession();
    // Takes up the session the setup screen offers, where it was left.
    Q_INVOKABLE void continueSession();
    // The photographer quits the program (after confirming, where asked): a session that
    // records now is offered to continue at the next start, rather than taken up at once.
    void recordQuit();

    // The same operations for callers that want to wait for their end (tests, scripts).
    QCoro::Task<> loginTask();
    QCoro::Task<> startSessionTask();
    QCoro::Task<> stopSessionTask();

Q_SIGNALS:
    void stateChanged();
    void sessionChanged();
    void errorChanged();
    void isAuthenticatingChanged();
    void isPausedChanged();
    void emailChanged();
    void passwordChanged();
    void uploadManagerChanged();
    void deliveriesChanged();
    void resumeOfferChanged();
    void resumeNoticeChanged();
    void folderNoticeChanged();

private:
    void setState(AppState state);
    void setError(std::optional<QString> error);
    void setIsAuthenticating(bool authenticating);
    void setUploadManager(std::unique_ptr<UploadManager> manager);
    void signInExpired();
    // What the journal holds of a session this program did not close: taken up at once after a
    // crash, offered after a quit.
    void takeUpLiveSession();
    void resume(const SessionResumption &resumption);
    // The manager and the watcher of a session that records from now on.
    void beginRecording(QSet<QString> knownNames, const UploadCounts &counts);
    void setResumeOffer(std::optional<LiveSession> offer);
    void setResumeNotice(std::optional<QString> notice);

    AppState m_state = AppState::setup;
    LiveSession m_session;
    std::optional<QString> m_error;
    bool m_isAuthenticating = false;
    bool m_isPaused = false;
    QString m_email;
    QString m_password;
    std::unique_ptr<SessionRecorder> m_recorder;
    std::unique_ptr<UploadManager> m_uploadManager;
    APIClient &m_api;
    std::unique_ptr<Delivery> m_deliveries;
    FolderChooser m_folderChooser;
    std::optional<LiveSession> m_resumeOffer;
    std::optional<QString> m_resumeNotice;
};
