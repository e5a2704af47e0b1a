// SPDX-License-Identifier: MIT
// A photo the camera is still sending when the folder watcher hands it over: a transfer that
// stalls halfway, a file written again under the same name. Each ends with its preview
// registered once and its original stored once, as the file finally is.
#include "delivery.h"
#include "sessionharness.h"
#include "sessionviewmodel.h"
#include "storedfiles.h"
#include "uploadmanager.h"

#include <QFile>
#include <QTest>

#include <functional>

class StalledWritesTest : public QObject {
    Q_OBJECT

    // Writes `bytes` in eight pieces; after the fourth the transfer stalls until `taken` says
    // the half-written file was handed over and an attempt has taken it. A wait for that, not
    // for a time, so that a loaded machine changes nothing.
    bool writeWithAStall(const QString &name, const QByteArray &bytes, qsizetype stallAt,
                         const std::function<bool()> &taken)
    {
        QFile file(m_harness.pathOf(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes.left(stallAt)) != stallAt ||
            !file.flush())
            return false;
        if (!QTest::qWaitFor(taken, 30000))
            return false;
        const QByteArray rest = bytes.mid(stallAt);
        const qsizetype piece = rest.size() / 4 + 1;
        for (qsizetype at = 0; at < rest.size(); at += piece) {
            if (file.write(rest.mid(at, piece)) < 0 || !file.flush())
                return false;
        }
        return true;
    }

    void expectOnceAsFinallyWritten(SessionViewModel &model, const QString &name,
                                    const QByteArray &finalBytes)
    {
        const qint64 folderId = *model.session().folderId;
        const StoredFiles store(m_harness.service());
        QTRY_VERIFY_WITH_TIMEOUT(StoredFiles(m_harness.service()).objectNamed(name) == finalBytes,
                                 60000);
        QTRY_COMPARE_WITH_TIMEOUT(model.deliveries().unfinishedCount(), 0, 30000);
        QCOMPARE(store.registeredCount(folderId, name), 1);
        QCOMPARE(m_harness.service().registeredFiles(folderId).size(), 1);
        QCOMPARE(StoredFiles(m_harness.service()).storedCount(name), 1);
        QCOMPARE(model.uploadManager()->uploadedCount(), 1);
        QCOMPARE(model.uploadManager()->fullResTotal(), 1);
        QCOMPARE(model.uploadManager()->fullResUploaded(), 1);
        QVERIFY(!model.refusedNotice().isValid());
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY2(m_harness.start(), qPrintable(m_harness.errorString())); }
    void init() { m_harness.resetForTest(); }

    void aJpegThatStallsHalfwayArrivesAsFinallyWritten()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Irene")));
        const QByteArray photo = SessionHarness::photoJpeg(7, 1600, 1067);
        // The half file gives no preview: the first attempt fails, as it must.
        const QString failed = QStringLiteral("No se pudo procesar IMG_0001.JPG");
        QVERIFY(writeWithAStall(QStringLiteral("IMG_0001.JPG"), photo, photo.size() / 2,
                                [&] { return model.uploadManager()->error() == failed; }));
        expectOnceAsFinallyWritten(model, QStringLiteral("IMG_0001.JPG"), photo);
    }

    void aRawWhosePreviewComesFirstArrivesAsFinallyWritten()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Julia")));
        // What a camera writes first is already a whole raw with its picture; the rest of the
        // file (here, trailing data the camera appends) comes after the stall. The original
        // first stored is the file cut short.
        const QByteArray head = SessionHarness::photoRaw(8);
        QVERIFY(!head.isEmpty());
        const QByteArray photo = head + QByteArray(96 * 1024, '\x5A');
        QVERIFY(writeWithAStall(QStringLiteral("DSC_0001.DNG"), photo, head.size(), [&] {
            return model.uploadManager()->fullResUploaded() == 1;
        }));
        QCOMPARE(StoredFiles(m_harness.service()).objectNamed(QStringLiteral("DSC_0001.DNG")), head);
        expectOnceAsFinallyWritten(model, QStringLiteral("DSC_0001.DNG"), photo);
    }

    void aFileWrittenAgainAfterItWasStoredGoesAgainOnce()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Karen")));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0002.JPG"), SessionHarness::photoJpeg(9)));
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), 1, 30000);
        const QByteArray rewritten = SessionHarness::photoJpeg(10);
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0002.JPG"), rewritten, false));
        expectOnceAsFinallyWritten(model, QStringLiteral("IMG_0002.JPG"), rewritten);
        // Its preview was made once: only a first attempt that failed is made again.
        QCOMPARE(StoredFiles(m_harness.service()).presignedNames().count(
                     QStringLiteral("preview_IMG_0002.jpg")),
                 1);
    }

    void aFileThatStaysBrokenIsListed()
    {
        SessionViewModel model;
        QVERIFY(m_harness.signIn(model));
        QVERIFY(m_harness.startSession(model, QStringLiteral("Laura")));
        QVERIFY(m_harness.dropPhoto(QStringLiteral("IMG_0003.JPG"), QByteArray(4096, '\x42')));
        QTRY_COMPARE_WITH_TIMEOUT(model.refusedNotice(),
                                  QVariant(QStringLiteral("No se pudo enviar: IMG_0003.JPG")), 30000);
        // Unchanged, it is not tried again: no request for it ever reaches the service.
        QTest::qWait(2500);
        QCOMPARE(m_harness.service().requests(QStringLiteral("presign")).size(), 0);
        QCOMPARE(model.deliveries().unfinishedCount(), 0);
    }

private:
    SessionHarness m_harness;
};

QTEST_GUILESS_MAIN(StalledWritesTest)
#include "tst_stalledwrites.moc"
