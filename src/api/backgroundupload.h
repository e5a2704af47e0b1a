// SPDX-License-Identifier: MIT
#pragma once

#include "connectionroute.h"
#include "httpreplyparser.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QNetworkReply>
#include <QPointer>
#include <QTimer>

#include <chrono>
#include <memory>
#include <optional>

class LedbatWindow;
class QTcpSocket;
class UplinkGate;

// An upload of low priority (an original) on a connection of its own, sent so that it never
// stands in a preview's way. Qt's HTTP stack keeps its sockets to itself, and an original sent
// through it fills whatever queue the uplink has; here the program holds the socket and hands
// the system only as many bytes as LedbatWindow allows, measured against the connection's own
// round trip. While a preview holds the UplinkGate, nothing but a trickle goes out. The
// connection is marked for the system's background class where there is one.
//
// It is a QNetworkReply, so it is awaited, watched and given up like the replies of Qt's stack:
// one request, HTTP/1.1, "Connection: close", never sent a second time on its own, no redirect
// followed. The connection goes through the proxy the system names, as Qt's own would.
class BackgroundUpload : public QNetworkReply {
    Q_OBJECT
public:
    // Starts at once; `window` is the path's memory, shared with the uploads before and after.
    BackgroundUpload(const QNetworkRequest &request, QByteArray verb, QByteArray body,
                     std::shared_ptr<LedbatWindow> window, UplinkGate *gate,
                     QObject *parent = nullptr);
    ~BackgroundUpload() override;

    void abort() override;
    qint64 bytesAvailable() const override;
    bool isSequential() const override { return true; }

    // Whether the connection closed, or answered with something that is not HTTP, before a
    // single byte of a reply: the request may have done its work or not.
    bool closedUnanswered() const { return m_closedUnanswered; }

    // How often a tick looks at the connection while the body goes out.
    static constexpr std::chrono::milliseconds tick{10};
    // What goes out while a preview holds the uplink: enough that no server takes the
    // connection for idle and closes it, too little for any preview to notice.
    static constexpr qint64 trickleBytes = 1024;
    static constexpr std::chrono::milliseconds trickleInterval{500};

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *data, qint64 maxSize) override;

private:
    void start();
    void sendHead();
    void sendMore();
    // How many more bytes the socket may be given now.
    qint64 allowance();
    // Reads the connection's state off the system and tells the window; what is on its way,
    // or nothing where the system does not say.
    std::optional<qint64> measure(bool held);
    void onBytesHandedOver(qint64 bytes);
    // So many bytes of head and body are through: progress, for the caller and the timeout.
    void bodyMoved(qint64 bytesFromStart);
    void onReadyRead();
    void onDisconnected();
    void onSocketError();
    void progressed();
    void finishWithReply();
    void finishWithError(NetworkError code, const QString &text);
    void finishUnanswered();
    void releaseSocket();
    qint64 bufferedInProcess() const;

    QByteArray m_verb;
    QByteArray m_head;
    QByteArray m_body;
    qint64 m_bodyWritten = 0; // handed to the socket
    std::shared_ptr<LedbatWindow> m_window;
    QPointer<UplinkGate> m_gate;
    std::optional<ConnectionRoute> m_route;

    QTcpSocket *m_socket = nullptr;
    bool m_connected = false;
    qint64 m_handedOver = 0; // bytes the system took from the socket, TLS records included
    std::optional<qint64> m_acknowledged; // by the receiver, as the system counts
    qint64 m_firstAcknowledged = 0;
    std::optional<quint64> m_retransmissions;
    bool m_measured = false; // the system said something of the connection
    qint64 m_segment = 1448;
    bool m_heldMeanwhile = false;        // a preview held the uplink since the last update
    std::optional<qint64> m_settledFrom; // acknowledged bytes from which updates resume
    QElapsedTimer m_sinceTrickle;
    QTimer m_ticks;
    QTimer m_transferTimeout;

    HttpReplyParser m_parser;
    QByteArray m_replyBody;
    qint64 m_replyRead = 0;
    bool m_closedUnanswered = false;
    bool m_done = false;
};
