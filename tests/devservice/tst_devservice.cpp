// SPDX-License-Identifier: MIT
// devservice is the peer every client test leans on, so it is tested from the outside, over
// real sockets, the way a client meets it.
#include "devservicefixture.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSslConfiguration>
#include <QTcpSocket>
#include <QTest>
#include <QUuid>
#include <algorithm>

namespace {

using Fields = QList<QPair<QString, QString>>;
using Headers = QList<QPair<QByteArray, QByteArray>>;

const QByteArray demoSignIn = R"({"email":"demo@quillmere.test","password":"demo1234"})";

struct HttpReply {
    int status = 0;
    QByteArray body;
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    QJsonObject json() const { return QJsonDocument::fromJson(body).object(); }
};

struct Presign {
    QJsonObject reply;
    Fields fields;
    QString key;
};

QByteArray newBoundary() {
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper().toLatin1();
}

QByteArray fieldPart(const QByteArray &boundary, const QString &name, const QString &value) {
    return "--" + boundary + "\r\nContent-Disposition: form-data; name=\"" + name.toUtf8() +
           "\"\r\n\r\n" + value.toUtf8() + "\r\n";
}

// The form exactly as a browser-style client sends it: the fields, the file last.
QByteArray formBody(const QByteArray &boundary, const Fields &fields, const QByteArray &file,
                    const Fields &afterFile = {}) {
    QByteArray body;
    for (const auto &[name, value] : fields)
        body += fieldPart(boundary, name, value);
    body += "--" + boundary +
            "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"upload.jpg\"\r\n"
            "Content-Type: image/jpeg\r\n\r\n" +
            file + "\r\n";
    for (const auto &[name, value] : afterFile)
        body += fieldPart(boundary, name, value);
    return body + "--" + boundary + "--\r\n";
}

QByteArray someJpegBytes(qsizetype size, quint32 seed) {
    QByteArray bytes(size, Qt::Uninitialized);
    quint32 state = seed;
    for (char &byte : bytes) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

} // namespace

class DevServiceTest : public QObject {
    Q_OBJECT

private:
    HttpReply send(const QByteArray &verb, const QString &pathOrUrl, const QByteArray &body = {},
                   const Headers &headers = {}, QNetworkAccessManager *network = nullptr) {
        const QUrl url(pathOrUrl.startsWith('/') ? m_service.baseURL() + pathOrUrl : pathOrUrl);
        QNetworkRequest request(url);
        for (const auto &[name, value] : headers)
            request.setRawHeader(name, value);
        QNetworkReply *reply =
            (network ? network : &m_network)->sendCustomRequest(request, verb, body);
        QEventLoop loop;
        connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
        loop.exec();
        const HttpReply result{reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(),
                               reply->readAll(), reply->error()};
        reply->deleteLater();
        return result;
    }

    HttpReply sendJson(const QByteArray &verb, const QString &path, const QJsonObject &body,
                       const QByteArray &token) {
        Headers headers{{"Content-Type", "application/json"}};
        if (!token.isEmpty())
            headers.append({"Authorization", "Bearer " + token});
        return send(verb, path, QJsonDocument(body).toJson(QJsonDocument::Compact), headers);
    }

    QJsonObject openSession(const QString &name = "Boda de Ana y Luis") {
        return sendJson("POST", "/api/live/sessions", {{"name", name}}, m_token).json();
    }

    HttpReply presignReply(qint64 folderId, const QString &rawQuery) {
        return send("GET",
                    QStringLiteral("/%1/source_files/presign.json?%2").arg(folderId).arg(rawQuery),
                    {}, {{"Authorization", "Bearer " + m_token}});
    }

    Presign presign(qint64 folderId, const QString &filename = "preview_IMG_0042.jpg") {
        const QString query = "filename=" + QString::fromLatin1(QUrl::toPercentEncoding(filename)) +
                              "&content_type=image%2Fjpeg";
        Presign result;
        result.reply = presignReply(folderId, query).json();
        const QJsonObject fields = result.reply["fields"].toObject();
        for (auto field = fields.begin(); field != fields.end(); ++field)
            result.fields.append({field.key(), field.value().toString()});
        result.key = result.reply["key"].toString();
        return result;
    }

    HttpReply upload(const Presign &grant, const QByteArray &body, const QByteArray &boundary,
                     QNetworkAccessManager *network = nullptr) {
        return send("POST", grant.reply["url"].toString(), body,
                    {{"Content-Type", "multipart/form-data; boundary=" + boundary}}, network);
    }

    // A preview the whole way: presigned, stored and registered. Gives its key.
    QString storeAndRegister(qint64 folderId, const QByteArray &bytes) {
        const Presign grant = presign(folderId);
        const QByteArray boundary = newBoundary();
        if (upload(grant, formBody(boundary, grant.fields, bytes), boundary).status != 204)
            return {};
        const QJsonObject file{
            {"url", "https://" + m_service.storageHost() + "/quillmere-dev/" + grant.key},
            {"key", grant.key},
            {"bucket", "quillmere-dev"},
            {"created_at", "2026-03-14T09:26:53Z"}};
        const HttpReply registered =
            sendJson("POST", QStringLiteral("/%1/source_files.json").arg(folderId),
                     {{"source_file", file}}, m_token);
        return registered.status == 201 ? grant.key : QString();
    }

    DevService m_service;
    QNetworkAccessManager m_network;
    QByteArray m_token;

private slots:
    void initTestCase() { QVERIFY2(m_service.start(), qPrintable(m_service.errorString())); }

    void init() {
        QVERIFY(m_service.reset());
        m_token = m_service.demoToken().toUtf8();
        QVERIFY(!m_token.isEmpty());
    }

    void signInRefusesWhatAStrictServiceRefuses_data() {
        QTest::addColumn<QByteArray>("contentType");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<int>("status");
        const QByteArray json = "application/json";
        QTest::newRow("right") << json << demoSignIn << 200;
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
        QTest::newRow("not declared JSON") << QByteArray("text/plain") << demoSignIn << 415;
    }

    void signInRefusesWhatAStrictServiceRefuses() {
        QFETCH(QByteArray, contentType);
        QFETCH(QByteArray, body);
        QFETCH(int, status);
        const HttpReply reply =
            send("POST", "/api/live/sessions/authenticate", body, {{"Content-Type", contentType}});
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
        authorization.replace("TOKEN", m_token);
        QVERIFY(m_service.setNextFolderId(5000));
        Headers headers{{"Content-Type", "application/json"}};
        if (!authorization.isEmpty())
            headers.append({"Authorization", authorization});
        QCOMPARE(send("POST", "/api/live/sessions", R"({"name":"Ana"})", headers).status, 401);
        // The refused call opened nothing: the next session still gets the first id.
        QCOMPARE(openSession()["folder_id"].toInteger(), 5000);
    }

    void sessionsOpenAndEnd() {
        QVERIFY(m_service.setNextFolderId(9007199254740993)); // 2^53 + 1: no double holds it
        const HttpReply created =
            sendJson("POST", "/api/live/sessions", {{"name", "Ana"}}, m_token);
        QCOMPARE(created.status, 201);
        QVERIFY2(created.body.contains("\"folder_id\":9007199254740993"), created.body);
        const QJsonObject session = created.json();
        const QString slug = session["slug"].toString();
        QCOMPARE(session["live_url"].toString(), m_service.baseURL() + "/live/" + slug);
        QCOMPARE(session["gallery_url"].toString(), m_service.baseURL() + "/gallery/" + slug);
        QCOMPARE(sendJson("POST", "/api/live/sessions", {{"name", 42}}, m_token).status, 422);
        QCOMPARE(sendJson("POST", "/api/live/sessions", {{"name", "Ana"}, {"extra", "x"}}, m_token)
                     .status,
                 422);

        const Headers bearer{{"Authorization", "Bearer " + m_token}};
        QCOMPARE(send("DELETE", "/api/live/sessions/" + slug, {}, bearer).status, 200);
        QCOMPARE(send("DELETE", "/api/live/sessions/no-such-session", {}, bearer).status, 404);
        const auto ends = m_service.requests("endSession");
        QCOMPARE(ends.size(), 2);
        QCOMPARE(ends[0].method, QByteArray("DELETE"));
        QCOMPARE(ends[0].path, "/api/live/sessions/" + slug);
        QCOMPARE(ends[0].header("authorization"), "Bearer " + m_token);
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
        const qint64 folderId = openSession()["folder_id"].toInteger();
        QCOMPARE(presignReply(folderId, query).status, status);
        QCOMPARE(presignReply(folderId + 1, query).status, 404);
    }

    void presignRecordsTheQueryAsSentAndDecoded() {
        const qint64 folderId = openSession()["folder_id"].toInteger();
        const QString filename = QStringLiteral("preview_Ana & Luis ñ+1.jpg");
        const Presign grant = presign(folderId, filename);
        QVERIFY(grant.key.startsWith(QStringLiteral("live/%1/").arg(folderId)));
        QVERIFY(grant.key.endsWith('/' + filename));
        QCOMPARE(grant.reply["method"].toString(), "POST");
        QCOMPARE(grant.reply["url"].toString(), m_service.baseURL() + "/storage/upload");
        QCOMPARE(grant.reply["bucket"].toString(), "quillmere-dev");
        QCOMPARE(grant.reply["host"].toString(), m_service.storageHost());
        for (const char *field : {"key", "policy", "x-amz-algorithm", "x-amz-credential",
                                  "x-amz-date", "x-amz-signature"})
            QVERIFY2(!grant.reply["fields"][field].toString().isEmpty(), field);

        QCOMPARE(presignReply(folderId, "filename=a+b.jpg&content_type=image%2Fjpeg").status, 200);
        const auto presigns = m_service.requests("presign");
        QCOMPARE(presigns.size(), 2);
        QCOMPARE(presigns[0].rawQuery,
                 "filename=" + QString::fromLatin1(QUrl::toPercentEncoding(filename)) +
                     "&content_type=image%2Fjpeg");
        QCOMPARE(presigns[0].query,
                 (Fields{{"filename", filename}, {"content_type", "image/jpeg"}}));
        QCOMPARE(presigns[1].query.first().second, "a b.jpg"); // '+' is a space, as in forms
    }

    void registrationNeedsAStoredPresignedKey() {
        const qint64 folderId = openSession()["folder_id"].toInteger();
        const Presign grant = presign(folderId);
        QJsonObject file{{"url", "https://x/quillmere-dev/" + grant.key},
                         {"key", grant.key},
                         {"bucket", "quillmere-dev"},
                         {"created_at", "2026-03-14T09:26:53Z"}};
        const QString path = QStringLiteral("/%1/source_files.json").arg(folderId);
        QCOMPARE(sendJson("POST", path, {{"source_file", file}}, m_token).status,
                 422); // not stored yet

        const QByteArray boundary = newBoundary();
        QCOMPARE(upload(grant, formBody(boundary, grant.fields, "jpeg"), boundary).status, 204);
        QCOMPARE(sendJson("POST", path, file, m_token).status, 422); // members not nested
        const auto refusedWith = [&](const char *member, const QJsonValue &value) {
            QJsonObject changed = file;
            changed[member] = value;
            return sendJson("POST", path, {{"source_file", changed}}, m_token).status;
        };
        QCOMPARE(refusedWith("created_at", "2026-03-14T09:26:53.000Z"), 422);
        QCOMPARE(refusedWith("created_at", "2026-03-14 09:26:53Z"), 422);
        QCOMPARE(refusedWith("key", 7), 422);
        QCOMPARE(refusedWith("key", "live/1/other.jpg"), 422);
        QCOMPARE(refusedWith("bucket", "other"), 422);
        QCOMPARE(sendJson("POST", QStringLiteral("/%1/source_files.json").arg(folderId + 1),
                          {{"source_file", file}}, m_token)
                     .status,
                 404);
        QVERIFY(m_service.registeredFiles(folderId).isEmpty());

        QCOMPARE(sendJson("POST", path, {{"source_file", file}}, m_token).status, 201);
        const auto files = m_service.registeredFiles(folderId);
        QCOMPARE(files.size(), 1);
        QCOMPARE(files[0].key, grant.key);
        QCOMPARE(files[0].createdAt, "2026-03-14T09:26:53Z");
    }

    void correctUploadIsStoredByteForByte() {
        const Presign grant = presign(openSession()["folder_id"].toInteger());
        const QByteArray bytes = someJpegBytes(300000, 1);
        const QByteArray boundary = newBoundary();
        const QByteArray body = formBody(boundary, grant.fields, bytes);
        const HttpReply reply = upload(grant, body, boundary);
        QCOMPARE(reply.status, 204);
        QCOMPARE(m_service.storedObject(grant.key), std::optional(bytes));
        const auto uploads = m_service.requests("upload");
        QCOMPARE(uploads.size(), 1);
        QVERIFY(uploads[0].body == body);
        QCOMPARE(uploads[0].header("Content-Type"), "multipart/form-data; boundary=" + boundary);
        QVERIFY(!uploads[0].hasHeader("Authorization"));
    }

    void malformedFormsAreRefused_data() {
        QTest::addColumn<QString>("change");
        for (const char *change :
             {"field missing", "field twice", "field changed", "extra field", "file not last",
              "no file", "other boundary in header", "not multipart", "preamble",
              "data after the end", "no closing boundary", "unknown part header"})
            QTest::newRow(change) << QString::fromLatin1(change);
    }

    void malformedFormsAreRefused() {
        QFETCH(QString, change);
        const Presign grant = presign(openSession()["folder_id"].toInteger());
        const QByteArray bytes = someJpegBytes(5000, 2);
        QByteArray boundary = newBoundary();
        Fields fields = grant.fields;
        Fields afterFile;
        const auto signature = std::ranges::find_if(
            fields, [](const auto &f) { return f.first == "x-amz-signature"; });
        QVERIFY(signature != fields.end());
        if (change == "field missing")
            fields.erase(signature);
        else if (change == "field twice")
            fields.append(*signature);
        else if (change == "field changed")
            signature->second.replace(0, 1, signature->second.startsWith('0') ? "1" : "0");
        else if (change == "extra field")
            fields.append(qMakePair(QString("acl"), QString("public-read")));
        else if (change == "file not last")
            afterFile.append(*signature);
        QByteArray body = formBody(boundary, fields, bytes, afterFile);
        if (change == "no file")
            body = fieldPart(boundary, "key", grant.key) + "--" + boundary + "--\r\n";
        else if (change == "preamble")
            body.prepend("This is a preamble.\r\n");
        else if (change == "data after the end")
            body += "trailer";
        else if (change == "no closing boundary")
            body.chop(boundary.size() + 6);
        else if (change == "unknown part header")
            body.replace("Content-Type: image/jpeg", "X-Note: hello");

        QByteArray contentType = "multipart/form-data; boundary=" + boundary;
        if (change == "other boundary in header")
            contentType = "multipart/form-data; boundary=" + newBoundary();
        else if (change == "not multipart")
            contentType = "application/octet-stream";
        const HttpReply reply =
            send("POST", grant.reply["url"].toString(), body, {{"Content-Type", contentType}});
        QCOMPARE(reply.status, 403);
        QVERIFY2(reply.body.contains("<Error><Code>"), reply.body);
        QCOMPARE(m_service.storedObject(grant.key), std::nullopt);
        QCOMPARE(m_service.requests("upload").value(0).body, body);
    }

    void hundredMegabyteUploadArrivesWhole() {
        const Presign grant = presign(openSession()["folder_id"].toInteger());
        const QByteArray boundary = newBoundary();
        const QByteArray bytes = someJpegBytes(100 * 1024 * 1024, 3);
        {
            const QByteArray body = formBody(boundary, grant.fields, bytes);
            QNetworkAccessManager network; // its own, so that its buffers go when it does
            QCOMPARE(upload(grant, body, boundary, &network).status, 204);
            const auto uploads = m_service.requests("upload");
            QCOMPARE(uploads.size(), 1);
            QVERIFY(uploads[0].body == body);
        }
        QVERIFY(m_service.storedObject(grant.key) == bytes);
    }

    void statusFaultAnswersInsteadForItsCount() {
        QVERIFY(
            m_service.injectFault(DevService::Fault::withStatus("createSession", 503, "busy", 2)));
        for (int call = 0; call < 2; ++call) {
            const HttpReply reply =
                sendJson("POST", "/api/live/sessions", {{"name", "Ana"}}, m_token);
            QCOMPARE(reply.status, 503);
            QCOMPARE(reply.body, "busy");
        }
        QCOMPARE(sendJson("POST", "/api/live/sessions", {{"name", "Ana"}}, m_token).status, 201);
        QCOMPARE(m_service.requests("createSession").size(), 3);
    }

    void delayFaultAnswersLater() {
        const qint64 folderId = openSession()["folder_id"].toInteger();
        QVERIFY(m_service.injectFault(DevService::Fault::withDelay("presign", 700)));
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(presign(folderId).reply["bucket"].toString(), "quillmere-dev");
        QVERIFY2(timer.elapsed() >= 700, qPrintable(QString::number(timer.elapsed())));
    }

    void dropFaultClosesWithoutAWord() {
        QVERIFY(m_service.injectFault(DevService::Fault::withDrop("authenticate")));
        QTcpSocket socket;
        socket.connectToHost("127.0.0.1", m_service.port());
        QVERIFY(socket.waitForConnected(10000));
        socket.write("POST /api/live/sessions/authenticate HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                     "Content-Type: application/json\r\nContent-Length: " +
                     QByteArray::number(demoSignIn.size()) + "\r\n\r\n" + demoSignIn);
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
        const qint64 folderId = openSession()["folder_id"].toInteger();
        QVERIFY(m_service.injectFault(
            DevService::Fault::withBrokenReply(endpoint, DevService::FaultKind(kind), member)));
        const HttpReply reply =
            endpoint == "authenticate" ? send("POST", "/api/live/sessions/authenticate", demoSignIn,
                                              {{"Content-Type", "application/json"}})
            : endpoint == "createSession"
                ? sendJson("POST", "/api/live/sessions", {{"name", "Ana"}}, m_token)
                : presignReply(folderId, "filename=a.jpg&content_type=image%2Fjpeg");
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
        const Presign grant = presign(openSession()["folder_id"].toInteger());
        QVERIFY(m_service.injectFault(DevService::Fault::withStatus("upload", 500, "<Error/>")));
        const QByteArray boundary = newBoundary();
        const QByteArray body = formBody(boundary, grant.fields, "jpeg");
        QCOMPARE(upload(grant, body, boundary).status, 500);
        QCOMPARE(m_service.storedObject(grant.key), std::nullopt);
        QCOMPARE(upload(grant, body, boundary).status, 204);

        const auto refused = [&](const QJsonObject &fault) {
            return send("POST", "/__admin/faults", QJsonDocument(fault).toJson(),
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

    void galleryShowsRegisteredPreviews() {
        const QJsonObject session = openSession("Ana");
        const QByteArray bytes = someJpegBytes(20000, 4);
        QVERIFY(!storeAndRegister(session["folder_id"].toInteger(), bytes).isEmpty());
        for (const char *link : {"live_url", "gallery_url"}) {
            const HttpReply page = send("GET", session[link].toString());
            QCOMPARE(page.status, 200);
            QVERIFY(page.body.contains("previews.json"));
        }
        const QJsonObject feed =
            send("GET", "/live/" + session["slug"].toString() + "/previews.json").json();
        QCOMPARE(feed["name"].toString(), "Ana");
        QCOMPARE(feed["previews"].toArray().size(), 1);
        QCOMPARE(send("GET", feed["previews"][0]["src"].toString()).body, bytes);
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
        const Headers json{{"Content-Type", "application/json"}};
        QNetworkAccessManager untrusting;
        const HttpReply refused = send("POST", secure.baseURL() + "/api/live/sessions/authenticate",
                                       demoSignIn, json, &untrusting);
        QCOMPARE(refused.error, QNetworkReply::SslHandshakeFailedError);

        const QSslConfiguration original = QSslConfiguration::defaultConfiguration();
        QSslConfiguration trusting = original;
        trusting.addCaCertificate(secure.certificate());
        QSslConfiguration::setDefaultConfiguration(trusting);
        QNetworkAccessManager trusted;
        const HttpReply reply = send("POST", secure.baseURL() + "/api/live/sessions/authenticate",
                                     demoSignIn, json, &trusted);
        QSslConfiguration::setDefaultConfiguration(original);
        QCOMPARE(reply.status, 200);
        QVERIFY(reply.json()["token"].isString());
        QCOMPARE(secure.requests("authenticate").size(), 1);
    }
};

QTEST_GUILESS_MAIN(DevServiceTest)
#include "tst_devservice.moc"
