// SPDX-License-Identifier: MIT
#pragma once

#include "apierror.h"
#include "presignresponse.h"
#include "requestbody.h"
#include "sessionresponse.h"
#include "replywatch.h"
#include "uplinkgate.h"

#include <QCoroTask>
#include <QNetworkRequest>
#include <QString>

#include <chrono>
#include <memory>

class LedbatWindow;
class QNetworkAccessManager;
class QNetworkReply;
class QUrl;

// The one gateway to the photo-selection service and its object store. Every operation is a
// coroutine that completes with its result or throws: APIError when the service refuses,
// TransportError when the exchange itself fails, DecodingError when a reply does not decode.
//
// The client lives on the main thread and is driven from there; the requests themselves run
// concurrently in Qt's network stack.
class APIClient {
public:
    // The process-wide client: made on first use (from the main thread) and never released.
    // Its addresses are the ones fixed at build time; a development build also takes them from
    // QUILLMERE_SERVICE_URL and QUILLMERE_STORAGE_HOST when those are set.
    static APIClient &shared();
    // Points the shared client at another service and object store, for the programs that
    // embed it (tests, benchmarks) in any build. The program itself never calls it. From the
    // main thread, while no request is under way.
    static void redirectShared(QString baseURL, QString defaultStorageHost);

    APIClient(QString baseURL, QString defaultStorageHost);
    ~APIClient();
    APIClient(const APIClient &) = delete;
    APIClient &operator=(const APIClient &) = delete;

    const QString &baseURL() const { return m_baseURL; }
    const QString &defaultStorageHost() const { return m_defaultStorageHost; }

    // Signs in and stores the token under "api_token" before completing with it.
    QCoro::Task<QString> authenticate(QString email, QString password);
    QCoro::Task<SessionResponse> createSession(QString name);
    QCoro::Task<> endSession(QString slug);

    // Upload calls take the network priority of their lane: previews go ahead of originals.
    QCoro::Task<PresignResponse>
    presign(qint64 folderId, QString filename, QString contentType,
            QNetworkRequest::Priority priority = QNetworkRequest::NormalPriority);
    QCoro::Task<> registerAttachment(qint64 folderId, QString url, QString key, QString bucket,
                                     QNetworkRequest::Priority priority =
                                         QNetworkRequest::NormalPriority);
    // Posts the file as a multipart form and completes with its public URL. The uplink goes to
    // the high-priority uploads (the previews): while one of them is on its way, the body of a
    // low-priority upload (an original) holds back, so that a preview never queues behind it.
    // A low-priority upload goes on a connection of its own as a background transfer: it takes
    // what the uplink has to spare and leaves no queue in front of it (BackgroundUpload).
    QCoro::Task<QString>
    uploadToStorage(PresignResponse presign, QByteArray fileData,
                    QNetworkRequest::Priority priority = QNetworkRequest::NormalPriority);
    // The same with the file's bytes read from the file as they are sent, so that an original
    // of any size costs no more memory than a small one. The file is opened for each send, as
    // it is then; one that cannot be opened, or fails or comes up short while it is read, fails
    // the upload with FileReadError, and the store keeps nothing of it.
    QCoro::Task<QString>
    uploadFileToStorage(PresignResponse presign, QString filePath,
                        QNetworkRequest::Priority priority = QNetworkRequest::NormalPriority);

    // Holds the originals back to a trickle for as long as the hold lives. A preview's job holds
    // it from its start to its registration, so that by the time the preview is sent, what the
    // originals had on their way has drained from the uplink's queue.
    [[nodiscard]] UplinkGate::Hold holdUplink() { return m_uplink.hold(); }
    // The network changed (another one joined, a wake): the uplink the originals measured is
    // gone, and what was learned of it with it.
    void forgetUplinkPath();

    // 60 seconds unless a test needs to see a timeout sooner.
    void setRequestTimeout(std::chrono::milliseconds timeout) { m_timeout = timeout; }

    // Whether the service answers at all right now: a request on a connection of its own, so
    // it never waits behind a dead one. Any HTTP reply counts; nothing on the service changes.
    QCoro::Task<bool> probe(std::chrono::milliseconds timeout);
    // The replies under way, and how long they have gone without a byte moving.
    ReplyWatch &replies() { return m_replies; }

private:
    enum class Authorization { none, bearer };
    struct HttpResult {
        int status;
        QByteArray body;
    };

    QNetworkRequest request(const QUrl &url, Authorization authorization) const;
    QNetworkRequest authorizedRequest(const QUrl &url) const;
    QUrl endpoint(const QString &path) const;

    // What a request does with the uplink: shares it, holds it for as long as it is on its
    // way (its reply included), or yields its body's bytes to those that hold it.
    enum class Uplink { shares, holds, yields };

    // Whether a request may go out a second time, at once, when the connection it went out on
    // closed before a single byte of its reply: only those that do the same thing however
    // often they arrive (a presign, an upload to a presigned key), as browsers resend them.
    enum class Resend { never, whenUnanswered };

    // Sends and waits; throws TransportError, or APIError(failureCase) when the reply is not
    // HTTP, or FileReadError when the body's file fails. The status test is the caller's: the
    // endpoints disagree on it on purpose.
    QCoro::Task<HttpResult> send(QNetworkRequest request, QByteArray verb, RequestBody body,
                                 APIError::Case failureCase, Uplink uplink = Uplink::shares,
                                 Resend resend = Resend::never);
    QCoro::Task<HttpResult> sendOnce(QNetworkRequest request, QByteArray verb, RequestBody body,
                                     APIError::Case failureCase, Uplink uplink, bool &unanswered);
    QCoro::Task<QString> store(PresignResponse presign, RequestBody file,
                               QNetworkRequest::Priority priority);

    QString m_baseURL;
    QString m_defaultStorageHost;
    std::chrono::milliseconds m_timeout{std::chrono::seconds(60)};
    QNetworkAccessManager *m_network;
    QNetworkAccessManager *m_probes; // connections of their own, never shared with requests
    UplinkGate m_uplink;
    // The uplink as the originals found it, carried from one to the next.
    std::shared_ptr<LedbatWindow> m_backgroundPath;
    ReplyWatch m_replies;
};
