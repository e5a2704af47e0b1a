// SPDX-License-Identifier: MIT
// Failures below HTTP reach the caller as transport errors, never as the service's refusals.
#include "apiclient.h"
#include "apierror.h"
#include "devservicefixture.h"
#include "originalfile.h"
#include "scopedpreferences.h"
#include "taskoutcome.h"
#include "transporterror.h"

#include <QSslConfiguration>
#include <QTcpServer>
#include <QTest>

class ApiTransportTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_preferences.reset();
        m_preferences = std::make_unique<ScopedPreferences>();
    }

    void untrustedCertificateIsATransportError()
    {
        DevService service;
        QVERIFY2(service.start(DevService::Transport::https), qPrintable(service.errorString()));
        QVERIFY(service.baseURL().startsWith(QStringLiteral("https://")));
        APIClient api(service.baseURL(), service.storageHost());
        const auto outcome = awaitOutcome(api.authenticate(DevService::demoEmail(), DevService::demoPassword()));
        const auto error = outcome.errorAs<TransportError>();
        QVERIFY(error);
        QCOMPARE(error->code(), QNetworkReply::SslHandshakeFailedError);
        QVERIFY(!error->localizedDescription().isEmpty());
        QVERIFY(!m_preferences->stored(QStringLiteral("api_token")));

        // An original, on a connection of its own, refuses the certificate alike.
        PresignResponse presign;
        presign.url = service.baseURL() + QStringLiteral("/storage/upload");
        presign.key = QStringLiteral("k");
        presign.bucket = QStringLiteral("b");
        const auto original = awaitOutcome(api.uploadToStorage(presign, "bytes", QNetworkRequest::LowPriority));
        const auto originalError = original.errorAs<TransportError>();
        QVERIFY(originalError);
        QCOMPARE(originalError->code(), QNetworkReply::SslHandshakeFailedError);
        QVERIFY(!originalError->localizedDescription().isEmpty());
        QVERIFY(service.requests(QStringLiteral("upload")).isEmpty());
    }

    void trustedCertificateWorks()
    {
        DevService service;
        QVERIFY2(service.start(DevService::Transport::https), qPrintable(service.errorString()));
        const QSslConfiguration original = QSslConfiguration::defaultConfiguration();
        QSslConfiguration trusting = original;
        trusting.addCaCertificate(service.certificate());
        QSslConfiguration::setDefaultConfiguration(trusting);
        APIClient api(service.baseURL(), service.storageHost());
        const auto token = awaitOutcome(api.authenticate(DevService::demoEmail(), DevService::demoPassword()));
        const auto session = awaitOutcome(api.createSession(QStringLiteral("Ana")));
        const auto presign = session.value ? awaitOutcome(api.presign(session.value->folder_id, QStringLiteral("a.jpg"), QStringLiteral("image/jpeg"))).value : std::nullopt;
        const auto url = presign ? awaitOutcome(api.uploadToStorage(*presign, "bytes")).value : std::nullopt;
        // An original of three megabytes, on a connection of its own.
        const QByteArray originalBytes = OriginalFile::bytes(3 * 1024 * 1024);
        const auto grant = session.value ? awaitOutcome(api.presign(session.value->folder_id, QStringLiteral("B.CR3"), QStringLiteral("image/jpeg"))).value : std::nullopt;
        const auto originalUrl = grant ? awaitOutcome(api.uploadToStorage(*grant, originalBytes, QNetworkRequest::LowPriority)).value : std::nullopt;
        QSslConfiguration::setDefaultConfiguration(original);
        QVERIFY(token.value);
        QVERIFY(session.value);
        QVERIFY(presign);
        QVERIFY(url);
        QCOMPARE(service.storedObject(presign->key), std::optional(QByteArray("bytes")));
        QVERIFY(grant);
        QVERIFY(originalUrl);
        QCOMPARE(service.storedObject(grant->key), std::optional(originalBytes));
    }

    void timeoutIsATransportError()
    {
        DevService service;
        QVERIFY2(service.start(), qPrintable(service.errorString()));
        QVERIFY(service.injectFault(DevService::Fault::withDelay(QStringLiteral("authenticate"), 3000)));
        APIClient api(service.baseURL(), service.storageHost());
        api.setRequestTimeout(std::chrono::milliseconds(300));
        const auto outcome = awaitOutcome(api.authenticate(DevService::demoEmail(), DevService::demoPassword()));
        const auto error = outcome.errorAs<TransportError>();
        QVERIFY(error);
        QCOMPARE(error->code(), QNetworkReply::OperationCanceledError);
        QVERIFY(!outcome.errorAs<APIError>());
    }

    void refusedConnectionIsATransportError()
    {
        QTcpServer unused;
        QVERIFY(unused.listen(QHostAddress::LocalHost));
        const quint16 port = unused.serverPort();
        unused.close();
        APIClient api(QStringLiteral("http://127.0.0.1:%1").arg(port), QStringLiteral("h"));
        const auto error = awaitOutcome(api.createSession(QStringLiteral("Ana"))).errorAs<TransportError>();
        QVERIFY(error);
        QCOMPARE(error->code(), QNetworkReply::ConnectionRefusedError);
    }

private:
    std::unique_ptr<ScopedPreferences> m_preferences;
};

QTEST_GUILESS_MAIN(ApiTransportTest)
#include "tst_apitransport.moc"
