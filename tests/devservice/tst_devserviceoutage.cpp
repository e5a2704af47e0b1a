// SPDX-License-Identifier: MIT
// devservice's outages, tested from the outside over real sockets: a refused call has its
// connection reset before a reply byte, a swallowed one is held without a reply and closed when
// the outage ends, neither is recorded or done, and the admin API answers all along, however
// many calls are held.
#include "servicewiretest.h"

#include <QHostAddress>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTcpSocket>
#include <QTest>
#include <QUrl>
#include <memory>
#include <vector>

namespace {

constexpr int longOutageMs = 600000; // outlasts any test, which ends it itself
constexpr int shortOutageMs = 300;
constexpr int eventTimeoutMs = 30000;

// A request as it goes on the wire, with a body when one is given.
QByteArray requestText(const QByteArray &method, const QString &target, const QByteArray &token,
                       const QByteArray &body = {}) {
    QByteArray text = method + ' ' + target.toUtf8() + " HTTP/1.1\r\nHost: 127.0.0.1\r\n";
    if (!token.isEmpty())
        text += "Authorization: Bearer " + token + "\r\n";
    if (!body.isEmpty())
        text +=
            "Content-Type: application/json\r\nContent-Length: " + QByteArray::number(body.size()) +
            "\r\n";
    return text + "\r\n" + body;
}

// A call on a connection of its own, so that no client library's resending stands between
// the test and what the service does with it. Null when it could not be sent.
std::unique_ptr<QTcpSocket> rawCall(quint16 port, const QByteArray &request) {
    auto socket = std::make_unique<QTcpSocket>();
    socket->connectToHost(QHostAddress::LocalHost, port);
    if (!socket->waitForConnected(eventTimeoutMs))
        return nullptr;
    socket->write(request);
    if (!socket->waitForBytesWritten(eventTimeoutMs) && socket->bytesToWrite() > 0)
        return nullptr;
    return socket;
}

// True once the service has closed the connection without sending a single byte on it.
bool closedWithoutAByte(QTcpSocket &socket) {
    if (socket.state() != QAbstractSocket::UnconnectedState &&
        !socket.waitForDisconnected(eventTimeoutMs))
        return false;
    return socket.readAll().isEmpty();
}

} // namespace

class DevServiceOutageTest : public ServiceWireTest {
    Q_OBJECT

private slots:
    void refusedCallsAreResetUnrecordedAndCounted() {
        const qint64 folderId = m_wire.openSession()["folder_id"].toInteger();
        QVERIFY(m_service.startOutage(DevService::OutageMode::refuse, longOutageMs));

        // What a client library sees: a transport error, not an HTTP status.
        const ServiceWire::Reply refused = m_wire.presignReply(folderId, presignQuery);
        QCOMPARE(refused.status, 0);
        QVERIFY2(refused.error > QNetworkReply::NoError &&
                     refused.error < QNetworkReply::ContentAccessDenied,
                 qPrintable(QString::number(refused.error)));
        // Qt resends a request whose connection closed before any reply, so it may have been
        // refused more than once.
        const int refusedSoFar = m_service.outage().refused;
        QVERIFY(refusedSoFar >= 1);

        // On the wire, on either origin: the connection ends without a byte.
        for (const quint16 port : {m_service.port(), otherPort()}) {
            const std::unique_ptr<QTcpSocket> socket = rawCall(port, presignRequest(folderId));
            QVERIFY(socket);
            QVERIFY(closedWithoutAByte(*socket));
        }
        const DevService::OutageCounts counts = m_service.outage();
        QVERIFY(counts.active);
        QCOMPARE(counts.refused, refusedSoFar + 2);
        QCOMPARE(counts.hung, 0);
        QCOMPARE(m_service.requests("presign").size(), 0);
        QCOMPARE(m_service.otherOriginRequests().size(), 0);

        QVERIFY(m_service.endOutage());
        QVERIFY(!m_service.outage().active);
        QCOMPARE(m_wire.presignReply(folderId, presignQuery).status, 200);
        QCOMPARE(m_service.requests("presign").size(), 1);
    }

    void refusalEndsByItself() {
        QVERIFY(m_service.startOutage(DevService::OutageMode::refuse, longOutageMs));
        const std::unique_ptr<QTcpSocket> socket = rawCall(m_service.port(), signInRequest());
        QVERIFY(socket);
        QVERIFY(closedWithoutAByte(*socket));
        // A short one in its place, left to run out.
        QVERIFY(m_service.startOutage(DevService::OutageMode::refuse, shortOutageMs));
        QTRY_VERIFY_WITH_TIMEOUT(!m_service.outage().active, eventTimeoutMs);
        QVERIFY(!m_service.demoToken().isEmpty());
        QCOMPARE(m_service.outage().refused, 1);
        QCOMPARE(m_service.requests("authenticate").size(), 2); // init()'s sign-in, and this one
    }

    void hungCallsGetNoReplyAndNoWork() {
        const qint64 folderId = m_wire.openSession()["folder_id"].toInteger();
        const ServiceWire::Grant grant = m_wire.presign(folderId);
        const QByteArray boundary = ServiceWire::newBoundary();
        QCOMPARE(
            m_wire.upload(grant, ServiceWire::formBody(boundary, grant.fields, "jpeg"), boundary)
                .status,
            204);
        const QJsonObject file{
            {"url", "https://" + m_service.storageHost() + "/quillmere-dev/" + grant.key},
            {"key", grant.key},
            {"bucket", "quillmere-dev"},
            {"created_at", "2026-03-14T09:26:53Z"}};
        const QByteArray registration =
            QJsonDocument(QJsonObject{{"source_file", file}}).toJson(QJsonDocument::Compact);
        QVERIFY(m_service.startOutage(DevService::OutageMode::hang, longOutageMs));

        const std::unique_ptr<QTcpSocket> presign =
            rawCall(m_service.port(), presignRequest(folderId));
        const std::unique_ptr<QTcpSocket> registered =
            rawCall(m_service.port(),
                    requestText("POST", QStringLiteral("/%1/source_files.json").arg(folderId),
                                m_wire.token(), registration));
        QVERIFY(presign && registered);
        QNetworkAccessManager network;
        QNetworkRequest sessionRequest(QUrl(m_service.baseURL() + "/api/live/sessions"));
        sessionRequest.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
        sessionRequest.setRawHeader("Authorization", "Bearer " + m_wire.token());
        const std::unique_ptr<QNetworkReply> session(
            network.post(sessionRequest, QByteArray(R"({"name":"Ana"})")));

        // The admin API answers while they are held.
        QTRY_COMPARE_WITH_TIMEOUT(m_service.outage().hung, 3, eventTimeoutMs);
        QCOMPARE(m_service.sessions().size(), 1);
        QVERIFY(!presign->waitForReadyRead(300));
        QCOMPARE(presign->state(), QAbstractSocket::ConnectedState);
        QCOMPARE(registered->state(), QAbstractSocket::ConnectedState);
        QVERIFY(!session->isFinished());

        // Qt would send the call again once its connection closes, and then reach the service:
        // the client gives up on it first.
        session->abort();

        QVERIFY(m_service.endOutage());
        QVERIFY(closedWithoutAByte(*presign));
        QVERIFY(closedWithoutAByte(*registered));

        // None of them reached the service, and none of their work was done.
        QCOMPARE(m_service.requests("presign").size(), 1);
        QCOMPARE(m_service.requests("register").size(), 0);
        QCOMPARE(m_service.requests("createSession").size(), 1);
        QCOMPARE(m_service.sessions().size(), 1);
        QCOMPARE(m_service.registeredFiles(folderId).size(), 0);
        // The registration was a good one: once the service is back, it is taken.
        const ServiceWire::Reply accepted = m_wire.send(
            "POST", QStringLiteral("/%1/source_files.json").arg(folderId), registration,
            {{"Content-Type", "application/json"}, {"Authorization", "Bearer " + m_wire.token()}});
        QCOMPARE(accepted.status, 201);
        QCOMPARE(m_service.registeredFiles(folderId).size(), 1);
    }

    void hangEndsByItself() {
        QVERIFY(m_service.startOutage(DevService::OutageMode::hang, longOutageMs));
        const std::unique_ptr<QTcpSocket> socket = rawCall(otherPort(), signInRequest());
        QVERIFY(socket);
        QTRY_COMPARE_WITH_TIMEOUT(m_service.outage().hung, 1, eventTimeoutMs);
        // A short one in its place, left to run out: the call it holds goes with it.
        QVERIFY(m_service.startOutage(DevService::OutageMode::hang, shortOutageMs));
        QVERIFY(closedWithoutAByte(*socket));
        QTRY_VERIFY_WITH_TIMEOUT(!m_service.outage().active, eventTimeoutMs);
        QCOMPARE(m_service.otherOriginRequests().size(), 0);
        QCOMPARE(m_service.requests("authenticate").size(), 1);
        QVERIFY(!m_service.demoToken().isEmpty());
    }

    // More held calls than either port has worker threads (48 and 8).
    void dozensOfHungCallsLeaveTheAdminApiFree() {
        QVERIFY(m_service.startOutage(DevService::OutageMode::hang, longOutageMs));
        std::vector<std::unique_ptr<QTcpSocket>> held;
        for (int i = 0; i < 72; ++i) {
            held.push_back(rawCall(i < 60 ? m_service.port() : otherPort(), signInRequest()));
            QVERIFY(held.back());
        }
        QTRY_COMPARE_WITH_TIMEOUT(m_service.outage().hung, 72, eventTimeoutMs);
        // A new connection to the admin API still finds a thread to serve it.
        QNetworkAccessManager fresh;
        const ServiceWire::Reply status = m_wire.send("GET", "/__admin/outage", {}, {}, &fresh);
        QCOMPARE(status.status, 200);
        QCOMPARE(status.json()["hung"].toInt(), 72);
        QCOMPARE(m_service.requests("authenticate").size(), 1);
        for (const auto &socket : held)
            QCOMPARE(socket->state(), QAbstractSocket::ConnectedState);

        QVERIFY(m_service.endOutage());
        for (const auto &socket : held)
            QVERIFY(closedWithoutAByte(*socket));
        QCOMPARE(m_service.requests("authenticate").size(), 1);
        QVERIFY(!m_service.demoToken().isEmpty());
    }

    void resetEndsTheOutageAndZeroesTheCounts() {
        QVERIFY(m_service.startOutage(DevService::OutageMode::hang, longOutageMs));
        const std::unique_ptr<QTcpSocket> socket = rawCall(m_service.port(), signInRequest());
        QVERIFY(socket);
        QTRY_COMPARE_WITH_TIMEOUT(m_service.outage().hung, 1, eventTimeoutMs);
        QVERIFY(m_service.reset());
        QVERIFY(closedWithoutAByte(*socket));
        const DevService::OutageCounts counts = m_service.outage();
        QVERIFY(!counts.active);
        QCOMPARE(counts.refused, 0);
        QCOMPARE(counts.hung, 0);
    }

    void outageAdminApi() {
        const ServiceWire::Reply started = admin("POST", R"({"mode":"hang","duration_ms":60000})");
        QCOMPARE(started.status, 201);
        QCOMPARE(started.json(), (QJsonObject{{"mode", "hang"}, {"duration_ms", 60000}}));
        const QJsonObject status = admin("GET").json();
        QCOMPARE(status.keys(), (QStringList{"active", "hung", "mode", "refused", "remaining_ms"}));
        QCOMPARE(status["active"], QJsonValue(true));
        QCOMPARE(status["mode"], QJsonValue("hang"));
        const qint64 remaining = status["remaining_ms"].toInteger();
        QVERIFY2(remaining > 0 && remaining <= 60000, qPrintable(QString::number(remaining)));
        const QJsonObject ended = admin("DELETE").json();
        QCOMPARE(ended["active"], QJsonValue(false));
        QCOMPARE(ended["mode"], QJsonValue("none"));
        QCOMPARE(ended["remaining_ms"], QJsonValue(0));

        for (const char *wrong :
             {R"({"mode":"off","duration_ms":100})", R"({"mode":"hang","duration_ms":-1})",
              R"({"mode":"hang"})", R"({"duration_ms":100})",
              R"({"mode":"refuse","duration_ms":100,"port":1})",
              R"({"mode":"refuse","duration_ms":"100"})", R"({"mode":"refuse","duration_ms":1.5})",
              R"({"mode":"refuse","duration_ms":86400001})", "[]", "not json"})
            QVERIFY2(admin("POST", wrong).status == 400, wrong);
        QVERIFY(!m_service.outage().active);
    }

private:
    static constexpr const char *presignQuery = "filename=a.jpg&content_type=image%2Fjpeg";

    quint16 otherPort() { return static_cast<quint16>(QUrl(m_service.otherOrigin()).port()); }

    QByteArray presignRequest(qint64 folderId) const {
        return requestText(
            "GET",
            QStringLiteral("/%1/source_files/presign.json?%2").arg(folderId).arg(presignQuery),
            m_wire.token());
    }

    static QByteArray signInRequest() {
        return requestText("POST", "/api/live/sessions/authenticate", {}, ServiceWire::demoSignIn);
    }

    ServiceWire::Reply admin(const QByteArray &verb, const QByteArray &body = {}) {
        return m_wire.send(verb, "/__admin/outage", body, {{"Content-Type", "application/json"}});
    }
};

QTEST_GUILESS_MAIN(DevServiceOutageTest)
#include "tst_devserviceoutage.moc"
