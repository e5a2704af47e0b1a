// SPDX-License-Identifier: MIT
#include "backgroundupload.h"

#include "tcppath.h"
#include "uplinkgate.h"

#include <QCoreApplication>
#include <QSslSocket>
#include <QTcpSocket>

#include <algorithm>
#include <cstring>

namespace {

// At most this much is given to the socket at once, however large the window.
constexpr qint64 largestWrite = 4 * 1024 * 1024;

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

} // namespace

BackgroundUpload::BackgroundUpload(const QNetworkRequest &request, QByteArray verb,
                                   BodyReader body, std::shared_ptr<LedbatWindow> window,
                                   UplinkGate *gate, QObject *parent)
    : QNetworkReply(parent)
    , m_verb(std::move(verb))
    , m_body(std::move(body))
    , m_bodySize(m_body.size())
    , m_pacer(std::move(window), gate)
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
    if (gate)
        connect(gate, &UplinkGate::opened, this, &BackgroundUpload::sendMore);
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
    m_head = m_route->requestHead(request(), m_verb, m_bodySize);

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
    const qint64 left = m_bodySize - m_bodyWritten;
    if (left <= 0) {
        m_ticks.stop();
        return;
    }
    const qint64 acknowledgedBefore = m_pacer.acknowledged();
    const qint64 bytes = std::min(
        {left, m_pacer.allowance(m_socket->socketDescriptor(), bufferedInProcess(), left),
         largestWrite});
    if (m_pacer.acknowledged() > acknowledgedBefore)
        bodyMoved(m_pacer.acknowledged());
    if (bytes <= 0)
        return;
    m_chunk.resize(bytes);
    if (m_body.read(m_chunk.data(), bytes) != bytes) {
        // The server has part of a body that will never be whole: the connection goes, and
        // the server drops what came of the file. The caller tells the photographer of the
        // file, not of this reply.
        m_readFailed = true;
        finishWithError(UnknownContentError, QStringLiteral("Read error: ") + m_body.filePath());
        return;
    }
    m_socket->write(m_chunk.constData(), bytes);
    m_bodyWritten += bytes;
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
    m_pacer.handedOver(bytes);
    if (!m_pacer.measures())
        bodyMoved(m_head.size() + m_bodyWritten - bufferedInProcess());
    sendMore();
}

void BackgroundUpload::bodyMoved(qint64 bytesFromStart)
{
    Q_EMIT uploadProgress(std::clamp<qint64>(bytesFromStart - m_head.size(), 0, m_bodySize),
                          m_bodySize);
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
    m_body = BodyReader();
    m_chunk = QByteArray();
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
