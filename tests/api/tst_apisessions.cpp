// SPDX-License-Identifier: MIT
// Sign-in and the opening and closing of live sessions, over real sockets to devservice.
#include "apiclient.h"
#include "apierror.h"
#include "decodingerror.h"
#include "devservicefixture.h"
#include "scopedpreferences.h"
#include "taskoutcome.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

class ApiSessionsTest : public QObject {
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
    }

    void authenticateStoresTheTokenBeforeCompleting()
    {
        const auto outcome = awaitOutcome(m_api->authenticate(DevService::demoEmail(), DevService::demoPassword()));
        QVERIFY(outcome.value);
        QVERIFY(!outcome.value->isEmpty());
        QCOMPARE(m_preferences->stored(QStringLiteral("api_token")), outcome.value);

        const auto requests = m_service.requests(QStringLiteral("authenticate"));
        QCOMPARE(requests.size(), 1);
        QCOMPARE(requests[0].method, QByteArray("POST"));
        QCOMPARE(requests[0].path, QStringLiteral("/api/live/sessions/authenticate"));
        QCOMPARE(requests[0].header("Content-Type"), QByteArray("application/json"));
        QVERIFY(!requests[0].hasHeader("Authorization"));

        // The very next call carries the new token.
        const auto created = awaitOutcome(m_api->createSession(QStringLiteral("Ana")));
        QVERIFY(created.value);
        const auto sessions = m_service.requests(QStringLiteral("createSession"));
        QCOMPARE(sessions.size(), 1);
        QCOMPARE(sessions[0].header("Authorization"), "Bearer " + outcome.value->toUtf8());
    }

    void authenticateSendsTheFieldsUnchanged()
    {
        const QString email = QStringLiteral("  Ana.Pérez@Estudio.test ");
        const QString password = QStringLiteral(" pa\"ss ñ ");
        const auto outcome = awaitOutcome(m_api->authenticate(email, password));
        QVERIFY(outcome.errorAs<APIError>());
        const auto requests = m_service.requests(QStringLiteral("authenticate"));
        QCOMPARE(requests.size(), 1);
        const QJsonObject body = QJsonDocument::fromJson(requests[0].body).object();
        QCOMPARE(body.size(), 2);
        QCOMPARE(body.value(QStringLiteral("email")).toString(), email);
        QCOMPARE(body.value(QStringLiteral("password")).toString(), password);
    }

    void authenticateNeverSendsAToken()
    {
        m_preferences->store(QStringLiteral("api_token"), QStringLiteral("old-token"));
        awaitOutcome(m_api->authenticate(DevService::demoEmail(), DevService::demoPassword()));
        const auto requests = m_service.requests(QStringLiteral("authenticate"));
        QCOMPARE(requests.size(), 1);
        QVERIFY(!requests[0].hasHeader("Authorization"));
    }

    void authenticateRefusals_data()
    {
        QTest::addColumn<int>("status");
        for (const int status : {401, 422, 500, 201, 204})
            QTest::addRow("%d", status) << status;
    }
    void authenticateRefusals()
    {
        QFETCH(int, status);
        m_preferences->store(QStringLiteral("api_token"), QStringLiteral("kept"));
        QVERIFY(m_service.injectFault(DevService::Fault::withStatus(
            QStringLiteral("authenticate"), status, "{\"token\":\"from-error-body\"}")));
        const auto outcome = awaitOutcome(m_api->authenticate(DevService::demoEmail(), DevService::demoPassword()));
        const auto error = outcome.errorAs<APIError>();
        QVERIFY(error);
        QCOMPARE(error->errorCase(), APIError::authFailed);
        QCOMPARE(error->localizedDescription(), QStringLiteral("Email o contraseña incorrectos"));
        QCOMPARE(m_preferences->stored(QStringLiteral("api_token")), QStringLiteral("kept"));
    }

    void wrongCredentialsAreRefused()
    {
        const auto outcome = awaitOutcome(m_api->authenticate(DevService::demoEmail(), QStringLiteral("nope")));
        QCOMPARE(outcome.errorAs<APIError>()->errorCase(), APIError::authFailed);
        QVERIFY(!m_preferences->stored(QStringLiteral("api_token")));
    }

    void authenticateWithoutTokenIsADecodingError()
    {
        m_preferences->store(QStringLiteral("api_token"), QStringLiteral("kept"));
        QVERIFY(m_service.injectFault(DevService::Fault::withBrokenReply(
            QStringLiteral("authenticate"), DevService::FaultKind::missingMember, QStringLiteral("token"))));
        const auto outcome = awaitOutcome(m_api->authenticate(DevService::demoEmail(), DevService::demoPassword()));
        QVERIFY(outcome.errorAs<DecodingError>());
        QVERIFY(!outcome.errorAs<APIError>());
        QCOMPARE(m_preferences->stored(QStringLiteral("api_token")), QStringLiteral("kept"));
    }

    void malformedJsonIsADecodingError()
    {
        QVERIFY(m_service.injectFault(DevService::Fault::withBrokenReply(
            QStringLiteral("authenticate"), DevService::FaultKind::malformedJson)));
        QVERIFY(awaitOutcome(m_api->authenticate(DevService::demoEmail(), DevService::demoPassword()))
                    .errorAs<DecodingError>());
    }

    void createSessionDecodesTheReply()
    {
        signIn();
        QVERIFY(m_service.setNextFolderId(Q_INT64_C(9007199254740993)));
        const QString name = QStringLiteral("  Boda Ana & Luis ");
        const auto outcome = awaitOutcome(m_api->createSession(name));
        QVERIFY(outcome.value);
        QCOMPARE(outcome.value->folder_id, Q_INT64_C(9007199254740993));
        QVERIFY(!outcome.value->slug.isEmpty());
        QVERIFY(outcome.value->live_url.startsWith(m_service.baseURL()));
        QVERIFY(!outcome.value->gallery_url.isEmpty());

        const auto requests = m_service.requests(QStringLiteral("createSession"));
        QCOMPARE(requests[0].path, QStringLiteral("/api/live/sessions"));
        QCOMPARE(requests[0].header("Content-Type"), QByteArray("application/json"));
        QCOMPARE(QJsonDocument::fromJson(requests[0].body).object(),
                 QJsonObject({{QStringLiteral("name"), name}}));
    }

    void createSessionAcceptsOnly201()
    {
        signIn();
        QVERIFY(m_service.injectFault(DevService::Fault::withStatus(
            QStringLiteral("createSession"), 200,
            "{\"folder_id\":1,\"slug\":\"s\",\"live_url\":\"l\",\"gallery_url\":\"g\"}")));
        const auto error = awaitOutcome(m_api->createSession(QStringLiteral("Ana"))).errorAs<APIError>();
        QVERIFY(error);
        QCOMPARE(error->errorCase(), APIError::sessionCreateFailed);
        QCOMPARE(error->localizedDescription(), QStringLiteral("No se pudo crear la sesión"));
    }

    void createSessionWithoutTokenSendsNoAuthorization()
    {
        const auto error = awaitOutcome(m_api->createSession(QStringLiteral("Ana"))).errorAs<APIError>();
        QVERIFY(error);
        QCOMPARE(error->errorCase(), APIError::sessionCreateFailed);
        QCOMPARE(error->httpStatus(), 401);
        const auto requests = m_service.requests(QStringLiteral("createSession"));
        QCOMPARE(requests.size(), 1);
        QVERIFY(!requests[0].hasHeader("Authorization"));
    }

    void folderIdAsStringIsADecodingError()
    {
        signIn();
        QVERIFY(m_service.injectFault(DevService::Fault::withBrokenReply(
            QStringLiteral("createSession"), DevService::FaultKind::wrongType, QStringLiteral("folder_id"))));
        const auto outcome = awaitOutcome(m_api->createSession(QStringLiteral("Ana")));
        QVERIFY(outcome.errorAs<DecodingError>());
    }

    void endSessionAcceptsOnly200()
    {
        signIn();
        const auto created = awaitOutcome(m_api->createSession(QStringLiteral("Ana")));
        QVERIFY(created.value);
        QVERIFY(m_service.injectFault(DevService::Fault::withStatus(QStringLiteral("endSession"), 204)));
        const auto refused = awaitOutcome(m_api->endSession(created.value->slug)).errorAs<APIError>();
        QVERIFY(refused);
        QCOMPARE(refused->errorCase(), APIError::sessionEndFailed);
        QCOMPARE(refused->localizedDescription(), QStringLiteral("No se pudo terminar la sesión"));

        const auto ended = awaitOutcome(m_api->endSession(created.value->slug));
        QVERIFY(ended.value);
        const auto requests = m_service.requests(QStringLiteral("endSession"));
        QCOMPARE(requests.size(), 2);
        QCOMPARE(requests[1].method, QByteArray("DELETE"));
        QCOMPARE(requests[1].path, QStringLiteral("/api/live/sessions/") + created.value->slug);
        QVERIFY(requests[1].body.isEmpty());
        QVERIFY(!requests[1].hasHeader("Content-Type"));
    }

    void slugIsSplicedIntoThePathUnescaped()
    {
        signIn();
        awaitOutcome(m_api->endSession(QStringLiteral("a&b+c=d")));
        const auto requests = m_service.requests(QStringLiteral("endSession"));
        QCOMPARE(requests.size(), 1);
        QCOMPARE(requests[0].path, QStringLiteral("/api/live/sessions/a&b+c=d"));
    }

private:
    void signIn()
    {
        const auto outcome = awaitOutcome(m_api->authenticate(DevService::demoEmail(), DevService::demoPassword()));
        QVERIFY(outcome.value);
    }

    DevService m_service;
    std::unique_ptr<APIClient> m_api;
    std::unique_ptr<ScopedPreferences> m_preferences;
};

QTEST_GUILESS_MAIN(ApiSessionsTest)
#include "tst_apisessions.moc"
