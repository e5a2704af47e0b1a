// SPDX-License-Identifier: MIT
// The platform's proxy settings, as the system's other programs take them: on Linux the proxy
// environment variables. A whole session, sign-in to end, goes through a recording proxy on
// loopback, and the proxy sees every request of it, an original's among them.
#include "apiclient.h"
#include "attemptfailure.h"
#include "devservicefixture.h"
#include "originalfile.h"
#include "recordingproxy.h"
#include "scopedpreferences.h"
#include "taskoutcome.h"
#include "transporterror.h"

#include <QNetworkProxyFactory>
#include <QNetworkProxyQuery>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

namespace {

// Qt sends no loopback address through a proxy, so the service is reached under this name,
// which only the proxy knows; without the proxy it would not resolve.
const QString servedName = QStringLiteral("service.quillmere.test");

} // namespace

class ApiProxyTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_proxy.listen());
        QVERIFY2(m_service.start(), qPrintable(m_service.errorString()));
        // The variables as a user sets them; the others, which a CI machine may have, are cleared.
        for (const char *name : {"https_proxy", "HTTPS_PROXY", "HTTP_PROXY", "all_proxy",
                                 "ALL_PROXY", "no_proxy", "NO_PROXY"})
            qunsetenv(name);
        qputenv("http_proxy", m_proxy.address().toUtf8());
        // As in a Qt built without system proxies by default (configure -no-feature-system-proxies):
        // the client must turn them on itself.
        QNetworkProxyFactory::setUseSystemConfiguration(false);
        m_api = std::make_unique<APIClient>(
            QStringLiteral("http://%1:%2").arg(servedName).arg(m_service.port()),
            m_service.storageHost());
    }

    void init()
    {
        QVERIFY(m_service.reset());
        m_preferences = std::make_unique<ScopedPreferences>();
    }

    void wholeSessionGoesThroughTheProxy()
    {
        const QString origin = QStringLiteral("http://%1:%2").arg(servedName).arg(m_service.port());
        // Nothing is sent unless it would go to the proxy: a direct request would have the
        // made-up name looked up by the system's resolver.
        QCOMPARE(QNetworkProxyFactory::proxyForQuery(QNetworkProxyQuery(QUrl(origin))).value(0).type(),
                 QNetworkProxy::HttpProxy);
        QVERIFY(awaitOutcome(m_api->authenticate(DevService::demoEmail(), DevService::demoPassword())).value);
        const auto session = awaitOutcome(m_api->createSession(QStringLiteral("Ana")));
        QVERIFY(session.value);
        const auto presign = awaitOutcome(m_api->presign(session.value->folder_id, QStringLiteral("IMG_0001.JPG"), QStringLiteral("image/jpeg")));
        QVERIFY(presign.value);
        // The service's upload address, handed back under the proxy's name, so it goes through
        // the proxy too.
        QCOMPARE(presign.value->url, origin + QStringLiteral("/storage/upload"));
        const QByteArray photo = "\xFF\xD8\xFF\xE0 a photo" + QByteArray(3000, 'x');
        const auto url = awaitOutcome(m_api->uploadToStorage(*presign.value, photo));
        QVERIFY(url.value);
        QVERIFY(awaitOutcome(m_api->registerAttachment(session.value->folder_id, *url.value, presign.value->key, presign.value->bucket)).value);
        // The original, on a connection of its own, is handed to the proxy whole as well.
        const auto grant = awaitOutcome(m_api->presign(session.value->folder_id, QStringLiteral("IMG_0001.CR3"), QStringLiteral("image/jpeg")));
        QVERIFY(grant.value);
        const QByteArray original = QByteArray("II*\0", 4) + QByteArray(300000, 'r');
        QVERIFY(awaitOutcome(m_api->uploadToStorage(*grant.value, original, QNetworkRequest::LowPriority)).value);
        QVERIFY(awaitOutcome(m_api->endSession(session.value->slug)).value);

        // Every request reached the service through the proxy, and none by another way.
        const QStringList expected = {
            QStringLiteral("POST /api/live/sessions/authenticate"),
            QStringLiteral("POST /api/live/sessions"),
            QStringLiteral("GET /%1/source_files/presign.json").arg(session.value->folder_id),
            QStringLiteral("POST /storage/upload"),
            QStringLiteral("POST /%1/source_files.json").arg(session.value->folder_id),
            QStringLiteral("GET /%1/source_files/presign.json").arg(session.value->folder_id),
            QStringLiteral("POST /storage/upload"),
            QStringLiteral("DELETE /api/live/sessions/%1").arg(session.value->slug),
        };
        QStringList proxied;
        for (const RecordingProxy::Request &request : m_proxy.requests()) {
            QCOMPARE(request.url.adjusted(QUrl::RemovePath | QUrl::RemoveQuery).toString(), origin);
            proxied << QString::fromLatin1(request.method) + QLatin1Char(' ') + request.url.path();
        }
        QStringList served;
        for (const QString &endpoint : {QStringLiteral("authenticate"), QStringLiteral("createSession"), QStringLiteral("presign"),
                                        QStringLiteral("upload"), QStringLiteral("register"), QStringLiteral("endSession")})
            for (const DevService::ReceivedRequest &request : m_service.requests(endpoint))
                served << QString::fromLatin1(request.method) + QLatin1Char(' ') + request.path;
        QCOMPARE(proxied, expected);
        // The service's record is by endpoint; what it served, in whatever order, is the same.
        QStringList expectedServed = expected;
        expectedServed.sort();
        served.sort();
        QCOMPARE(served, expectedServed);
        QCOMPARE(m_service.storedObject(presign.value->key), std::optional(photo));
        QCOMPARE(m_service.storedObject(grant.value->key), std::optional(original));
    }

    // An original of several megabytes, read from its file as it goes, reaches the store whole
    // through the proxy, on either of the ways an upload goes.
    void originalFromItsFileGoesThroughTheProxyWhole_data() { addPriorities(); }
    void originalFromItsFileGoesThroughTheProxyWhole()
    {
        QFETCH(int, priority);
        QTemporaryDir folder;
        QVERIFY(folder.isValid());
        const QByteArray original = OriginalFile::bytes(6 * 1024 * 1024);
        const QString path = OriginalFile::write(folder.filePath(QStringLiteral("IMG_0002.CR3")), original);
        QVERIFY(awaitOutcome(m_api->authenticate(DevService::demoEmail(), DevService::demoPassword())).value);
        const auto session = awaitOutcome(m_api->createSession(QStringLiteral("Ana")));
        QVERIFY(session.value);
        const auto grant = awaitOutcome(m_api->presign(session.value->folder_id, QStringLiteral("IMG_0002.CR3"), QStringLiteral("image/jpeg")));
        QVERIFY(grant.value);
        const qsizetype proxiedBefore = m_proxy.requests().size();
        QVERIFY(awaitOutcome(m_api->uploadFileToStorage(*grant.value, path, QNetworkRequest::Priority(priority))).value);
        QCOMPARE(m_proxy.requests().size(), proxiedBefore + 1);
        QCOMPARE(m_proxy.requests().last().url.path(), QStringLiteral("/storage/upload"));
        const std::optional<QByteArray> stored = m_service.storedObject(grant.value->key);
        QVERIFY(stored);
        QCOMPARE(stored->size(), original.size());
        QVERIFY(*stored == original);
    }

    // A proxy that wants credentials, which the program has none of: a preview's upload and an
    // original's fail alike, as a failure of the way there (which passes, and is tried again),
    // not as a refusal of the store's.
    void aProxyThatWantsCredentialsFailsTheWayThere_data() { addPriorities(); }
    void aProxyThatWantsCredentialsFailsTheWayThere()
    {
        QFETCH(int, priority);
        QTcpServer wanting;
        QVERIFY(wanting.listen(QHostAddress::LocalHost));
        connect(&wanting, &QTcpServer::newConnection, &wanting, [&wanting] {
            while (QTcpSocket *client = wanting.nextPendingConnection()) {
                connect(client, &QTcpSocket::readyRead, client, [client] {
                    if (!client->peek(client->bytesAvailable()).contains("\r\n\r\n"))
                        return;
                    client->write("HTTP/1.1 407 Proxy Authentication Required\r\n"
                                  "Proxy-Authenticate: Basic realm=\"venue\"\r\n"
                                  "Content-Length: 0\r\nConnection: close\r\n\r\n");
                    client->disconnectFromHost();
                });
            }
        });
        qputenv("http_proxy", QStringLiteral("http://127.0.0.1:%1").arg(wanting.serverPort()).toUtf8());
        PresignResponse presign;
        presign.url = QStringLiteral("http://%1:%2/storage/upload").arg(servedName).arg(m_service.port());
        presign.key = QStringLiteral("k");
        presign.bucket = QStringLiteral("b");
        const auto outcome = awaitOutcome(m_api->uploadToStorage(presign, "bytes", QNetworkRequest::Priority(priority)));
        qputenv("http_proxy", m_proxy.address().toUtf8());
        const auto error = outcome.errorAs<TransportError>();
        QVERIFY(error);
        QCOMPARE(error->code(), QNetworkReply::ProxyAuthenticationRequiredError);
        QVERIFY(!error->localizedDescription().isEmpty());
        QVERIFY(AttemptFailure::of(*error).passes());
    }

    void noProxyListsHostsReachedDirectly()
    {
        // no_proxy, as the platform reads it, is honoured for the service and object store.
        qputenv("no_proxy", "storage.quillmere.test");
        const auto proxyFor = [](const char *url) {
            return QNetworkProxyFactory::proxyForQuery(QNetworkProxyQuery(QUrl(QString::fromLatin1(url)))).value(0);
        };
        const QNetworkProxy service = proxyFor("http://service.quillmere.test/api");
        const QNetworkProxy storage = proxyFor("http://storage.quillmere.test/upload");
        qunsetenv("no_proxy");
        QCOMPARE(service.type(), QNetworkProxy::HttpProxy);
        QCOMPARE(service.hostName(), QStringLiteral("127.0.0.1"));
        QCOMPARE(service.port(), QUrl(m_proxy.address()).port());
        QCOMPARE(storage.type(), QNetworkProxy::NoProxy);
    }

private:
    // Through Qt's HTTP stack (a preview), or on a connection of its own (an original).
    static void addPriorities()
    {
        QTest::addColumn<int>("priority");
        QTest::newRow("preview") << int(QNetworkRequest::HighPriority);
        QTest::newRow("original") << int(QNetworkRequest::LowPriority);
    }

    RecordingProxy m_proxy{servedName};
    DevService m_service;
    std::unique_ptr<ScopedPreferences> m_preferences;
    std::unique_ptr<APIClient> m_api;
};

QTEST_GUILESS_MAIN(ApiProxyTest)
#include "tst_apiproxy.moc"
