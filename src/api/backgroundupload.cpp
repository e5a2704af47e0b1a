// SPDX-License-Identifier: MIT
#include "backgroundupload.h"

#include "ledbatwindow.h"
#include "tcppath.h"
#include "uplinkgate.h"

#include <QCoreApplication>
#include <QSslSocket>
#include <QTcpSocket>

#include <algorithm>
#include <cstring>

namespace {

// Where the system cannot say what it still holds, the socket is kept this full, as Qt's own
// stack keeps its sockets: the system's buffers then decide, as for any upload.
constexpr qint64 unmeasuredBuffer = 64 * 1024;
// At most this much is given to the socket at once, however large the window.
constexpr qint64 largestWrite = 4 * 1024 * 1024;
constexpr qint64 smallestWrite = 4 * 1024;

// The texts Qt's own HTTP stack gives these failures, in the same translation contexts, so
// that they read the same whichever stack carried the request.
QString connectionClosed() { return QCoreApplication::translate("QHttp", "Connection closed"); }
QString operationCanceled()
{
    return QCoreApplication::translate("QNetworkReplyHttpImpl", "Operation canceled");
}

// As Qt's HTTP stack reports a socket's failure.
QNetworkReply::NetworkError networkError(QAbstractSocket::SocketError error)
{
    switch (error) {
    case QAbstractSocket::ConnectionRefusedError:
        return QNetworkReply::ConnectionRefusedError;
    case QAbstractSocket::RemoteHostClosedError:
        return QNetworkReply::RemoteHostClosedError;
    case QAbstractSocket::HostNotFoundError:
        return QNetworkReply::HostNotFoundError;
    case QAbstractSocket::SocketTimeoutError:
        return QNetworkReply::TimeoutError;
    case QAbstractSocket::SslHandshakeFailedError:
        return QNetworkReply::SslHandshakeFailedError;
    case QAbstractSocket::ProxyAuthenticationRequiredError:
        return QNetworkReply::ProxyAuthenticationRequiredError;
    case QAbstractSocket::ProxyConnectionRefusedError:
        return QNetworkReply::ProxyConnectionRefusedError;
    case QAbstractSocket::ProxyConnectionClosedError:
        return QNetworkReply::ProxyConnectionClosedError;
    case QAbstractSocket::ProxyConnectionTimeoutError:
        return QNetworkReply::ProxyTimeoutError;
    case QAbstractSocket::ProxyNotFoundError:
        return QNetworkReply::ProxyNotFoundError;
    case QAbstractSocket::ProxyProtocolError:
        return QNetworkReply::UnknownProxyError;
    default:
        return QNetworkReply::UnknownNetworkError;
    }
}

QByteArray requestHead(const QNetworkRequest &request, const QByteArray &verb,
                       const ConnectionRoute &route, qint64 bodySize)
{
    const QUrl url = request.url();
    QByteArray head = verb + ' ' + route.requestTarget(url) + " HTTP/1.1\r\n";
    head += "Host: " + ConnectionRoute::hostField(url) + "\r\n";
    for (const QByteArray &name : request.rawHeaderList()) {
        // The framing is this connection's own business.
        if (name.compare("Content-Length", Qt::CaseInsensitive) == 0 ||
            name.compare("Connection", Qt::CaseInsensitive) == 0 ||
            name.compare("Host", Qt::CaseInsensitive) == 0)
            continue;
        head += name + ": " + request.rawHeader(name) + "\r\n";
    }
    if (route.forwarded && !route.forwardProxy.user().isEmpty()) {
        const QByteArray credentials =
            (route.forwardProxy.user() + QLatin1Char(':') + route.forwardProxy.password()).toUtf8();
        head += "Proxy-Authorization: Basic " + credentials.toBase64() + "\r\n";
    }
    head += "Content-Length: " + QByteArray::number(bodySize) + "\r\n";
    // One request a connection: the next original opens its own, with nothing left over from
    // this one that could be lost or resent.
    head += "Connection: close\r\n\r\n";
    return head;
}

} // namespace

BackgroundUpload::BackgroundUpload(const QNetworkRequest &request, QByteArray verb,
                                   QByteArray body, std::shared_ptr<LedbatWindow> window,
                                   UplinkGate *gate, QObject *parent)
    : QNetworkReply(parent)
    , m_verb(std::move(verb))
    , m_body(std::move(body))
    , m_window(std::move(window))
    , m_gate(gate)
{
    setRequest(request);
    setUrl(request.url());
    if (m_verb == "POST") {
        setOperation(QNetworkAccessManager::PostOperation);
    } else {
        setOperation(QNetworkAccessManager::CustomOperation);
        setAttribute(QNetworkRequest::CustomVerbAttribute, m_verb);
    }
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);

    m_ticks.setTimerType(Qt::PreciseTimer);
    m_ticks.setInterval(tick);
    connect(&m_ticks, &QTimer::timeout, this, &BackgroundUpload::sendMore);
    m_transferTimeout.setSingleShot(true);
    m_transferTimeout.setInterval(request.transferTimeout());
    connect(&m_transferTimeout, &QTimer::timeout, this,
            [this] { finishWithError(OperationCanceledError, operationCanceled()); });
    if (m_gate)
        connect(m_gate, &UplinkGate::opened, this, &BackgroundUpload::sendMore);
    // Failures found before a single byte is sent are reported as any other, once the caller
    // has had its chance to listen.
    QMetaObject::invokeMethod(this, &BackgroundUpload::start, Qt::QueuedConnection);
}

BackgroundUpload::~BackgroundUpload() = default;

void BackgroundUpload::start()
{
    if (m_done)
        return;
    const QUrl url = request().url();
    if (!ConnectionRoute::canReach(url)) {
        finishWithError(ProtocolUnknownError,
                        QCoreApplication::translate("QNetworkReply", "Protocol \"%1\" is unknown")
                            .arg(url.scheme()));
        return;
    }
    m_route = ConnectionRoute::to(url);
    if (!m_route) {
        finishWithError(ProxyNotFoundError, QCoreApplication::translate(
                                                "QNetworkReplyHttpImpl", "No suitable proxy found"));
        return;
    }
    m_head = requestHead(request(), m_verb, *m_route, m_body.size());

    if (m_route->encrypted) {
        auto *const secure = new QSslSocket(this);
        QSslConfiguration configuration = request().sslConfiguration();
        configuration.setAllowedNextProtocols({QSslConfiguration::NextProtocolHttp1_1});
        secure->setSslConfiguration(configuration);
        connect(secure, &QSslSocket::encrypted, this, &BackgroundUpload::sendHead);
        connect(secure, &QSslSocket::encryptedBytesWritten, this,
                &BackgroundUpload::onBytesHandedOver);
        m_socket = secure;
    } else {
        m_socket = new QTcpSocket(this);
        connect(m_socket, &QTcpSocket::connected, this, &BackgroundUpload::sendHead);
        connect(m_socket, &QTcpSocket::bytesWritten, this, &BackgroundUpload::onBytesHandedOver);
    }
    m_socket->setProxy(m_route->socketProxy);
    // As soon as the connection is there, before any handshake of TLS goes over it.
    connect(m_socket, &QTcpSocket::connected, this,
            [this] { TcpPath::markBackground(m_socket->socketDescriptor()); });
    connect(m_socket, &QTcpSocket::readyRead, this, &BackgroundUpload::onReadyRead);
    connect(m_socket, &QTcpSocket::disconnected, this, &BackgroundUpload::onDisconnected);
    connect(m_socket, &QTcpSocket::errorOccurred, this, &BackgroundUpload::onSocketError);
    if (m_transferTimeout.interval() > 0)
        m_transferTimeout.start();

    if (m_route->encrypted)
        static_cast<QSslSocket *>(m_socket)->connectToHostEncrypted(m_route->host, m_route->port);
    else if (m_route->forwarded)
        m_socket->connectToHost(m_route->forwardProxy.hostName(), m_route->forwardProxy.port());
    else
        m_socket->connectToHost(m_route->host, m_route->port);
}

void BackgroundUpload::sendHead()
{
    if (m_done)
        return;
    m_connected = true;
    progressed();
    // The head goes whole, whatever the window: a server waits for it before anything else.
    m_socket->write(m_head);
    m_ticks.start();
    sendMore();
}

void BackgroundUpload::sendMore()
{
    if (m_done || !m_connected)
        return;
    const qint64 left = m_body.size() - m_bodyWritten;
    if (left <= 0) {
        m_ticks.stop();
        return;
    }
    const qint64 bytes = std::min({left, allowance(), largestWrite});
    if (bytes <= 0)
        return;
    m_socket->write(m_body.constData() + m_bodyWritten, bytes);
    m_bodyWritten += bytes;
}

qint64 BackgroundUpload::allowance()
{
    const UplinkGate *const gate = m_gate.data();
    const bool held = gate && gate->isHeld();
    const std::optional<qint64> inFlight = measure(held);
    if (held) {
        if (m_sinceTrickle.isValid() && !m_sinceTrickle.hasExpired(trickleInterval.count()))
            return 0;
        m_sinceTrickle.start();
        return trickleBytes;
    }
    const qint64 room = inFlight ? m_window->window() - *inFlight
                                 : unmeasuredBuffer - bufferedInProcess();
    // Nothing smaller than a segment (or a few kilobytes where segments are huge, as on
    // loopback), unless it is the last of the body: a window opened by a few bytes is better
    // filled on the next tick than in tiny packets now.
    return room >= std::min({m_segment, smallestWrite, m_body.size() - m_bodyWritten}) ? room : 0;
}

std::optional<qint64> BackgroundUpload::measure(bool held)
{
    const std::optional<TcpPath::Sample> sample =
        TcpPath::sample(m_socket->socketDescriptor(), m_handedOver);
    if (!sample)
        return std::nullopt;
    m_measured = true;
    if (sample->segmentBytes > 0)
        m_segment = sample->segmentBytes;
    const qint64 inFlight = sample->unacknowledgedBytes + bufferedInProcess();
    // Counted from the first look: what the system took before (a TLS handshake) is no part
    // of the body.
    const qint64 acknowledged = m_handedOver - sample->unacknowledgedBytes;
    if (!m_acknowledged)
        m_firstAcknowledged = acknowledged;
    const qint64 newlyAcknowledged =
        m_acknowledged ? std::max<qint64>(0, acknowledged - *m_acknowledged) : 0;
    m_acknowledged = std::max(acknowledged, m_acknowledged.value_or(acknowledged));
    const bool lossSeen = m_retransmissions && sample->retransmissions > *m_retransmissions;
    m_retransmissions = sample->retransmissions;
    if (newlyAcknowledged > 0)
        bodyMoved(*m_acknowledged - m_firstAcknowledged);

    // The queue a preview builds in front of the uplink is the preview's own business: the
    // round trips told while one holds the uplink, and until a window of the original's own
    // bytes has come back after it, say nothing of what the original may take.
    if (held) {
        m_settledFrom.reset();
        m_heldMeanwhile = true;
        return inFlight;
    }
    if (m_heldMeanwhile) {
        if (!m_settledFrom)
            m_settledFrom = *m_acknowledged + m_window->window();
        if (*m_acknowledged < *m_settledFrom)
            return inFlight;
        m_heldMeanwhile = false;
    }
    m_window->update({sample->roundTrip, newlyAcknowledged, inFlight, sample->segmentBytes,
                      lossSeen},
                     LedbatWindow::Clock::now());
    return inFlight;
}

qint64 BackgroundUpload::bufferedInProcess() const
{
    qint64 buffered = m_socket->bytesToWrite();
    if (const auto *secure = qobject_cast<const QSslSocket *>(m_socket))
        buffered += secure->encryptedBytesToWrite();
    return buffered;
}

void BackgroundUpload::onBytesHandedOver(qint64 bytes)
{
    m_handedOver += bytes;
    // Where the system cannot tell what was acknowledged, a byte taken is all there is to go by.
    if (!m_measured)
        bodyMoved(m_head.size() + m_bodyWritten - bufferedInProcess());
    sendMore();
}

void BackgroundUpload::bodyMoved(qint64 bytesFromStart)
{
    Q_EMIT uploadProgress(std::clamp<qint64>(bytesFromStart - m_head.size(), 0, m_body.size()),
                          m_body.size());
    progressed();
}

void BackgroundUpload::onReadyRead()
{
    if (m_done)
        return;
    const QByteArray bytes = m_socket->readAll();
    if (bytes.isEmpty())
        return;
    progressed();
    m_parser.feed(bytes);
    Q_EMIT downloadProgress(m_parser.bodySize(), m_parser.contentLength().value_or(-1));
    if (m_parser.isComplete()) {
        finishWithReply();
    } else if (m_parser.state() == HttpReplyParser::State::malformed) {
        // Like Qt's stack: what does not start as an HTTP reply is no reply at all.
        if (m_parser.status() == 0)
            finishUnanswered();
        else
            finishWithError(ProtocolFailure, QCoreApplication::translate("QHttp", "Data corrupted"));
    }
}

void BackgroundUpload::onDisconnected()
{
    if (m_done)
        return;
    onReadyRead();
    if (m_done)
        return;
    m_parser.connectionClosed();
    if (m_parser.isComplete())
        finishWithReply();
    else if (!m_parser.receivedAnything())
        finishUnanswered();
    else
        finishWithError(RemoteHostClosedError, connectionClosed());
}

void BackgroundUpload::onSocketError()
{
    if (m_done)
        return;
    // A server that answered early (a refusal before the whole body) and then closed may reset
    // the connection under the rest of the body: its answer still counts.
    onReadyRead();
    if (m_done)
        return;
    const QAbstractSocket::SocketError error = m_socket->error();
    if (error == QAbstractSocket::RemoteHostClosedError) {
        // Closed or reset by the peer: judged by what came before, as a close is.
        onDisconnected();
        return;
    }
    finishWithError(networkError(error), m_socket->errorString());
}

void BackgroundUpload::progressed()
{
    if (m_transferTimeout.interval() > 0 && !m_done)
        m_transferTimeout.start();
}

void BackgroundUpload::finishWithReply()
{
    // A forward proxy that wants credentials answers for itself, not for the store: as Qt's
    // stack reports it, a failure of the way there, which may pass.
    if (m_route && m_route->forwarded && m_parser.status() == 407) {
        finishWithError(ProxyAuthenticationRequiredError,
                        QCoreApplication::translate("QHttp", "Proxy requires authentication"));
        return;
    }
    m_replyBody = m_parser.body();
    setAttribute(QNetworkRequest::HttpStatusCodeAttribute, m_parser.status());
    for (const auto &[name, value] : m_parser.fields())
        setRawHeader(name, value);
    if (const std::optional<qint64> length = m_parser.contentLength())
        setHeader(QNetworkRequest::ContentLengthHeader, *length);
    releaseSocket();
    setFinished(true);
    Q_EMIT metaDataChanged();
    if (!m_replyBody.isEmpty())
        Q_EMIT readyRead();
    Q_EMIT finished();
}

void BackgroundUpload::finishUnanswered()
{
    m_closedUnanswered = true;
    finishWithError(RemoteHostClosedError, connectionClosed());
}

void BackgroundUpload::finishWithError(NetworkError code, const QString &text)
{
    if (m_done)
        return;
    releaseSocket();
    setError(code, text);
    setFinished(true);
    Q_EMIT errorOccurred(code);
    Q_EMIT finished();
}

void BackgroundUpload::releaseSocket()
{
    m_done = true;
    m_ticks.stop();
    m_transferTimeout.stop();
    if (m_socket) {
        m_socket->disconnect(this);
        m_socket->abort();
        m_socket->deleteLater();
        m_socket = nullptr;
    }
    m_body = QByteArray();
}

void BackgroundUpload::abort()
{
    if (!m_done)
        finishWithError(OperationCanceledError, operationCanceled());
}

qint64 BackgroundUpload::bytesAvailable() const
{
    return m_replyBody.size() - m_replyRead + QIODevice::bytesAvailable();
}

qint64 BackgroundUpload::readData(char *data, qint64 maxSize)
{
    const qint64 left = m_replyBody.size() - m_replyRead;
    if (left <= 0)
        return m_done ? -1 : 0;
    const qint64 count = std::min(left, maxSize);
    std::memcpy(data, m_replyBody.constData() + m_replyRead, size_t(count));
    m_replyRead += count;
    return count;
}

qint64 BackgroundUpload::writeData(const char *, qint64) { return -1; }
