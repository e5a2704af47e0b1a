// SPDX-License-Identifier: MIT
#include "recordingproxy.h"

#include <QHostAddress>
#include <QTcpSocket>

#include <memory>

namespace {

constexpr QByteArrayView headEnd = "\r\n\r\n";

// The value of a header of a request or reply head, by name in any case.
QByteArray headerValue(const QByteArray &head, QByteArrayView name) {
    for (const QByteArray &line : head.split('\n')) {
        const qsizetype colon = line.indexOf(':');
        if (colon > 0 && line.left(colon).trimmed().compare(name, Qt::CaseInsensitive) == 0)
            return line.mid(colon + 1).trimmed();
    }
    return {};
}

void answer(QTcpSocket *client, QByteArrayView status) {
    client->write("HTTP/1.1 " + status.toByteArray() +
                  "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    client->disconnectFromHost();
}

} // namespace

RecordingProxy::RecordingProxy(QString servedName) : m_servedName(std::move(servedName)) {
    connect(&m_server, &QTcpServer::newConnection, this, &RecordingProxy::accept);
}

RecordingProxy::~RecordingProxy() = default;

bool RecordingProxy::listen() {
    return m_server.listen(QHostAddress::LocalHost);
}

QString RecordingProxy::address() const {
    return QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort());
}

void RecordingProxy::accept() {
    while (QTcpSocket *client = m_server.nextPendingConnection()) {
        connect(client, &QTcpSocket::disconnected, client, &QObject::deleteLater);
        auto buffer = std::make_shared<QByteArray>();
        auto forwarded = std::make_shared<bool>(false);
        connect(client, &QTcpSocket::readyRead, client, [this, client, buffer, forwarded] {
            buffer->append(client->readAll());
            if (!*forwarded)
                *forwarded = forwardIfWhole(client, *buffer);
        });
    }
}

bool RecordingProxy::forwardIfWhole(QTcpSocket *client, const QByteArray &buffer) {
    const qsizetype end = buffer.indexOf(headEnd);
    if (end < 0)
        return false;
    const QByteArray head = buffer.left(end);
    const qsizetype length = headerValue(head, "Content-Length").toLongLong();
    if (buffer.size() < end + headEnd.size() + length)
        return false;

    const QList<QByteArray> requestLine = head.left(head.indexOf("\r\n")).split(' ');
    Request request;
    request.method = requestLine.value(0);
    request.url = QUrl::fromEncoded(requestLine.value(1));
    m_requests.append(request);
    // Only the served name, over plain HTTP: anything else would have to leave this machine.
    if (request.method == "CONNECT" || request.url.scheme() != QLatin1String("http") ||
        request.url.host() != m_servedName || request.url.port() <= 0) {
        answer(client, "502 Bad Gateway");
        return true;
    }
    relay(client, head, buffer.mid(end + headEnd.size(), length),
          static_cast<quint16>(request.url.port()));
    return true;
}

void RecordingProxy::relay(QTcpSocket *client, const QByteArray &head, const QByteArray &body,
                           quint16 port) {
    const QList<QByteArray> lines = head.split('\n');
    const QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
    const QUrl url = QUrl::fromEncoded(requestLine.value(1));
    QByteArray forwarded = requestLine.value(0) + ' ' +
                           url.toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority) + ' ' +
                           requestLine.value(2) + "\r\n";
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QByteArray line = lines[i].trimmed();
        const QByteArray name = line.left(line.indexOf(':')).toLower();
        if (name != "connection" && name != "proxy-connection" && name != "keep-alive")
            forwarded += line + "\r\n";
    }
    forwarded += "Connection: close\r\n\r\n" + body;

    auto *service = new QTcpSocket(client);
    auto reply = std::make_shared<QByteArray>();
    connect(service, &QTcpSocket::connected, service, [service, forwarded] {
        service->write(forwarded);
    });
    connect(service, &QTcpSocket::readyRead, service,
            [service, reply] { reply->append(service->readAll()); });
    connect(service, &QTcpSocket::disconnected, client, [this, service, client, reply] {
        reply->append(service->readAll());
        client->write(servedUnderName(*reply));
        client->disconnectFromHost();
    });
    connect(service, &QTcpSocket::errorOccurred, client,
            [service, client](QAbstractSocket::SocketError error) {
                if (error != QAbstractSocket::RemoteHostClosedError &&
                    service->state() != QAbstractSocket::ConnectedState)
                    answer(client, "502 Bad Gateway");
            });
    service->connectToHost(QHostAddress::LocalHost, port);
}

QByteArray RecordingProxy::servedUnderName(QByteArray reply) const {
    const qsizetype end = reply.indexOf(headEnd);
    if (end < 0)
        return reply;
    QByteArray head = reply.left(end);
    QByteArray body = reply.mid(end + headEnd.size());
    const QByteArray oldLength = headerValue(head, "Content-Length");
    body.replace("http://127.0.0.1:", "http://" + m_servedName.toUtf8() + ':');
    if (!oldLength.isNull())
        head.replace("Content-Length: " + oldLength,
                     "Content-Length: " + QByteArray::number(body.size()));
    return head + headEnd.toByteArray() + body;
}
