// SPDX-License-Identifier: MIT
// What a refusal says of itself, over real sockets: the object store's error document read for
// an upload it refuses (an expired permission, or a refusal of another kind), and the answers of
// a network's sign-in page (a captive portal) told apart from the service's. Each sorted as the
// delivery layer then takes it.
#include "apiclient.h"
#include "apierror.h"
#include "attemptfailure.h"
#include "devservicefixture.h"
#include "scopedpreferences.h"
#include "taskoutcome.h"

#include <QTest>

namespace {
const QByteArray previewBytes = QByteArrayLiteral("\xFF\xD8\xFF\xE0 a preview \xFF\xD9");
const QByteArray portalPage = QByteArrayLiteral(
    "<!DOCTYPE html>\n<html><head><title>Wi-Fi del hotel</title></head>"
    "<body><form action=\"/login\">Acepta las condiciones</form></body></html>\n");

} // namespace

class ApiRefusalsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(m_service.start(), qPrintable(m_service.errorString()));
        m_api = std::make_unique<APIClient>(m_service.baseURL(), m_service.storageHost());
    }

    void init()
    {
        QVERIFY(m_service.reset());
        m_preferences.reset();
        m_preferences = std::make_unique<ScopedPreferences>();
        QVERIFY(awaitOutcome(m_api->authenticate(DevService::demoEmail(),
                                                 DevService::demoPassword()))
                    .value);
        const auto session = awaitOutcome(m_api->createSession(QStringLiteral("Ana")));
        QVERIFY(session.value);
        m_folderId = session.value->folder_id;
    }

    void anExpiredPermissionIsReadAsOne()
    {
        QVERIFY(m_service.setPresignLifetime(0));
        const std::optional<APIError> error = refusedUpload();
        QVERIFY(error);
        QCOMPARE(error->httpStatus(), 403);
        QVERIFY(error->storageRefusal());
        QCOMPARE(error->storageRefusal()->code, QStringLiteral("AccessDenied"));
        QVERIFY(error->storageRefusal()->permissionExpired());

        const AttemptFailure failure = AttemptFailure::of(*error);
        QVERIFY(failure.passes());
        QVERIFY(failure.permissionRefused);
        QCOMPARE(failure.cause, AttemptFailure::Cause::unknown);
    }

    void anyOtherStorageRefusalReadsAsWhatItIs_data()
    {
        QTest::addColumn<QByteArray>("code");
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<bool>("expired");
        QTest::newRow("signature") << QByteArray("SignatureDoesNotMatch")
                                   << QByteArray("The request signature we calculated does not "
                                                 "match the signature you provided.")
                                   << false;
        QTest::newRow("key") << QByteArray("InvalidAccessKeyId")
                             << QByteArray("The AWS Access Key Id you provided does not exist.")
                             << false;
        QTest::newRow("access denied") << QByteArray("AccessDenied") << QByteArray("Access Denied")
                                       << false;
        QTest::newRow("request expired")
            << QByteArray("AccessDenied") << QByteArray("Request has expired") << true;
        QTest::newRow("token expired") << QByteArray("ExpiredToken")
                                       << QByteArray("The provided token has expired.") << true;
    }
    void anyOtherStorageRefusalReadsAsWhatItIs()
    {
        QFETCH(QByteArray, code);
        QFETCH(QByteArray, message);
        QFETCH(bool, expired);
        QVERIFY(m_service.injectFault(
            DevService::Fault::withStatus(QStringLiteral("upload"), 403, DevService::storageError(code, message))));
        const std::optional<APIError> error = refusedUpload();
        QVERIFY(error);
        QVERIFY(error->storageRefusal());
        QCOMPARE(error->storageRefusal()->code, QString::fromUtf8(code));
        QCOMPARE(error->storageRefusal()->message, QString::fromUtf8(message));
        QCOMPARE(error->storageRefusal()->permissionExpired(), expired);

        // Still tried again, on a fresh permission: the service may mend it.
        const AttemptFailure failure = AttemptFailure::of(*error);
        QVERIFY(failure.passes());
        QVERIFY(failure.permissionRefused);
        QCOMPARE(failure.cause, expired ? AttemptFailure::Cause::unknown
                                        : AttemptFailure::Cause::storageRefuses);
    }

    // A refusal with no document, or one that is not S3's, says nothing to rely on: it is taken
    // for the likeliest, an expired permission, as before.
    void aRefusalWithoutADocumentIsTakenForAnExpiry_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("cut short") << QByteArray("<?xml version=\"1.0\"?><Error><Code>Signa");
        QTest::newRow("other document") << QByteArray("<Refusal><Code>X</Code></Refusal>");
        QTest::newRow("no code") << QByteArray("<Error><Message>no</Message></Error>");
        QTest::newRow("json") << QByteArray("{\"error\": \"forbidden\"}");
    }
    void aRefusalWithoutADocumentIsTakenForAnExpiry()
    {
        QFETCH(QByteArray, body);
        QVERIFY(m_service.injectFault(
            DevService::Fault::withStatus(QStringLiteral("upload"), 403, body)));
        const std::optional<APIError> error = refusedUpload();
        QVERIFY(error);
        QCOMPARE(error->httpStatus(), 403);
        QVERIFY(!error->storageRefusal());
        const AttemptFailure failure = AttemptFailure::of(*error);
        QVERIFY(failure.passes());
        QVERIFY(failure.permissionRefused);
        QCOMPARE(failure.cause, AttemptFailure::Cause::unknown);
    }

    void aSignInPageIsNoAnswerOfTheService_data()
    {
        QTest::addColumn<QString>("endpoint");
        QTest::addColumn<int>("kind");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("location");
        const int status = int(DevService::FaultKind::status);
        const int redirect = int(DevService::FaultKind::redirect);
        for (const char *endpoint : {"presign", "upload", "register"}) {
            const QString name = QString::fromLatin1(endpoint);
            QTest::addRow("%s 511", endpoint) << name << status << 511 << portalPage << QString();
            QTest::addRow("%s 200 page", endpoint) << name << status << 200 << portalPage
                                                   << QString();
            QTest::addRow("%s 302 away", endpoint)
                << name << redirect << 302 << QByteArray()
                << QStringLiteral("http://portal.invalid/login?continue=1");
            QTest::addRow("%s 307 away", endpoint)
                << name << redirect << 307 << QByteArray()
                << QStringLiteral("https://captive.invalid/");
        }
    }
    void aSignInPageIsNoAnswerOfTheService()
    {
        QFETCH(QString, endpoint);
        QFETCH(int, kind);
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, location);
        DevService::Fault fault = kind == int(DevService::FaultKind::redirect)
                                      ? DevService::Fault::withRedirect(endpoint, status, location)
                                      : DevService::Fault::withStatus(endpoint, status, body);
        QVERIFY(m_service.injectFault(fault));
        const std::optional<APIError> error = refusedCall(endpoint);
        QVERIFY2(error, "a sign-in page was taken for the service's success");
        QCOMPARE(error->httpStatus(), status);
        QVERIFY(error->fromSignInPage());
        // Said for what it is, not as the endpoint's own refusal.
        QCOMPARE(error->localizedDescription(),
                 QStringLiteral("La red pide iniciar sesión en el navegador"));
        const AttemptFailure failure = AttemptFailure::of(*error);
        QCOMPARE(failure.kind, AttemptFailure::Kind::passing);
        QCOMPARE(failure.cause, AttemptFailure::Cause::networkSignIn);
        // Nothing went elsewhere.
        QCOMPARE(m_service.otherOriginRequests().size(), 0);
    }

    // What only looks like a portal is not taken for one: the service's own redirect, and an
    // error page of the service's (or of a proxy's) with a status of its own.
    void theServicesOwnAnswersAreNotSignInPages_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("passes");
        QTest::newRow("redirect within the service")
            << int(DevService::FaultKind::redirect) << 302 << QByteArray() << false;
        QTest::newRow("502 page") << int(DevService::FaultKind::status) << 502 << portalPage
                                  << true;
        QTest::newRow("404 page") << int(DevService::FaultKind::status) << 404 << portalPage
                                  << false;
    }
    void theServicesOwnAnswersAreNotSignInPages()
    {
        QFETCH(int, kind);
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(bool, passes);
        const QString endpoint = QStringLiteral("presign");
        QVERIFY(m_service.injectFault(
            kind == int(DevService::FaultKind::redirect)
                ? DevService::Fault::withRedirect(endpoint, status,
                                                  m_service.baseURL() + QStringLiteral("/elsewhere"))
                : DevService::Fault::withStatus(endpoint, status, body)));
        const std::optional<APIError> error = refusedCall(endpoint);
        QVERIFY(error);
        QVERIFY(!error->fromSignInPage());
        const AttemptFailure failure = AttemptFailure::of(*error);
        QCOMPARE(failure.passes(), passes);
        QCOMPARE(failure.cause, AttemptFailure::Cause::unknown);
    }

private:
    std::optional<PresignResponse> grant()
    {
        return awaitOutcome(m_api->presign(m_folderId, QStringLiteral("preview_IMG_0001.jpg"),
                                           QStringLiteral("image/jpeg")))
            .value;
    }

    std::optional<APIError> refusedUpload()
    {
        const std::optional<PresignResponse> presign = grant();
        if (!presign)
            return std::nullopt;
        const auto outcome = awaitOutcome(m_api->uploadToStorage(*presign, previewBytes));
        return outcome.errorAs<APIError>();
    }

    std::optional<APIError> refusedCall(const QString &endpoint)
    {
        if (endpoint == QLatin1String("presign"))
            return awaitOutcome(m_api->presign(m_folderId, QStringLiteral("IMG_0001.JPG"),
                                               QStringLiteral("image/jpeg")))
                .errorAs<APIError>();
        if (endpoint == QLatin1String("upload"))
            return refusedUpload();
        const std::optional<PresignResponse> presign = grant();
        if (!presign)
            return std::nullopt;
        const auto stored = awaitOutcome(m_api->uploadToStorage(*presign, previewBytes));
        if (!stored.value)
            return std::nullopt;
        return awaitOutcome(m_api->registerAttachment(m_folderId, *stored.value, presign->key,
                                                      presign->bucket))
            .errorAs<APIError>();
    }

    DevService m_service;
    std::unique_ptr<APIClient> m_api;
    std::unique_ptr<ScopedPreferences> m_preferences;
    qint64 m_folderId = 0;
};

QTEST_GUILESS_MAIN(ApiRefusalsTest)
#include "tst_apirefusals.moc"
