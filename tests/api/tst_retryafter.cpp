// SPDX-License-Identifier: MIT
// A busy server's Retry-After, in each form HTTP has given it: how long to wait from now.
#include "retryafter.h"

#include <QTest>
#include <QTimeZone>

using std::chrono::milliseconds;

class RetryAfterTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void readsAsAWaitFromNow_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<qint64>("expectedMs"); // -1: not a value to go by
        QTest::newRow("seconds") << QByteArray("120") << qint64(120000);
        QTest::newRow("no wait") << QByteArray("0") << qint64(0);
        QTest::newRow("seconds, spaces around") << QByteArray("  7 ") << qint64(7000);
        QTest::newRow("more than a day") << QByteArray("99999999999999999") << qint64(86400000);
        QTest::newRow("more than 64 bits hold") << QByteArray("123456789012345678901234567890")
                                                << qint64(86400000);
        QTest::newRow("http date") << QByteArray("Thu, 26 Nov 2026 10:00:30 GMT") << qint64(30000);
        QTest::newRow("old form, two-digit year")
            << QByteArray("Thursday, 26-Nov-26 10:01:00 GMT") << qint64(60000);
        QTest::newRow("asctime") << QByteArray("Thu Nov 26 10:00:05 2026") << qint64(5000);
        QTest::newRow("date already past") << QByteArray("Thu, 26 Nov 2026 09:59:00 GMT")
                                           << qint64(0);
        QTest::newRow("date days ahead") << QByteArray("Sat, 05 Dec 2026 10:00:00 GMT")
                                         << qint64(86400000);
        QTest::newRow("negative") << QByteArray("-5") << qint64(-1);
        QTest::newRow("fraction") << QByteArray("1.5") << qint64(-1);
        QTest::newRow("words") << QByteArray("soon") << qint64(-1);
        QTest::newRow("empty") << QByteArray() << qint64(-1);
        QTest::newRow("date with another zone") << QByteArray("Thu, 26 Nov 2026 10:00:30 CET")
                                                << qint64(-1);
    }
    void readsAsAWaitFromNow()
    {
        QFETCH(QByteArray, value);
        QFETCH(qint64, expectedMs);
        const QDateTime now(QDate(2026, 11, 26), QTime(10, 0), QTimeZone::utc());
        const std::optional<milliseconds> wait = RetryAfter::read(value, now);
        if (expectedMs < 0) {
            QVERIFY2(!wait, qPrintable(QString::number(wait ? wait->count() : 0)));
            return;
        }
        QVERIFY(wait);
        QCOMPARE(wait->count(), expectedMs);
    }
};

QTEST_GUILESS_MAIN(RetryAfterTest)
#include "tst_retryafter.moc"
