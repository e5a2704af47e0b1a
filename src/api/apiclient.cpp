// SPDX-License-Identifier: MIT
#include "apiclient.h"
#include "apilog.h"

#include "authresponse.h"
#include "backgroundupload.h"
#include "filereaderror.h"
#include "ledbatwindow.h"
#include "multipartformbody.h"
#include "oneshotbody.h"
#include "preferences.h"
#include "retryafter.h"
#include "signinpage.h"
#include "systemproxy.h"
#include "transporterror.h"

#include <QCoreApplication>
#include <QCoroNetworkReply>
#include <QDateTime>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QThread>
#include <QUrl>

#include <memory>

namespace {

QString orBuiltIn(const QString &redirected, const char *builtIn)
{
    return redirected.isEmpty() ? QString::fromUtf8(builtIn) : redirected;
}

// Every address is assembled from trusted pieces, so one that does not parse is a defect of
// the program, not a condition to report. One that parses but cannot be reached over HTTP (a
// relative address, another scheme) is sent all the same, and fails as the network stack says.
QUrl parsedOrFatal(const QString &text)
{
    QUrl url(text, QUrl::StrictMode);
    if (!url.isValid())
        qFatal("APIClient: \"%s\" is not a valid URL", qPrintable(text));
    return url;
}

// A kept-alive connection that the server closes just as a request goes out loses that
// request, and nothing is ever sent twice. Connections left idle are closed well before the
// shortest keep-alive servers commonly grant (five seconds; devservice grants three), so that
// a new request rarely meets a connection the server is giving up. Within a photo's few
// requests the connection is still reused.
constexpr int idleConnectionSeconds = 2;

// The error Qt itself reports when it gives up on a connection that closed before the reply.
// A request as the log names it: its verb, host and path. The query is left out (it may name a
// signature), and so is every header (the token).
QByteArray named(const QByteArray &verb, const QUrl &url)
{
    return verb + ' ' + url.host().toUtf8() + url.path(QUrl::FullyEncoded).toUtf8();
}

TransportError connectionClosedBeforeReply()
{
    return TransportError(QNetworkReply::RemoteHostClosedError,
                          QCoreApplication::translate("QHttp", "Connection closed"));
}

QByteArray compactJson(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

// Qt reports HTTP error statuses as errors too; only failures below the HTTP layer (connection,
// TLS, timeout, a reply cut short) are transport errors.
bool isTransportFailure(QNetworkReply::NetworkError error)
{
    return error != QNetworkReply::NoError && error < QNetworkReply::ContentAccessDenied;
}

bool isSuccess2xx(int status) { return status >= 200 && status <= 299; }

} // namespace

APIClient &APIClient::shared()
{
    // Made once and deliberately never destroyed: upload jobs may still hold it while the
    // application shuts down.
    static APIClient *const instance = [] {
#if QUILLMERE_TEST_SWITCHES
        // A development build may be pointed at a local service from outside, as the tests
        // that run the whole program do. A shipped build has no such door: its addresses are
        // the ones it was built with.
        const QString service = qEnvironmentVariable("QUILLMERE_SERVICE_URL");
        const QString storage = qEnvironmentVariable("QUILLMERE_STORAGE_HOST");
#else
        const QString service, storage;
#endif
        return new APIClient(orBuiltIn(service, QUILLMERE_DEFAULT_SERVICE_URL),
                             orBuiltIn(storage, QUILLMERE_DEFAULT_STORAGE_HOST));
    }();
    return *instance;
}

void APIClient::redirectShared(QString baseURL, QString defaultStorageHost)
{
    APIClient &client = shared();
    client.m_baseURL = std::move(baseURL);
    client.m_defaultStorageHost = std::move(defaultStorageHost);
}

APIClient::APIClient(QString baseURL, QString defaultStorageHost)
    : m_baseURL(std::move(baseURL))
    , m_defaultStorageHost(std::move(defaultStorageHost))
    , m_network(new QNetworkAccessManager)
    , m_probes(new QNetworkAccessManager)
    , m_backgroundPath(std::make_shared<LedbatWindow>())
{
    SystemProxy::follow();
}

APIClient::~APIClient()
{
    delete m_probes;
    delete m_network;
}

void APIClient::forgetUplinkPath() { m_backgroundPath->forgetPath(); }

QUrl APIClient::endpoint(const QString &path) const { return parsedOrFatal(m_baseURL + path); }

QNetworkRequest APIClient::request(const QUrl &url, Authorization authorization) const
{
    QNetworkRequest request(url);
    request.setTransferTimeout(static_cast<int>(m_timeout.count()));
    // No redirect is followed: neither the service nor the object store sends one, and Qt's
    // default follows them to any origin with the Authorization header and the password still
    // on board, and turns a POST into a GET on 301, 302 and 303. A 3xx reply fails the
    // endpoint's status test like any other status.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    if (authorization == Authorization::bearer) {
        // Read afresh for every request: a sign-in may have replaced the token meanwhile.
        if (const std::optional<QString> token = Preferences::string(Preferences::apiTokenKey))
            request.setRawHeader("Authorization", "Bearer " + token->toUtf8());
    }
    return request;
}

QNetworkRequest APIClient::authorizedRequest(const QUrl &url) const
{
    return request(url, Authorization::bearer);
}

QCoro::Task<APIClient::HttpResult> APIClient::send(QNetworkRequest request, QByteArray verb,
                                                   RequestBody body, APIError::Case failureCase,
                                                   Uplink uplink, Resend resend)
{
    bool unanswered = false;
    try {
        QCoro::Task<HttpResult> first =
            sendOnce(request, verb, body, failureCase, uplink, unanswered);
        co_return co_await first;
    } catch (const TransportError &) {
        if (resend == Resend::never || !unanswered)
            throw;
    }
    qCDebug(apiLog, "%s: sent again, its connection closed before it was answered",
            named(verb, request.url()).constData());
    // A body from a file opens the file again, and reads it from its start as it is now.
    QCoro::Task<HttpResult> second = sendOnce(std::move(request), std::move(verb),
                                              std::move(body), failureCase, uplink, unanswered);
    co_return co_await second;
}

QCoro::Task<APIClient::HttpResult> APIClient::sendOnce(QNetworkRequest request, QByteArray verb,
                                                       RequestBody body,
                                                       APIError::Case failureCase,
                                                       Uplink uplink, bool &unanswered)
{
    if (QThread::currentThread() != m_network->thread())
        qFatal("APIClient: requests must be sent from the thread that owns the client");
    // Opened before anything goes out: a file that cannot be opened sends nothing at all.
    BodyReader reader = body.open();
    const QByteArray name = named(verb, request.url());
    QElapsedTimer took;
    took.start();
    qCDebug(apiLog, "%s: sending %lld bytes%s", name.constData(), reader.size(),
            body.filePath().isEmpty() ? "" : ", read from the file as they go");

    const UplinkGate::Hold holding = uplink == Uplink::holds ? m_uplink.hold() : UplinkGate::Hold();
    OneShotBody *once = nullptr;
    QNetworkReply *sent = nullptr;
    if (uplink == Uplink::yields) {
        // An original goes on a connection of its own, paced below what the uplink can take.
        sent = new BackgroundUpload(request, verb, std::move(reader), m_backgroundPath,
                                    &m_uplink);
    } else {
        request.setAttribute(QNetworkRequest::ConnectionCacheExpiryTimeoutSecondsAttribute,
                             idleConnectionSeconds);
        once = new OneShotBody(std::move(reader));
        sent = m_network->sendCustomRequest(request, verb, once);
        once->setParent(sent);
    }
    std::unique_ptr<QNetworkReply, void (*)(QNetworkReply *)> reply(
        sent, [](QNetworkReply *r) { r->deleteLater(); });
    m_replies.watch(reply.get());
    co_await reply.get();

    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    // An aborted reply (a request given up on a dead connection) is closed, with nothing to read.
    QByteArray replyBody = reply->isOpen() ? reply->readAll() : QByteArray();
    // Before anything else: the reply, whatever it says, is to a body that was never whole.
    const auto *background = qobject_cast<const BackgroundUpload *>(reply.get());
    if ((background && background->readFailed()) || (once && once->readFailed())) {
        qCDebug(apiLog, "%s: the file failed while it was sent", name.constData());
        throw FileReadError(body.filePath());
    }
    if (background && background->closedUnanswered()) {
        qCDebug(apiLog, "%s: closed unanswered after %lld ms", name.constData(), took.elapsed());
        unanswered = true;
        throw connectionClosedBeforeReply();
    }
    // Qt wanted to send the request again before the whole reply had come: the connection
    // closed. (After a whole 307 or 308 reply it rewinds the body too, in case the redirect is
    // followed; that reply is judged by its status like any other.)
    const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
    const bool wholeReply =
        status.isValid() && (!length.isValid() || replyBody.size() >= length.toLongLong());
    if (once && once->resendRefused() && !wholeReply) {
        qCDebug(apiLog, "%s: closed before its reply after %lld ms", name.constData(),
                took.elapsed());
        unanswered = !status.isValid() && replyBody.isEmpty();
        throw connectionClosedBeforeReply();
    }
    if (isTransportFailure(reply->error()) || (!status.isValid() && reply->error())) {
        qCDebug(apiLog, "%s: failed after %lld ms: %s", name.constData(), took.elapsed(),
                qPrintable(reply->errorString()));
        throw TransportError(reply->error(), reply->errorString());
    }
    if (!status.isValid()) {
        qCDebug(apiLog, "%s: no HTTP reply after %lld ms", name.constData(), took.elapsed());
        throw APIError(failureCase);
    }
    qCDebug(apiLog, "%s: %d after %lld ms", name.constData(), status.toInt(), took.elapsed());
    // Whatever the endpoint's status test, an answer from a network's sign-in page is no answer
    // of the service's: not even a success.
    if (SignInPage::answered(request.url(), status.toInt(), reply->rawHeader("Content-Type"),
                             reply->rawHeader("Location"), replyBody)) {
        qCDebug(apiLog, "%s: answered by a network's sign-in page", name.constData());
        throw APIError::signInPage(failureCase, status.toInt());
    }
    // No endpoint takes these for an answer; the server may say when it will be.
    if (status.toInt() == 429 || status.toInt() == 503) {
        const QByteArray asked = reply->rawHeader("Retry-After");
        const std::optional<std::chrono::milliseconds> retryAfter =
            RetryAfter::read(asked, QDateTime::currentDateTimeUtc());
        if (!asked.isEmpty())
            qCDebug(apiLog, "%s: busy, asks to come back in %lld ms (\"%s\")", name.constData(),
                    retryAfter ? qlonglong(retryAfter->count()) : -1LL, asked.constData());
        throw APIError::busy(failureCase, status.toInt(), retryAfter);
    }
    co_return HttpResult{status.toInt(), std::move(replyBody)};
}

QCoro::Task<bool> APIClient::probe(std::chrono::milliseconds timeout)
{
    QNetworkRequest request(endpoint(QStringLiteral("/")));
    request.setTransferTimeout(static_cast<int>(timeout.count()));
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::AlwaysNetwork);
    // A probe's connection is not kept: the next one must prove a fresh connection works.
    request.setRawHeader("Connection", "close");
    std::unique_ptr<QNetworkReply, void (*)(QNetworkReply *)> reply(
        m_probes->head(request), [](QNetworkReply *r) { r->deleteLater(); });
    co_await reply.get();
    const bool answered = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid();
    qCDebug(apiLog, "probe: %s", answered ? "answered" : qPrintable(reply->errorString()));
    co_return answered;
}

QCoro::Task<QString> APIClient::authenticate(QString email, QString password)
{
    QNetworkRequest request =
        this->request(endpoint(QStringLiteral("/api/live/sessions/authenticate")),
                      Authorization::none);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    const QByteArray body = compactJson({{QStringLiteral("email"), email},
                                         {QStringLiteral("password"), password}});

    QCoro::Task<HttpResult> pending = send(request, "POST", body, APIError::authFailed);
    const HttpResult result = co_await pending;
    if (result.status != 200)
        throw APIError(APIError::authFailed, result.status);
    const AuthResponse auth = AuthResponse::decode(result.body);
    Preferences::setString(Preferences::apiTokenKey, auth.token);
    co_return auth.token;
}

QCoro::Task<SessionResponse> APIClient::createSession(QString name)
{
    QNetworkRequest request = authorizedRequest(endpoint(QStringLiteral("/api/live/sessions")));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    const QByteArray body = compactJson({{QStringLiteral("name"), name}});

    QCoro::Task<HttpResult> pending = send(request, "POST", body, APIError::sessionCreateFailed);
    const HttpResult result =
        co_await pending;
    if (result.status != 201)
        throw APIError(APIError::sessionCreateFailed, result.status);
    co_return SessionResponse::decode(result.body);
}

QCoro::Task<> APIClient::endSession(QString slug)
{
    const QNetworkRequest request =
        authorizedRequest(endpoint(QStringLiteral("/api/live/sessions/") + slug));
    QCoro::Task<HttpResult> pending = send(request, "DELETE", {}, APIError::sessionEndFailed);
    const HttpResult result = co_await pending;
    if (result.status != 200)
        throw APIError(APIError::sessionEndFailed, result.status);
}

QCoro::Task<PresignResponse> APIClient::presign(qint64 folderId, QString filename,
                                                QString contentType,
                                                QNetworkRequest::Priority priority)
{
    QUrl url = endpoint(QLatin1Char('/') + QString::number(folderId) +
                        QStringLiteral("/source_files/presign.json"));
    // Everything outside the unreserved set is escaped, "+" included: servers read a bare "+"
    // in a query as a space.
    const QByteArray query = "filename=" + QUrl::toPercentEncoding(filename) +
                             "&content_type=" + QUrl::toPercentEncoding(contentType);
    url.setQuery(QString::fromLatin1(query), QUrl::StrictMode);
    if (!url.isValid())
        qFatal("APIClient: presign URL for \"%s\" does not form", qPrintable(filename));

    QNetworkRequest request = authorizedRequest(url);
    request.setPriority(priority);
    QCoro::Task<HttpResult> pending = send(request, "GET", {}, APIError::presignFailed,
                                           Uplink::shares, Resend::whenUnanswered);
    const HttpResult result = co_await pending;
    if (result.status != 200)
        throw APIError(APIError::presignFailed, result.status);
    co_return PresignResponse::decode(result.body);
}

QCoro::Task<> APIClient::registerAttachment(qint64 folderId, QString url, QString key,
                                            QString bucket, QNetworkRequest::Priority priority)
{
    QNetworkRequest request = authorizedRequest(
        endpoint(QLatin1Char('/') + QString::number(folderId) + QStringLiteral("/source_files.json")));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    request.setPriority(priority);
    const QString createdAt = QDateTime::currentDateTimeUtc().toString(Qt::ISODate);
    const QByteArray body = compactJson(
        {{QStringLiteral("source_file"), QJsonObject{{QStringLiteral("url"), url},
                                                     {QStringLiteral("key"), key},
                                                     {QStringLiteral("bucket"), bucket},
                                                     {QStringLiteral("created_at"), createdAt}}}});

    QCoro::Task<HttpResult> pending = send(request, "POST", body, APIError::registerFailed);
    const HttpResult result = co_await pending;
    if (!isSuccess2xx(result.status))
        throw APIError(APIError::registerFailed, result.status);
}

QCoro::Task<QString> APIClient::uploadToStorage(PresignResponse presign, QByteArray fileData,
                                                QNetworkRequest::Priority priority)
{
    // The form's parts go around the caller's bytes as they are sent: no copy of the file is
    // made, and the bytes live as long as the upload.
    return store(std::move(presign), RequestBody(std::move(fileData)), priority);
}

QCoro::Task<QString> APIClient::uploadFileToStorage(PresignResponse presign, QString filePath,
                                                    QNetworkRequest::Priority priority)
{
    return store(std::move(presign), RequestBody::ofFile(std::move(filePath)), priority);
}

QCoro::Task<QString> APIClient::store(PresignResponse presign, RequestBody file,
                                      QNetworkRequest::Priority priority)
{
    QNetworkRequest request = this->request(parsedOrFatal(presign.url), Authorization::none);
    const QString boundary = MultipartFormBody::newBoundary();
    request.setRawHeader("Content-Type", MultipartFormBody::contentType(boundary));
    request.setPriority(priority);
    RequestBody body = MultipartFormBody::around(file, presign.fields, boundary);

    const Uplink uplink = priority == QNetworkRequest::HighPriority ? Uplink::holds
                          : priority == QNetworkRequest::LowPriority ? Uplink::yields
                                                                      : Uplink::shares;
    QCoro::Task<HttpResult> pending =
        send(request, "POST", std::move(body), APIError::uploadFailed, uplink,
             Resend::whenUnanswered);
    const HttpResult result =
        co_await pending;
    // A refusal says whether the permission ran out or was refused for another reason: what
    // is done next differs.
    if (result.status == 403)
        throw APIError(APIError::uploadFailed, result.status, StorageRefusal::read(result.body));
    if (!isSuccess2xx(result.status))
        throw APIError(APIError::uploadFailed, result.status);
    co_return QStringLiteral("https://") + presign.host.value_or(m_defaultStorageHost) +
        QLatin1Char('/') + presign.bucket + QLatin1Char('/') + presign.key;
}
