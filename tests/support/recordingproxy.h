// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QTcpServer>
#include <QUrl>

class QTcpSocket;

// A plain-HTTP forward proxy on loopback that writes down every request it is asked to
// forward. Qt never sends loopback addresses or "localhost" through a proxy, so the proxy
// serves the loopback service under a made-up name of its own: a request for
// http://NAME:PORT/... goes to 127.0.0.1:PORT, and addresses of 127.0.0.1 in the replies are
// handed back under NAME, so that the client, following them, comes back through the proxy.
// Nothing is resolved and nothing leaves the machine. One request per connection: each is
// forwarded with "Connection: close" and its reply relayed once the service has closed.
class RecordingProxy : public QObject {
    Q_OBJECT

public:
    struct Request {
        QByteArray method;
        QUrl url; // as the client asked for it, absolute
    };

    explicit RecordingProxy(QString servedName);
    ~RecordingProxy() override;

    // Listens on a free loopback port; false when it cannot.
    bool listen();
    // "http://127.0.0.1:PORT", as a proxy setting names it.
    QString address() const;
    // The requests the proxy was asked to forward, in the order they arrived.
    const QList<Request> &requests() const { return m_requests; }

private:
    void accept();
    // Whether `buffer` holds a whole request; forwards it when so.
    bool forwardIfWhole(QTcpSocket *client, const QByteArray &buffer);
    void relay(QTcpSocket *client, const QByteArray &head, const QByteArray &body, quint16 port);
    QByteArray servedUnderName(QByteArray reply) const;

    QTcpServer m_server;
    QString m_servedName;
    QList<Request> m_requests;
};
