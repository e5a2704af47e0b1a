// SPDX-License-Identifier: MIT
// devservice's planned faults, tested from the outside over real sockets: each breaks exactly
// the call it names, as often as it says, and faults that cannot be are refused.
#include "servicewiretest.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTcpSocket>
#include <QTest>

#include <memory>

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

    void holdFaultAnswersOnceReleased() {
        const qint64 folderId = m_wire.openSession()["folder_id"].toInteger();
        QVERIFY(m_service.injectFault(DevService::Fault::withHold("presign")));
        QNetworkAccessManager network;
        QNetworkRequest request(QUrl(m_service.baseURL() + QStringLiteral("/%1/source_files/presign.json"
                                                                          "?filename=a.jpg&content_type=image%2Fjpeg")
                                                               .arg(folderId)));
        request.setRawHeader("Authorization", "Bearer " + m_wire.token());
        std::unique_ptr<QNetworkReply> held(network.get(request));
        // Recorded as soon as it arrives, then held for as long as the test likes.
        QTRY_COMPARE(m_service.requests("presign").size(), 1);
        QTest::qWait(300);
        QVERIFY(!held->isFinished());
        // The fault took one call: the next is answered at once.
        QCOMPARE(m_wire.presign(folderId).reply["bucket"].toString(), "quillmere-dev");
        QVERIFY(!held->isFinished());
        QVERIFY(m_service.releaseHeld());
        QTRY_VERIFY(held->isFinished());
        QCOMPARE(held->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 200);
        QCOMPARE(QJsonDocument::fromJson(held->readAll())["bucket"].toString(), "quillmere-dev");
    }

    void heldUploadIsRecordedWholeAndResetReleasesIt() {
        const ServiceWire::Grant grant = m_wire.presign(m_wire.openSession()["folder_id"].toInteger());
        QVERIFY(m_service.injectFault(DevService::Fault::withHold("upload")));
        const QByteArray boundary = ServiceWire::newBoundary();
        const QByteArray body = ServiceWire::formBody(boundary, grant.fields, "jpeg");
        QNetworkAccessManager network;
        QNetworkRequest request(QUrl(grant.reply["url"].toString()));
        request.setHeader(QNetworkRequest::ContentTypeHeader,
                          QByteArray("multipart/form-data; boundary=" + boundary));
        std::unique_ptr<QNetworkReply> held(network.post(request, body));
        QTRY_COMPARE(m_service.requests("upload").size(), 1);
        QCOMPARE(m_service.requests("upload").first().body, body);
        QTest::qWait(300);
        QVERIFY(!held->isFinished());
        // A reset leaves no call held behind it.
        QVERIFY(m_service.reset());
        QTRY_VERIFY(held->isFinished());
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
        row("an extra member", "presign", Kind::extraMember, "expires_in");
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
        if (kind == int(DevService::FaultKind::extraMember))
            QVERIFY(json["expires_in"].isObject() && json["key"].isString() && json["fields"].isObject());
    }

    void redirectFaultNamesTheOtherOriginByDefault() {
        const QString otherOrigin = m_service.otherOrigin();
        QVERIFY(otherOrigin.startsWith("http://127.0.0.1:") && otherOrigin != m_service.baseURL());
        QVERIFY(m_service.injectFault(DevService::Fault::withRedirect("presign", 307)));
        QVERIFY(m_service.injectFault(
            DevService::Fault::withRedirect("createSession", 301, "https://elsewhere.test/x")));
        const ServiceWire::Reply moved =
            m_wire.sendJson("POST", "/api/live/sessions", {{"name", "Ana"}});
        QCOMPARE(moved.status, 301);
        QCOMPARE(moved.location, "https://elsewhere.test/x");
        QCOMPARE(moved.body, QByteArray());
        const QString query = "filename=a.jpg&content_type=image%2Fjpeg";
        const ServiceWire::Reply presign = m_wire.presignReply(1001, query);
        QCOMPARE(presign.status, 307);
        QCOMPARE(presign.location, otherOrigin + "/1001/source_files/presign.json?" + query);
        const ServiceWire::Reply created =
            m_wire.sendJson("POST", "/api/live/sessions", {{"name", "Ana"}});
        QCOMPARE(created.status, 201); // each fault took its one call, and did nothing else
        QCOMPARE(m_service.requests("createSession").size(), 2);
        QCOMPARE(m_service.otherOriginRequests().size(), 0);

        QCOMPARE(planned({{"endpoint", "presign"}, {"kind", "redirect"}, {"status", 500}}), 400);
    }

    // The other origin is the same service and store on another port, and it records every
    // request that reaches it, routed or not.
    void otherOriginServesTheSameServiceAndRecordsEverything() {
        const QString otherOrigin = m_service.otherOrigin();
        const ServiceWire::Reply session = m_wire.send(
            "POST", otherOrigin + "/api/live/sessions", R"({"name":"Ana"})",
            {{"Content-Type", "application/json"}, {"Authorization", "Bearer " + m_wire.token()}});
        QCOMPARE(session.status, 201);
        QCOMPARE(m_wire.send("GET", otherOrigin + "/nowhere?x=1").status, 404);

        const QList<DevService::ReceivedRequest> arrived = m_service.otherOriginRequests();
        QCOMPARE(arrived.size(), 2);
        QCOMPARE(arrived[0].method, "POST");
        QCOMPARE(arrived[0].path, "/api/live/sessions");
        QCOMPARE(arrived[0].header("Authorization"), "Bearer " + m_wire.token());
        QCOMPARE(arrived[1].method, "GET");
        QCOMPARE(arrived[1].path, "/nowhere");
        QCOMPARE(arrived[1].rawQuery, "x=1");
        QCOMPARE(m_service.requests("createSession").size(), 1);
        QCOMPARE(m_wire.send("GET", otherOrigin + "/__admin/sessions").status, 404);

        QVERIFY(m_service.reset());
        QCOMPARE(m_service.otherOriginRequests().size(), 0);
    }

    void uploadElsewhereSendsTheUploadToTheOtherOrigin() {
        const qint64 folderId = m_wire.openSession()["folder_id"].toInteger();
        QVERIFY(m_service.injectFault(
            DevService::Fault::withBrokenReply("presign", DevService::FaultKind::uploadElsewhere)));
        const ServiceWire::Grant grant = m_wire.presign(folderId);
        QCOMPARE(grant.reply["method"].toString(), "PUT");
        const QString url = grant.reply["url"].toString();
        QCOMPARE(url, m_service.otherOrigin() + "/storage/upload");

        const QByteArray boundary = ServiceWire::newBoundary();
        const ServiceWire::Reply stored =
            m_wire.send("POST", url, ServiceWire::formBody(boundary, grant.fields, "jpeg"),
                        {{"Content-Type", "multipart/form-data; boundary=" + boundary}});
        QCOMPARE(stored.status, 204);
        QCOMPARE(m_service.storedObject(grant.key), QByteArray("jpeg"));
        QCOMPARE(m_service.otherOriginRequests().size(), 1);

        QCOMPARE(planned({{"endpoint", "createSession"}, {"kind", "upload_elsewhere"}}), 400);
    }

    void uploadFaultsAndImpossibleFaults() {
        const ServiceWire::Grant grant = m_wire.presign(m_wire.openSession()["folder_id"].toInteger());
        QVERIFY(m_service.injectFault(DevService::Fault::withStatus("upload", 500, "<Error/>")));
        const QByteArray boundary = ServiceWire::newBoundary();
        const QByteArray body = ServiceWire::formBody(boundary, grant.fields, "jpeg");
        QCOMPARE(m_wire.upload(grant, body, boundary).status, 500);
        QCOMPARE(m_service.storedObject(grant.key), std::nullopt);
        QCOMPARE(m_wire.upload(grant, body, boundary).status, 204);

        QCOMPARE(planned({{"endpoint", "upload"}, {"kind", "host_null"}}), 400);
        QCOMPARE(
            planned(
                {{"endpoint", "createSession"}, {"kind", "missing_member"}, {"member", "nope"}}),
            400);
        QCOMPARE(planned({{"endpoint", "nowhere"}, {"kind", "drop"}}), 400);
        QCOMPARE(planned({{"endpoint", "presign"}, {"kind", "extra_member"}, {"member", "key"}}), 400);
        QCOMPARE(planned({{"endpoint", "presign"}, {"kind", "extra_member"}, {"member", "fields.x"}}), 400);
        QCOMPARE(planned({{"endpoint", "upload"}, {"kind", "extra_member"}, {"member", "x"}}), 400);
    }

private:
    // The status with which devservice answers the planning of `fault`.
    int planned(const QJsonObject &fault) {
        return m_wire
            .send("POST", "/__admin/faults", QJsonDocument(fault).toJson(),
                  {{"Content-Type", "application/json"}})
            .status;
    }
};

QTEST_GUILESS_MAIN(DevServiceFaultsTest)
#include "tst_devservicefaults.moc"
