// SPDX-License-Identifier: MIT
#include "devservicefixture.h"

#include "../../devservice/democredentials.h"

#include <QDateTime>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QProcess>
#include <QRegularExpression>
#include <QSslConfiguration>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QUrl>

#include <algorithm>
#include <csignal>
#include <sys/prctl.h>
#include <type_traits>

namespace {

// Sanitizer builds start slowly; a healthy devservice answers in milliseconds.
constexpr int startTimeoutMs = 30000;
constexpr int callTimeoutMs = 60000;

// In the order of DevService::FaultKind.
constexpr const char *faultKindNames[] = {
    "status",      "delay",     "drop",       "malformed_json", "wrong_type",      "missing_member",
    "host_absent", "host_null", "host_empty", "redirect",       "upload_elsewhere", "close",
    "reset",       "not_http",  "cut_short",
    "hold",        "extra_member"};

DevService::Fault faultOn(QString endpoint, DevService::FaultKind kind, int count) {
    DevService::Fault fault;
    fault.endpoint = std::move(endpoint);
    fault.kind = kind;
    fault.count = count;
    return fault;
}

template <typename Text> QList<QPair<Text, Text>> pairsOf(const QJsonValue &value) {
    QList<QPair<Text, Text>> pairs;
    for (const QJsonValue &pair : value.toArray()) {
        if constexpr (std::is_same_v<Text, QString>)
            pairs.append({pair[0].toString(), pair[1].toString()});
        else
            pairs.append({pair[0].toString().toUtf8(), pair[1].toString().toUtf8()});
    }
    return pairs;
}

DevService::ReceivedRequest withoutBody(const QJsonObject &record) {
    DevService::ReceivedRequest request;
    request.method = record["method"].toString().toUtf8();
    request.path = record["path"].toString();
    request.rawQuery = record["raw_query"].toString();
    request.query = pairsOf<QString>(record["query"]);
    request.headers = pairsOf<QByteArray>(record["headers"]);
    request.receivedAt = QDateTime::fromString(record["received_at"].toString(), Qt::ISODateWithMs);
    return request;
}

} // namespace

struct DevService::Reply {
    int status = 0;
    QByteArray body;
    QString error; // transport failure, empty when an HTTP reply came
};

DevService::Fault DevService::Fault::withStatus(QString endpoint, int status, QByteArray body,
                                                int count) {
    Fault fault = faultOn(std::move(endpoint), FaultKind::status, count);
    fault.status = status;
    fault.body = std::move(body);
    return fault;
}

DevService::Fault DevService::Fault::withDelay(QString endpoint, int delayMs, int count) {
    Fault fault = faultOn(std::move(endpoint), FaultKind::delay, count);
    fault.delayMs = delayMs;
    return fault;
}

DevService::Fault DevService::Fault::withDrop(QString endpoint, int count) {
    return faultOn(std::move(endpoint), FaultKind::drop, count);
}

DevService::Fault DevService::Fault::withLostReply(QString endpoint, FaultKind kind, int count) {
    return faultOn(std::move(endpoint), kind, count);
}

DevService::Fault DevService::Fault::withHold(QString endpoint, int count) {
    return faultOn(std::move(endpoint), FaultKind::hold, count);
}

DevService::Fault DevService::Fault::withBrokenReply(QString endpoint, FaultKind kind,
                                                     QString member, int count) {
    Fault fault = faultOn(std::move(endpoint), kind, count);
    fault.member = std::move(member);
    return fault;
}

DevService::Fault DevService::Fault::withRedirect(QString endpoint, int status, QString location,
                                                  int count) {
    Fault fault = faultOn(std::move(endpoint), FaultKind::redirect, count);
    fault.status = status;
    fault.location = std::move(location);
    return fault;
}

QByteArray DevService::ReceivedRequest::header(QByteArrayView name) const {
    for (const auto &[headerName, value] : headers) {
        if (headerName.compare(name, Qt::CaseInsensitive) == 0)
            return value;
    }
    return {};
}

bool DevService::ReceivedRequest::hasHeader(QByteArrayView name) const {
    return std::ranges::any_of(headers, [&](const auto &header) {
        return header.first.compare(name, Qt::CaseInsensitive) == 0;
    });
}

DevService::DevService() = default;

DevService::~DevService() {
    m_network.reset();
    if (m_process && m_process->state() != QProcess::NotRunning) {
        m_process->terminate();
        if (!m_process->waitForFinished(10000)) {
            m_process->kill();
            m_process->waitForFinished(5000);
        }
    }
}

bool DevService::start(Transport transport, const QString &publicHost,
                       const QStringList &extraArguments) {
    QStringList arguments{"--host", "127.0.0.1", "--port", "0"};
    if (transport == Transport::https) {
        if (!makeCertificate())
            return false;
        arguments << "--tls-cert" << m_tlsDir->filePath("cert.pem") << "--tls-key"
                  << m_tlsDir->filePath("key.pem");
    }
    if (!publicHost.isEmpty())
        arguments << "--public-host" << publicHost;
    arguments << extraArguments;

    m_process = std::make_unique<QProcess>();
    m_process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    // A test that crashes or is killed by its time limit must not leave the service running
    // behind it, holding the test runner's output pipe open.
    m_process->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    m_process->start(QStringLiteral(QUILLMERE_DEVSERVICE_PATH), arguments);
    if (!m_process->waitForStarted(startTimeoutMs)) {
        m_error = "devservice did not start: " + m_process->errorString();
        return false;
    }
    const QDeadlineTimer deadline(startTimeoutMs);
    while (!m_process->canReadLine() && !deadline.hasExpired() &&
           m_process->state() == QProcess::Running)
        m_process->waitForReadyRead(static_cast<int>(deadline.remainingTime()));
    const QString line = QString::fromUtf8(m_process->readLine()).trimmed();
    static const QRegularExpression listening(R"(^listening on (https?://127\.0\.0\.1:(\d+))$)");
    const QRegularExpressionMatch match = listening.match(line);
    if (!match.hasMatch()) {
        m_error = "devservice did not say where it listens; it said: \"" + line + '"';
        return false;
    }
    m_baseURL = match.captured(1);
    m_port = match.captured(2).toUShort();
    m_storageHost = publicHost.isEmpty() ? "127.0.0.1:" + match.captured(2) : publicHost;
    m_network = std::make_unique<QNetworkAccessManager>();
    return true;
}

bool DevService::makeCertificate() {
    m_tlsDir = std::make_unique<QTemporaryDir>();
    QProcess openssl;
    openssl.setProcessChannelMode(QProcess::MergedChannels);
    openssl.start("openssl",
                  {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                   "-nodes", "-days", "2", "-subj", "/CN=127.0.0.1", "-addext",
                   "subjectAltName=IP:127.0.0.1", "-keyout", m_tlsDir->filePath("key.pem"), "-out",
                   m_tlsDir->filePath("cert.pem")});
    if (!openssl.waitForFinished(startTimeoutMs) || openssl.exitCode() != 0) {
        m_error = "openssl could not make a certificate: " + openssl.errorString() + ' ' +
                  QString::fromLocal8Bit(openssl.readAll());
        return false;
    }
    const QList<QSslCertificate> certificates =
        QSslCertificate::fromPath(m_tlsDir->filePath("cert.pem"));
    if (certificates.size() != 1) {
        m_error = "openssl made no readable certificate";
        return false;
    }
    m_certificate = certificates.first();
    return true;
}

QString DevService::errorString() const {
    return m_error;
}
QString DevService::baseURL() const {
    return m_baseURL;
}
QString DevService::storageHost() const {
    return m_storageHost;
}
quint16 DevService::port() const {
    return m_port;
}
QSslCertificate DevService::certificate() const {
    return m_certificate;
}
QString DevService::demoEmail() {
    return QString::fromUtf8(DemoCredentials::email);
}
QString DevService::demoPassword() {
    return QString::fromUtf8(DemoCredentials::password);
}

DevService::Reply DevService::call(const QByteArray &verb, const QString &pathAndQuery,
                                   const QByteArray &body) {
    if (!m_network)
        return Reply{0, {}, "devservice is not running"};
    QNetworkRequest request(QUrl(m_baseURL + pathAndQuery));
    if (!m_certificate.isNull()) {
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        tls.addCaCertificate(m_certificate);
        request.setSslConfiguration(tls);
    }
    if (!body.isEmpty())
        request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
    request.setTransferTimeout(callTimeoutMs);
    QNetworkReply *reply = m_network->sendCustomRequest(request, verb, body);
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();
    Reply result;
    result.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    result.body = reply->readAll();
    if (result.status == 0)
        result.error = reply->errorString();
    reply->deleteLater();
    return result;
}

bool DevService::expect(const Reply &reply, int status, const char *what) {
    if (reply.status == status)
        return true;
    const QString message =
        QStringLiteral("devservice: %1 failed: %2")
            .arg(QLatin1String(what), reply.status == 0 ? reply.error
                                                        : QString::number(reply.status) + ' ' +
                                                              QString::fromUtf8(reply.body));
    QTest::qFail(qPrintable(message), __FILE__, __LINE__);
    return false;
}

bool DevService::reset() {
    return expect(call("POST", "/__admin/reset"), 200, "reset");
}

bool DevService::injectFault(const Fault &fault) {
    const QJsonObject body{
        {"endpoint", fault.endpoint},
        {"kind", faultKindNames[static_cast<int>(fault.kind)]},
        {"count", fault.count},
        {"status", fault.status},
        {"body", QString::fromUtf8(fault.body)},
        {"delay_ms", fault.delayMs},
        {"member", fault.member},
        {"location", fault.location},
        {"retry_after", fault.retryAfter},
    };
    return expect(call("POST", "/__admin/faults", QJsonDocument(body).toJson()), 201,
                  "injecting a fault");
}

bool DevService::clearFaults() {
    return expect(call("DELETE", "/__admin/faults"), 200, "clearing faults");
}

bool DevService::releaseHeld() {
    return expect(call("POST", "/__admin/release"), 200, "releasing held calls");
}

bool DevService::startOutage(OutageMode mode, int durationMs) {
    const QJsonObject body{{"mode", mode == OutageMode::refuse ? "refuse" : "hang"},
                           {"duration_ms", durationMs}};
    return expect(call("POST", "/__admin/outage", QJsonDocument(body).toJson()), 201,
                  "starting an outage");
}

bool DevService::endOutage() {
    return expect(call("DELETE", "/__admin/outage"), 200, "ending the outage");
}

DevService::OutageCounts DevService::outage() {
    const Reply reply = call("GET", "/__admin/outage");
    if (!expect(reply, 200, "asking about the outage"))
        return {};
    const QJsonDocument status = QJsonDocument::fromJson(reply.body);
    return {status["active"].toBool(), status["refused"].toInt(), status["hung"].toInt()};
}

bool DevService::setPresignLifetime(int ms) {
    const QJsonObject body{{"ms", ms}};
    return expect(call("POST", "/__admin/presign-lifetime", QJsonDocument(body).toJson()), 200,
                  "setting the presign lifetime");
}

int DevService::pendingFaults() {
    const Reply reply = call("GET", "/__admin/faults");
    if (!expect(reply, 200, "listing faults"))
        return -1;
    return static_cast<int>(QJsonDocument::fromJson(reply.body)["faults"].toArray().size());
}

QList<DevService::ReceivedRequest> DevService::requests(const QString &endpoint) {
    const Reply reply = call("GET", "/__admin/requests/" + endpoint);
    if (!expect(reply, 200, "listing requests"))
        return {};
    QList<ReceivedRequest> requests;
    const QJsonArray records = QJsonDocument::fromJson(reply.body)["requests"].toArray();
    for (qsizetype i = 0; i < records.size(); ++i) {
        std::optional<ReceivedRequest> request =
            readRequest(endpoint, static_cast<int>(i), records[i].toObject());
        if (!request)
            return {};
        requests.append(std::move(*request));
    }
    return requests;
}

QString DevService::otherOrigin() {
    const Reply reply = call("GET", "/__admin/other-origin");
    if (!expect(reply, 200, "asking for the other origin"))
        return {};
    return QJsonDocument::fromJson(reply.body)["origin"].toString();
}

QList<DevService::ReceivedRequest> DevService::otherOriginRequests() {
    const Reply reply = call("GET", "/__admin/other-origin");
    if (!expect(reply, 200, "listing what reached the other origin"))
        return {};
    QList<ReceivedRequest> requests;
    for (const QJsonValue &record : QJsonDocument::fromJson(reply.body)["requests"].toArray())
        requests.append(withoutBody(record.toObject()));
    return requests;
}

std::optional<DevService::ReceivedRequest>
DevService::readRequest(const QString &endpoint, int index, const QJsonObject &record) {
    ReceivedRequest request = withoutBody(record);
    if (record["body"].isString()) {
        request.body = QByteArray::fromBase64(record["body"].toString().toLatin1());
        return request;
    }
    // Too big to come inline: fetched on its own.
    const Reply body =
        call("GET", QStringLiteral("/__admin/requests/%1/%2/body").arg(endpoint).arg(index));
    if (!expect(body, 200, "reading a request body"))
        return std::nullopt;
    request.body = body.body;
    return request;
}

std::optional<QByteArray> DevService::storedObject(const QString &key) {
    const Reply reply =
        call("GET", "/__admin/objects?key=" + QString::fromLatin1(QUrl::toPercentEncoding(key)));
    if (reply.status == 404)
        return std::nullopt;
    if (!expect(reply, 200, "reading a stored object"))
        return std::nullopt;
    return reply.body;
}

QList<DevService::RegisteredFile> DevService::registeredFiles(const QString &slug) {
    return filesOfSession([&](const QJsonObject &session) { return session["slug"] == slug; });
}

QList<DevService::RegisteredFile> DevService::registeredFiles(qint64 folderId) {
    return filesOfSession(
        [&](const QJsonObject &session) { return session["folder_id"].toInteger() == folderId; });
}

QList<DevService::RegisteredFile>
DevService::filesOfSession(const std::function<bool(const QJsonObject &)> &isTheSession) {
    const Reply reply = call("GET", "/__admin/sessions");
    if (!expect(reply, 200, "listing sessions"))
        return {};
    QList<RegisteredFile> files;
    for (const QJsonValue &session : QJsonDocument::fromJson(reply.body)["sessions"].toArray()) {
        if (!isTheSession(session.toObject()))
            continue;
        for (const QJsonValue &file : session["files"].toArray()) {
            files.append({file["url"].toString(), file["key"].toString(), file["bucket"].toString(),
                          file["created_at"].toString(), file["registered_at"].toString()});
        }
    }
    return files;
}

QList<DevService::OpenedSession> DevService::sessions() {
    const Reply reply = call("GET", "/__admin/sessions");
    if (!expect(reply, 200, "listing sessions"))
        return {};
    QList<OpenedSession> sessions;
    for (const QJsonValue &session : QJsonDocument::fromJson(reply.body)["sessions"].toArray())
        sessions.append({session["slug"].toString(), session["ended"].toBool()});
    return sessions;
}

bool DevService::setNextFolderId(qint64 folderId) {
    const QJsonObject body{{"folder_id", QString::number(folderId)}};
    return expect(call("POST", "/__admin/next-folder-id", QJsonDocument(body).toJson()), 200,
                  "setting the next folder id");
}

bool DevService::removeSession(qint64 folderId) {
    return expect(call("DELETE", QStringLiteral("/__admin/sessions/%1").arg(folderId)), 200,
                  "removing a session");
}

QString DevService::demoToken() {
    const QJsonObject body{{"email", demoEmail()}, {"password", demoPassword()}};
    const Reply reply =
        call("POST", "/api/live/sessions/authenticate", QJsonDocument(body).toJson());
    if (!expect(reply, 200, "signing in with the demo account"))
        return {};
    return QJsonDocument::fromJson(reply.body)["token"].toString();
}

QByteArray DevService::storageError(const QByteArray &code, const QByteArray &message) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Error><Code>" + code + "</Code><Message>" +
           message + "</Message><RequestId>4442587FB7D0A2F9</RequestId></Error>";
}
