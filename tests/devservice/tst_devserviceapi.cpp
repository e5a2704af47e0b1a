// SPDX-License-Identifier: MIT
// devservice is the peer every client test leans on, so it is tested from the outside, over
// real sockets, the way a client meets it: here its service API and gallery.
#include "servicewiretest.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QSslConfiguration>
#include <QTcpSocket>
#include <QTest>

class DevServiceApiTest : public ServiceWireTest {
    Q_OBJECT

private slots:
    void signInRefusesWhatAStrictServiceRefuses_data() {
        QTest::addColumn<QByteArray>("contentType");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<int>("status");
        const QByteArray json = "application/json";
        QTest::newRow("right") << json << ServiceWire::demoSignIn << 200;
        QTest::newRow("wrong password")
            << json << QByteArray(R"({"email":"demo@quillmere.test","password":"demo12345"})")
            << 401;
        QTest::newRow("e-mail in capitals")
            << json << QByteArray(R"({"email":"DEMO@quillmere.test","password":"demo1234"})")
            << 401;
        QTest::newRow("password a number")
            << json << QByteArray(R"({"email":"demo@quillmere.test","password":1234})") << 422;
        QTest::newRow("password missing")
            << json << QByteArray(R"({"email":"demo@quillmere.test"})") << 422;
        QTest::newRow("not JSON") << json << QByteArray(R"({"email":)") << 400;
        QTest::newRow("not declared JSON") << QByteArray("text/plain") << ServiceWire::demoSignIn << 415;
    }

    void signInRefusesWhatAStrictServiceRefuses() {
        QFETCH(QByteArray, contentType);
        QFETCH(QByteArray, body);
        QFETCH(int, status);
        const ServiceWire::Reply reply =
            m_wire.send("POST", "/api/live/sessions/authenticate", body, {{"Content-Type", contentType}});
        QCOMPARE(reply.status, status);
        QCOMPARE(reply.json()["token"].isString(), status == 200);
    }

    void serviceCallsNeedAnIssuedToken_data() {
        QTest::addColumn<QByteArray>("authorization");
        QTest::newRow("none") << QByteArray();
        QTest::newRow("unknown token") << QByteArray("Bearer 0123456789abcdef");
        QTest::newRow("no scheme") << QByteArray("TOKEN");
        QTest::newRow("lower-case scheme") << QByteArray("bearer TOKEN");
        QTest::newRow("two spaces") << QByteArray("Bearer  TOKEN");
    }

    void serviceCallsNeedAnIssuedToken() {
        QFETCH(QByteArray, authorization);
        authorization.replace("TOKEN", m_wire.token());
        QVERIFY(m_service.setNextFolderId(5000));
        ServiceWire::Headers headers{{"Content-Type", "application/json"}};
        if (!authorization.isEmpty())
            headers.append({"Authorization", authorization});
        QCOMPARE(m_wire.send("POST", "/api/live/sessions", R"({"name":"Ana"})", headers).status, 401);
        // The refused call opened nothing: the next session still gets the first id.
        QCOMPARE(m_wire.openSession()["folder_id"].toInteger(), 5000);
    }

    void sessionsOpenAndEnd() {
        QVERIFY(m_service.setNextFolderId(9007199254740993)); // 2^53 + 1: no double holds it
        const ServiceWire::Reply created =
            m_wire.sendJson("POST", "/api/live/sessions", {{"name", "Ana"}});
        QCOMPARE(created.status, 201);
        QVERIFY2(created.body.contains("\"folder_id\":9007199254740993"), created.body);
        const QJsonObject session = created.json();
        const QString slug = session["slug"].toString();
        QCOMPARE(session["live_url"].toString(), m_service.baseURL() + "/live/" + slug);
        QCOMPARE(session["gallery_url"].toString(), m_service.baseURL() + "/gallery/" + slug);
        QCOMPARE(m_wire.sendJson("POST", "/api/live/sessions", {{"name", 42}}).status, 422);
        QCOMPARE(m_wire.sendJson("POST", "/api/live/sessions", {{"name", "Ana"}, {"extra", "x"}})
                     .status,
                 422);

        const ServiceWire::Headers bearer{{"Authorization", "Bearer " + m_wire.token()}};
        QCOMPARE(m_wire.send("DELETE", "/api/live/sessions/" + slug, {}, bearer).status, 200);
        QCOMPARE(m_wire.send("DELETE", "/api/live/sessions/no-such-session", {}, bearer).status, 404);
        const auto ends = m_service.requests("endSession");
        QCOMPARE(ends.size(), 2);
        QCOMPARE(ends[0].method, QByteArray("DELETE"));
        QCOMPARE(ends[0].path, "/api/live/sessions/" + slug);
        QCOMPARE(ends[0].header("authorization"), "Bearer " + m_wire.token());
    }

    void presignWantsExactlyItsTwoQueryItems_data() {
        QTest::addColumn<QString>("query");
        QTest::addColumn<int>("status");
        QTest::newRow("both") << QString("filename=a.jpg&content_type=image%2Fjpeg") << 200;
        QTest::newRow("other order") << QString("content_type=image%2Fjpeg&filename=a.jpg") << 200;
        QTest::newRow("no content type") << QString("filename=a.jpg") << 422;
        QTest::newRow("empty filename") << QString("filename=&content_type=image%2Fjpeg") << 422;
        QTest::newRow("filename twice")
            << QString("filename=a.jpg&filename=b.jpg&content_type=image%2Fjpeg") << 422;
        QTest::newRow("a third item")
            << QString("filename=a.jpg&content_type=image%2Fjpeg&x=1") << 422;
    }

    void presignWantsExactlyItsTwoQueryItems() {
        QFETCH(QString, query);
        QFETCH(int, status);
        const qint64 folderId = m_wire.openSession()["folder_id"].toInteger();
        QCOMPARE(m_wire.presignReply(folderId, query).status, status);
        QCOMPARE(m_wire.presignReply(folderId + 1, query).status, 404);
    }

    void presignRecordsTheQueryAsSentAndDecoded() {
        const qint64 folderId = m_wire.openSession()["folder_id"].toInteger();
        const QString filename = QStringLiteral("preview_Ana & Luis ñ+1.jpg");
        const ServiceWire::Grant grant = m_wire.presign(folderId, filename);
        QVERIFY(grant.key.startsWith(QStringLiteral("live/%1/").arg(folderId)));
        QVERIFY(grant.key.endsWith('/' + filename));
        QCOMPARE(grant.reply["method"].toString(), "POST");
        QCOMPARE(grant.reply["url"].toString(), m_service.baseURL() + "/storage/upload");
        QCOMPARE(grant.reply["bucket"].toString(), "quillmere-dev");
        QCOMPARE(grant.reply["host"].toString(), m_service.storageHost());
        for (const char *field : {"key", "policy", "x-amz-algorithm", "x-amz-credential",
                                  "x-amz-date", "x-amz-signature"})
            QVERIFY2(!grant.reply["fields"][field].toString().isEmpty(), field);

        QCOMPARE(m_wire.presignReply(folderId, "filename=a+b.jpg&content_type=image%2Fjpeg").status, 200);
        const auto presigns = m_service.requests("presign");
        QCOMPARE(presigns.size(), 2);
        QCOMPARE(presigns[0].rawQuery,
                 "filename=" + QString::fromLatin1(QUrl::toPercentEncoding(filename)) +
                     "&content_type=image%2Fjpeg");
        QCOMPARE(presigns[0].query,
                 (ServiceWire::Fields{{"filename", filename}, {"content_type", "image/jpeg"}}));
        QCOMPARE(presigns[1].query.first().second, "a b.jpg"); // '+' is a space, as in forms
    }

    void registrationNeedsAStoredPresignedKey() {
        const qint64 folderId = m_wire.openSession()["folder_id"].toInteger();
        const ServiceWire::Grant grant = m_wire.presign(folderId);
        QJsonObject file{{"url", "https://x/quillmere-dev/" + grant.key},
                         {"key", grant.key},
                         {"bucket", "quillmere-dev"},
                         {"created_at", "2026-03-14T09:26:53Z"}};
        const QString path = QStringLiteral("/%1/source_files.json").arg(folderId);
        QCOMPARE(m_wire.sendJson("POST", path, {{"source_file", file}}).status,
                 422); // not stored yet

        const QByteArray boundary = ServiceWire::newBoundary();
        QCOMPARE(m_wire.upload(grant, ServiceWire::formBody(boundary, grant.fields, "jpeg"), boundary).status, 204);
        QCOMPARE(m_wire.sendJson("POST", path, file).status, 422); // members not nested
        const auto refusedWith = [&](const char *member, const QJsonValue &value) {
            QJsonObject changed = file;
            changed[member] = value;
            return m_wire.sendJson("POST", path, {{"source_file", changed}}).status;
        };
        QCOMPARE(refusedWith("created_at", "2026-03-14T09:26:53.000Z"), 422);
        QCOMPARE(refusedWith("created_at", "2026-03-14 09:26:53Z"), 422);
        QCOMPARE(refusedWith("key", 7), 422);
        QCOMPARE(refusedWith("key", "live/1/other.jpg"), 422);
        QCOMPARE(refusedWith("bucket", "other"), 422);
        QCOMPARE(m_wire.sendJson("POST", QStringLiteral("/%1/source_files.json").arg(folderId + 1),
                          {{"source_file", file}})
                     .status,
                 404);
        QVERIFY(m_service.registeredFiles(folderId).isEmpty());

        QCOMPARE(m_wire.sendJson("POST", path, {{"source_file", file}}).status, 201);
        const auto files = m_service.registeredFiles(folderId);
        QCOMPARE(files.size(), 1);
        QCOMPARE(files[0].key, grant.key);
        QCOMPARE(files[0].createdAt, "2026-03-14T09:26:53Z");
    }

    void galleryShowsRegisteredPreviews() {
        const QJsonObject session = m_wire.openSession("Ana");
        const QByteArray bytes = ServiceWire::someBytes(20000, 4);
        QVERIFY(!m_wire.storeAndRegister(session["folder_id"].toInteger(), bytes).isEmpty());
        for (const char *link : {"live_url", "gallery_url"}) {
            const ServiceWire::Reply page = m_wire.send("GET", session[link].toString());
            QCOMPARE(page.status, 200);
            QVERIFY(page.body.contains("previews.json"));
        }
        const QJsonObject feed =
            m_wire.send("GET", "/live/" + session["slug"].toString() + "/previews.json").json();
        QCOMPARE(feed["name"].toString(), "Ana");
        QCOMPARE(feed["previews"].toArray().size(), 1);
        QCOMPARE(m_wire.send("GET", feed["previews"][0]["src"].toString()).body, bytes);
    }

    void malformedRequestsLeaveTheServiceStanding() {
        const QByteArray longPathAndRange = "GET /" + QByteArray(8100, 'a') +
                                            " HTTP/1.1\r\nRange: bytes=" + QByteArray(7000, '1') +
                                            "-\r\n\r\n";
        for (const QByteArray &garbage :
             {QByteArray("GARBAGE\r\n\r\n"), QByteArray(20000, 'x'), longPathAndRange}) {
            QTcpSocket socket;
            socket.connectToHost("127.0.0.1", m_service.port());
            QVERIFY(socket.waitForConnected(10000));
            socket.write(garbage);
            socket.waitForDisconnected(5000);
        }
        QVERIFY(!m_service.demoToken().isEmpty());
    }

    void httpsAnswersClientsThatTrustTheCertificate() {
        DevService secure;
        QVERIFY2(secure.start(DevService::Transport::https), qPrintable(secure.errorString()));
        QVERIFY(secure.baseURL().startsWith("https://127.0.0.1:"));
        QVERIFY(!secure.certificate().isNull());
        const ServiceWire::Headers json{{"Content-Type", "application/json"}};
        QNetworkAccessManager untrusting;
        const ServiceWire::Reply refused = m_wire.send("POST", secure.baseURL() + "/api/live/sessions/authenticate",
                                       ServiceWire::demoSignIn, json, &untrusting);
        QCOMPARE(refused.error, QNetworkReply::SslHandshakeFailedError);

        const QSslConfiguration original = QSslConfiguration::defaultConfiguration();
        QSslConfiguration trusting = original;
        trusting.addCaCertificate(secure.certificate());
        QSslConfiguration::setDefaultConfiguration(trusting);
        QNetworkAccessManager trusted;
        const ServiceWire::Reply reply = m_wire.send("POST", secure.baseURL() + "/api/live/sessions/authenticate",
                                     ServiceWire::demoSignIn, json, &trusted);
        QSslConfiguration::setDefaultConfiguration(original);
        QCOMPARE(reply.status, 200);
        QVERIFY(reply.json()["token"].isString());
        QCOMPARE(secure.requests("authenticate").size(), 1);
    }
};

QTEST_GUILESS_MAIN(DevServiceApiTest)
#include "tst_devserviceapi.moc"
