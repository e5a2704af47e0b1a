// SPDX-License-Identifier: MIT
// A client made with the defaults gives every request sixty seconds: held by the service, each
// of the six calls fails as a timed-out transport error after a minute and not before, and so
// does an original's upload on its connection of its own. A test program of its own, since it
// spends that minute waiting.
#include "apiclient.h"
#include "devservicefixture.h"
#include "scopedpreferences.h"
#include "taskoutcome.h"
#include "transporterror.h"

#include <QElapsedTimer>
#include <QTest>

#include <algorithm>
#include <array>

namespace {

struct Ended {
    qint64 afterMs = -1;
    std::optional<QNetworkReply::NetworkError> transportError;
};

template<typename T>
QCoro::Task<> noteEnd(QCoro::Task<T> call, QElapsedTimer clock, Ended *ended)
{
    try {
        co_await call;
    } catch (const TransportError &error) {
        ended->transportError = error.code();
    } catch (...) {
    }
    ended->afterMs = clock.elapsed();
}

} // namespace

class ApiTimeoutTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void everyRequestGivesUpAfterSixtySeconds()
    {
        ScopedPreferences preferences;
        DevService service;
        QVERIFY2(service.start(), qPrintable(service.errorString()));
        APIClient api(service.baseURL(), service.storageHost());
        QVERIFY(awaitOutcome(api.authenticate(DevService::demoEmail(), DevService::demoPassword())).value);
        const auto session = awaitOutcome(api.createSession(QStringLiteral("Ana")));
        QVERIFY(session.value);
        const auto grant = awaitOutcome(api.presign(session.value->folder_id, QStringLiteral("a.jpg"),
                                                    QStringLiteral("image/jpeg")));
        QVERIFY(grant.value);

        // The last two both reach the object store's upload endpoint, which holds them both.
        const std::array<QString, 7> endpoints{QStringLiteral("authenticate"), QStringLiteral("createSession"),
                                               QStringLiteral("endSession"), QStringLiteral("presign"),
                                               QStringLiteral("register"), QStringLiteral("upload"),
                                               QStringLiteral("upload")};
        const std::array<QString, 7> calls{QStringLiteral("authenticate"), QStringLiteral("createSession"),
                                           QStringLiteral("endSession"), QStringLiteral("presign"),
                                           QStringLiteral("register"), QStringLiteral("upload"),
                                           QStringLiteral("original")};
        std::array<qsizetype, 7> before{};
        for (std::size_t i = 0; i < endpoints.size(); ++i) {
            before[i] = service.requests(endpoints[i]).size();
            QVERIFY(service.injectFault(DevService::Fault::withHold(endpoints[i])));
        }
        QElapsedTimer clock;
        clock.start();
        std::array<Ended, 7> ended;
        const qint64 folderId = session.value->folder_id;
        noteEnd(api.authenticate(DevService::demoEmail(), DevService::demoPassword()), clock, &ended[0]);
        noteEnd(api.createSession(QStringLiteral("Luis")), clock, &ended[1]);
        noteEnd(api.endSession(session.value->slug), clock, &ended[2]);
        noteEnd(api.presign(folderId, QStringLiteral("b.jpg"), QStringLiteral("image/jpeg")), clock, &ended[3]);
        noteEnd(api.registerAttachment(folderId, QStringLiteral("https://x/a.jpg"), grant.value->key,
                                       grant.value->bucket),
                clock, &ended[4]);
        noteEnd(api.uploadToStorage(*grant.value, "photo bytes"), clock, &ended[5]);
        noteEnd(api.uploadToStorage(*grant.value, "original bytes", QNetworkRequest::LowPriority),
                clock, &ended[6]);

        // Every call reached the service, which holds it: the wait is the client's own.
        for (std::size_t i = 0; i < endpoints.size(); ++i) {
            const auto held = std::count(endpoints.begin(), endpoints.end(), endpoints[i]);
            QTRY_COMPARE_WITH_TIMEOUT(service.requests(endpoints[i]).size(), before[i] + held, 20'000);
        }
        QTRY_VERIFY_WITH_TIMEOUT(std::ranges::all_of(ended, [](const Ended &e) { return e.afterMs >= 0; }),
                                 120'000);
        QVERIFY(service.releaseHeld());
        for (std::size_t i = 0; i < calls.size(); ++i) {
            const QByteArray name = calls[i].toUtf8();
            QVERIFY2(ended[i].transportError == QNetworkReply::OperationCanceledError, name);
            // Qt may round a timer this long to whole seconds.
            QVERIFY2(ended[i].afterMs >= 59'000,
                     qPrintable(QStringLiteral("%1 gave up after %2 ms").arg(calls[i]).arg(ended[i].afterMs)));
        }
    }
};

QTEST_GUILESS_MAIN(ApiTimeoutTest)
#include "tst_apitimeout.moc"
