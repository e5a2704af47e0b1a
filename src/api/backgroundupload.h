// SPDX-License-Identifier: MIT
#pragma once

#include "bodyreader.h"
#include "connectionroute.h"
#include "httpreplyparser.h"
#include "uplinkpacer.h"

#include <QByteArray>
#include <QNetworkReply>
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
// the system only as many bytes as the UplinkPacer allows, from the path's LedbatWindow and the
// connection's own round trip, and nothing but a trickle while a preview holds the UplinkGate.
// The connection is marked for the system's background class where there is one.
//
// It is a QNetworkReply, so it is awaited, watched and given up like the replies of Qt's stack:
// one request, HTTP/1.1, "Connection: close", never sent a second time on its own, no redirect
// followed. The connection goes through the proxy the system names, as Qt's own would. The
// body is read as it goes out, a file's straight from the file, a window's worth at a time; a
// file that fails or comes up short ends the upload with an error, never with other bytes than
// the length announced.
class BackgroundUpload : public QNetworkReply {
    Q_OBJECT
public:
    // Starts at once; `window` is the path's memory, shared with the uploads before and after.
    BackgroundUpload(const QNetworkRequest &request, QByteArray verb, BodyReader body,
                     std::shared_ptr<LedbatWindow> window, UplinkGate *gate,
                     QObject *parent = nullptr);
    ~BackgroundUpload() override;

    void abort() override;
    qint64 bytesAvailable() const override;
    bool isSequential() const override { return true; }

    // Whether the connection closed, or answered with something that is not HTTP, before a
    // single byte of a reply: the request may have done its work or not.
    bool closedUnanswered() const { return m_closedUnanswered; }
    // Whether the body's file failed while it was read.
    bool readFailed() const { return m_readFailed; }

    // How often a tick looks at the connection while the body goes out.
    static constexpr std::chrono::milliseconds tick{10};

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *data, qint64 maxSize) override;

private:
    void start();
    void sendHead();
    void sendMore();
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
    BodyReader m_body;
    qint64 m_bodySize = 0;
    qint64 m_bodyWritten = 0; // handed to the socket
    QByteArray m_chunk;       // the piece of the body on its way to the socket
    UplinkPacer m_pacer;
    std::optional<ConnectionRoute> m_route;

    QTcpSocket *m_socket = nullptr;
    bool m_connected = false;
    QTimer m_ticks;
    QTimer m_transferTimeout;

    HttpReplyParser m_parser;
    QByteArray m_replyBody;
    qint64 m_replyRead = 0;
    bool m_closedUnanswered = false;
    bool m_readFailed = false;
    bool m_done = false;
};
