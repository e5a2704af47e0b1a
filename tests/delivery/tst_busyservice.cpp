// SPDX-License-Identifier: MIT
// A busy service (429, 503) that says when to come back is left alone until then: the photo it
// turned away goes again no sooner, nor does a photo shot meanwhile, nor the original of one whose
// preview was registered meanwhile, and all arrive once.
#include "sessionharness.h"
#include "sessionviewmodel.h"
#include "storedfiles.h"
#include "uploadmanager.h"

#include <QLocale>
#include <QTest>

namespace {

// The requests of one endpoint that carried `name` in their query (a presign's filename).
QList<DevService::ReceivedRequest> requestsFor(const QList<DevService::ReceivedRequest> &all,
                                               const QString &name)
{
    QList<DevService::ReceivedRequest> found;
    for (const DevService::ReceivedRequest &request : all) {
        for (const auto &[key, value] : request.query) {
            if (key == QStringLiteral("filename") && value.contains(name))
                found.append(request);
        }
    }
    return found;
}

QString httpDate(const QDateTime &when)
{
    return QLocale::c().toString(when.toUTC(), QStringLiteral("ddd, dd MMM yyyy hh:mm:ss 'GMT'"));
}

} // namespace

class BusyServiceTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY2(m_harness.start(), qPrintable(m_harness.errorString())); }
    void init() { m_harness.resetForTest(); }

    void comesBackNoSoonerThanAsked_data()
    {
        QTest::addColumn<QString>("endpoint");
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("asDate");
        // Well beyond the backoff's first wait (two seconds, give or take a quarter).
        QTest::newRow("429, seconds, registration") << QStringLiteral("register") << 429 << false;
        QTest::newRow("503, http date, presign") << QStringLiteral("presign") << 503 << true;
    }
    void comesBackNoSoonerThanAsked()
    {
        QFETCH(QString, endpoint);
        QFETCH(int, status);
        QFETCH(bool, asDate);
        constexpr qint64 askedMs = 6000;

        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Lucía")));
        DevService::Fault busy = DevService::Fault::withStatus(endpoint, status);
        // A date has whole seconds: the wait asked for ends at that second, whenever it is read.
        const QDateTime now = QDateTime::currentDateTimeUtc();
        const QDateTime until = now.addMSecs(askedMs + 1000 - now.time().msec());
        busy.retryAfter = asDate ? httpDate(until) : QString::number(askedMs / 1000);
        QVERIFY(m_harness.service().injectFault(busy));

        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0001.JPG"), SessionHarness::photoJpeg(1)));
        QTRY_COMPARE_WITH_TIMEOUT(m_harness.service().requests(endpoint).size(), 1, 30000);
        const QDateTime turnedAway = m_harness.service().requests(endpoint).constFirst().receivedAt;
        // Shot while the service asked to be left alone: it waits for the same moment.
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0002.JPG"), SessionHarness::photoJpeg(2)));

        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 2, 120000);
        // The service's clock in milliseconds; the client's wait began once it read the reply,
        // after the request was received.
        const QDateTime earliest = asDate ? until : turnedAway.addMSecs(askedMs);
        const QList<DevService::ReceivedRequest> calls = m_harness.service().requests(endpoint);
        QVERIFY(calls.size() >= 3);
        for (qsizetype i = 1; i < calls.size(); ++i)
            QVERIFY2(calls[i].receivedAt >= earliest.addMSecs(-1),
                     qPrintable(QStringLiteral("call %1 came %2 ms after the refusal")
                                    .arg(i)
                                    .arg(turnedAway.msecsTo(calls[i].receivedAt))));
        const QList<DevService::ReceivedRequest> second =
            requestsFor(m_harness.service().requests(QStringLiteral("presign")),
                        QStringLiteral("IMG_0002"));
        QVERIFY(!second.isEmpty());
        QVERIFY2(second.constFirst().receivedAt >= earliest.addMSecs(-1),
                 qPrintable(QStringLiteral("the photo shot meanwhile went %1 ms after the refusal")
                                .arg(turnedAway.msecsTo(second.constFirst().receivedAt))));

        const StoredFiles store(m_harness.service());
        for (const QString &name : {QStringLiteral("IMG_0001.JPG"), QStringLiteral("IMG_0002.JPG")}) {
            QCOMPARE(store.registeredCount(*model.session().folderId, name), 1);
            QCOMPARE(store.storedCount(name), 1);
        }
        QCOMPARE(model.uploadManager()->uploadedCount(), 2);
    }

    // A photo whose registration was under way when another's was turned away: its preview is
    // registered, and its original waits for the same moment as everything else.
    void anOriginalDueMeanwhileWaitsToo()
    {
        constexpr qint64 askedMs = 6000;
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Carmen")));
        const QString registering = QStringLiteral("register");
        QVERIFY(m_harness.service().injectFault(DevService::Fault::withHold(registering)));
        DevService::Fault busy = DevService::Fault::withStatus(registering, 429);
        busy.retryAfter = QString::number(askedMs / 1000);
        QVERIFY(m_harness.service().injectFault(busy));

        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0001.JPG"), SessionHarness::photoJpeg(1)));
        QTRY_COMPARE_WITH_TIMEOUT(m_harness.service().requests(registering).size(), 1, 30000);
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0002.JPG"), SessionHarness::photoJpeg(2)));
        QTRY_COMPARE_WITH_TIMEOUT(m_harness.service().requests(registering).size(), 2, 30000);
        const QDateTime turnedAway = m_harness.service().requests(registering).at(1).receivedAt;
        QVERIFY(m_harness.service().releaseHeld());

        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 2, 120000);
        QList<DevService::ReceivedRequest> original;
        for (const DevService::ReceivedRequest &request :
             m_harness.service().requests(QStringLiteral("presign"))) {
            if (request.query.contains({QStringLiteral("filename"), QStringLiteral("IMG_0001.JPG")}))
                original.append(request);
        }
        QCOMPARE(original.size(), 1);
        QVERIFY2(original.constFirst().receivedAt >= turnedAway.addMSecs(askedMs - 1),
                 qPrintable(QStringLiteral("its original went %1 ms after the refusal")
                                .arg(turnedAway.msecsTo(original.constFirst().receivedAt))));
        const StoredFiles store(m_harness.service());
        for (const QString &name : {QStringLiteral("IMG_0001.JPG"), QStringLiteral("IMG_0002.JPG")}) {
            QCOMPARE(store.registeredCount(*model.session().folderId, name), 1);
            QCOMPARE(store.storedCount(name), 1);
        }
    }

private:
    SessionHarness m_harness;
};

QTEST_GUILESS_MAIN(BusyServiceTest)
#include "tst_busyservice.moc"
