// SPDX-License-Identifier: MIT
// devservice's planned faults, tested from the outside over real sockets: each breaks exactly
// the call it names, as often as it says, and faults that cannot be are refused.
#include "servicewiretest.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpSocket>
#include <QTest>

class DevServiceFaultsTest : public ServiceWireTest {
    Q_OBJECT

private slots:
    void statusFaultAnswersInsteadForItsCount() {
        QVERIFY(
            m_service.injectFault(DevService::Fault::withStatus("createSession", 503, "busy", 2)));
        for (int call = 0; call < 2; ++call) {
            const ServiceWire::Reply reply =
                m_wire.sendJson("POST", "/api/live/sessions", {{"name", "Ana"}});
            QCOMPARE(reply.status, 503);
            QCOMPARE(reply.body, "busy");
        }
        QCOMPARE(m_wire.sendJson("POST", "/api/live/sessions", {{"name", "Ana"}}).status, 201);
        QCOMPARE(m_service.requests("createSession").size(), 3);
    }

    void delayFaultAnswersLater() {
        const qint64 folderId = m_wire.openSession()["folder_id"].toInteger();
        QVERIFY(m_service.injectFault(DevService::Fault::withDelay("presign", 700)));
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(m_wire.presign(folderId).reply["bucket"].toString(), "quillmere-dev");
        QVERIFY2(timer.elapsed() >= 700, qPrintable(QString::number(timer.elapsed())));
    }

    void dropFaultClosesWithoutAWord() {
        QVERIFY(m_service.injectFault(DevService::Fault::withDrop("authenticate")));
        QTcpSocket socket;
        socket.connectToHost("127.0.0.1", m_service.port());
        QVERIFY(socket.waitForConnected(10000));
        socket.write("POST /api/live/sessions/authenticate HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                     "Content-Type: application/json\r\nContent-Length: " +
                     QByteArray::number(ServiceWire::demoSignIn.size()) + "\r\n\r\n" + ServiceWire::demoSignIn);
        QVERIFY(socket.waitForDisconnected(10000));
        QCOMPARE(socket.readAll(), QByteArray());
        QVERIFY(!m_service.demoToken().isEmpty()); // the fault took one call only
    }

    void replyFaultsBreakTheReplyOnly_data() {
        QTest::addColumn<QString>("endpoint");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("member");
        using Kind = DevService::FaultKind;
        const auto row = [](const char *name, const char *endpoint, Kind kind, const char *member) {
            QTest::newRow(name) << QString(endpoint) << int(kind) << QString(member);
        };
        row("malformed token", "authenticate", Kind::malformedJson, "");
        row("token missing", "authenticate", Kind::missingMember, "token");
        row("folder_id a string", "createSession", Kind::wrongType, "folder_id");
        row("slug missing", "createSession", Kind::missingMember, "slug");
        row("a field a number", "presign", Kind::wrongType, "fields.policy");
        row("host absent", "presign", Kind::hostAbsent, "");
        row("host null", "presign", Kind::hostNull, "");
        row("host empty", "presign", Kind::hostEmpty, "");
    }

    void replyFaultsBreakTheReplyOnly() {
        QFETCH(QString, endpoint);
        QFETCH(int, kind);
        QFETCH(QString, member);
        const qint64 folderId = m_wire.openSession()["folder_id"].toInteger();
        QVERIFY(m_service.injectFault(
            DevService::Fault::withBrokenReply(endpoint, DevService::FaultKind(kind), member)));
        const ServiceWire::Reply reply =
            endpoint == "authenticate" ? m_wire.send("POST", "/api/live/sessions/authenticate", ServiceWire::demoSignIn,
                                              {{"Content-Type", "application/json"}})
            : endpoint == "createSession"
                ? m_wire.sendJson("POST", "/api/live/sessions", {{"name", "Ana"}})
                : m_wire.presignReply(folderId, "filename=a.jpg&content_type=image%2Fjpeg");
        QCOMPARE(reply.status, endpoint == "createSession" ? 201 : 200);
        QJsonParseError error;
        const QJsonObject json = QJsonDocument::fromJson(reply.body, &error).object();
        QCOMPARE(error.error != QJsonParseError::NoError,
                 kind == int(DevService::FaultKind::malformedJson));
        if (member == "token")
            QCOMPARE(json, QJsonObject());
        if (member == "slug")
            QVERIFY(!json.contains("slug") && json.contains("folder_id"));
        if (member == "folder_id")
            QVERIFY(json[member].isString());
        if (member == "fields.policy")
            QVERIFY(json["fields"]["policy"].isDouble() && json["fields"]["key"].isString());
        if (kind == int(DevService::FaultKind::hostAbsent))
            QVERIFY(!json.contains("host") && json.contains("key"));
        if (kind == int(DevService::FaultKind::hostNull))
            QVERIFY(json["host"].isNull() && json.contains("host"));
        if (kind == int(DevService::FaultKind::hostEmpty))
            QCOMPARE(json["host"], QJsonValue(""));
    }

    void uploadFaultsAndImpossibleFaults() {
        const ServiceWire::Grant grant = m_wire.presign(m_wire.openSession()["folder_id"].toInteger());
        QVERIFY(m_service.injectFault(DevService::Fault::withStatus("upload", 500, "<Error/>")));
        const QByteArray boundary = ServiceWire::newBoundary();
        const QByteArray body = ServiceWire::formBody(boundary, grant.fields, "jpeg");
        QCOMPARE(m_wire.upload(grant, body, boundary).status, 500);
        QCOMPARE(m_service.storedObject(grant.key), std::nullopt);
        QCOMPARE(m_wire.upload(grant, body, boundary).status, 204);

        const auto refused = [&](const QJsonObject &fault) {
            return m_wire.send("POST", "/__admin/faults", QJsonDocument(fault).toJson(),
                        {{"Content-Type", "application/json"}})
                .status;
        };
        QCOMPARE(refused({{"endpoint", "upload"}, {"kind", "host_null"}}), 400);
        QCOMPARE(
            refused(
                {{"endpoint", "createSession"}, {"kind", "missing_member"}, {"member", "nope"}}),
            400);
        QCOMPARE(refused({{"endpoint", "nowhere"}, {"kind", "drop"}}), 400);
    }
};

QTEST_GUILESS_MAIN(DevServiceFaultsTest)
#include "tst_devservicefaults.moc"
