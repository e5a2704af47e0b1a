// SPDX-License-Identifier: MIT
// A folder watcher at work: cameras and editors writing while it watches, photos written at the
// worst moment for a poller, a folder left untouched, handlers that stop the watcher, a large
// folder. How soon photos come through is measured by bench/watch, not asserted here.
#include "watchfoldertest.h"

#include <QDir>
#include <QFile>
#include <QTest>
#include <QTimer>

class FolderWatcherLiveTest : public WatchFolderTest {
    Q_OBJECT

private Q_SLOTS:
    void cameraWritingInChunksIsHandedOverOnceAfterItsLastWrite_data() { addModes(); }

    void cameraWritingInChunksIsHandedOverOnceAfterItsLastWrite()
    {
        QFETCH(bool, notifications);
        makeWatcher(notifications).start();
        const QString name = QStringLiteral("IMG_0100.CR3");
        QFile file(path(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        const QByteArray chunk(256 * 1024, 'r');
        constexpr int chunks = 20;
        for (int i = 0; i < chunks; ++i) { // about two seconds, the event loop turning meanwhile
            QCOMPARE(file.write(chunk), chunk.size());
            QVERIFY(file.flush());
            QTest::qWait(100);
        }
        file.close();
        const qint64 lastWrite = modifiedAt(path(name));

        QTRY_COMPARE_WITH_TIMEOUT(m_handed.size(), 1, 10'000);
        const HandOver handOver = m_handed.first();
        QCOMPARE(handOver.name, name);
        QCOMPARE(handOver.size, qint64{chunks} * chunk.size());
        QCOMPARE(handOver.modified, lastWrite);
        QVERIFY(handOver.at - lastWrite > 1000);

        QVERIFY(writePhoto(QStringLiteral("IMG_0101.CR3")));
        QTRY_COMPARE_WITH_TIMEOUT(m_handed.size(), 2, 10'000);
        QCOMPARE(handedNames(), QStringList({name, "IMG_0101.CR3"}));
    }

    void photoSavedUnderATemporaryNameIsHandedOverOnce_data() { addModes(); }

    void photoSavedUnderATemporaryNameIsHandedOverOnce()
    {
        QFETCH(bool, notifications);
        makeWatcher(notifications).start();
        const QString temporary = path(QStringLiteral("IMG_0001.JPG.tmp"));
        QFile file(temporary);
        QVERIFY(file.open(QIODevice::WriteOnly));
        for (int i = 0; i < 5; ++i) {
            QCOMPARE(file.write(QByteArray(64 * 1024, 'j')), qint64{64 * 1024});
            QVERIFY(file.flush());
            QTest::qWait(100);
        }
        file.close();
        const qint64 lastWrite = modifiedAt(temporary);
        QVERIFY(QFile::rename(temporary, path(QStringLiteral("IMG_0001.JPG"))));

        QTRY_COMPARE_WITH_TIMEOUT(m_handed.size(), 1, 10'000);
        QCOMPARE(m_handed.first().size, qint64{5 * 64 * 1024});
        QVERIFY(m_handed.first().at - lastWrite > 1000);
        QVERIFY(writePhoto(QStringLiteral("IMG_0002.JPG")));
        QTRY_COMPARE_WITH_TIMEOUT(m_handed.size(), 2, 10'000);
        QCOMPARE(handedNames(), QStringList({"IMG_0001.JPG", "IMG_0002.JPG"}));
    }

    void freshPhotoIsHandedOverOnceAfterAQuietSecond_data() { addModes(); }

    // The worst moment for a watcher that only polls: a photo written just after a check.
    // The next poll finds it too young; whichever check finds it ready hands it over, once,
    // and never before it has been left alone for a whole second.
    void freshPhotoIsHandedOverOnceAfterAQuietSecond()
    {
        QFETCH(bool, notifications);
        makeWatcher(notifications).start();
        for (int round = 0; round < 3; ++round) {
            const QString marker = QStringLiteral("MARK_%1.JPG").arg(round);
            const QString fresh = QStringLiteral("IMG_%1.JPG").arg(round);
            qint64 written = 0;
            m_afterHandOver = [&](const QString &name) {
                if (name != marker)
                    return;
                QTimer::singleShot(100, this, [&] {
                    if (writeFile(path(fresh), "fresh"))
                        written = modifiedAt(path(fresh));
                });
            };
            // A complete photo appearing at once, handed over by the very check that found it.
            const QString temporary = path(marker + QStringLiteral(".tmp"));
            QVERIFY(writePhoto(marker + QStringLiteral(".tmp")));
            QVERIFY(QFile::rename(temporary, path(marker)));

            QTRY_VERIFY_WITH_TIMEOUT(handedNames().contains(fresh), 10'000);
            QVERIFY(written != 0);
            QCOMPARE(m_handed.last().name, fresh);
            QVERIFY2(m_handed.last().at - written > 1000,
                     qPrintable(QString::number(m_handed.last().at - written)));
        }
        m_afterHandOver = nullptr; // it refers to the rounds' locals
        QTest::qWait(1100); // one more poll, which must hand nothing over again
        QCOMPARE(handedNames(), QStringList({"MARK_0.JPG", "IMG_0.JPG", "MARK_1.JPG", "IMG_1.JPG",
                                             "MARK_2.JPG", "IMG_2.JPG"}));
    }

    void photoAppearingCompleteIsHandedOverOnce_data() { addModes(); }

    // A file renamed into place after it was written is ready the moment it appears. The
    // folder's notification brings the check forward; polling alone looks first a second after
    // the start, never at once.
    void photoAppearingCompleteIsHandedOverOnce()
    {
        QFETCH(bool, notifications);
        const QString temporary = path(QStringLiteral("IMG_0001.JPG.tmp"));
        QVERIFY(writeFile(temporary, "x"));
        QVERIFY(setModified(temporary, longAgo()));
        FolderWatcher &watcher = makeWatcher(notifications);
        watcher.start();
        const qint64 started = now();
        QVERIFY(QFile::rename(temporary, path(QStringLiteral("IMG_0001.JPG"))));
        QTRY_COMPARE_WITH_TIMEOUT(m_handed.size(), 1, 10'000);
        QCOMPARE(m_handed.first().name, QStringLiteral("IMG_0001.JPG"));
        if (!notifications) {
            // The first poll, one second after the start (a coarse timer may come a little early).
            QVERIFY2(m_handed.first().at - started >= 900,
                     qPrintable(QString::number(m_handed.first().at - started)));
        }
        QTest::qWait(1100);
        QCOMPARE(m_handed.size(), 1);
    }

    void photoInAFolderWhoseTimeStandsStillIsFound_data() { addModes(); }

    // Network shares, FUSE mounts and cloud-drive folders may leave a folder's own modification
    // time as it was when a file is added to it. Here the folder's time is put back after the
    // photo is written, the way such a file system would have left it.
    void photoInAFolderWhoseTimeStandsStillIsFound()
    {
        QFETCH(bool, notifications);
        const QDateTime folderTime = longAgo();
        QVERIFY(setModified(m_folder, folderTime));
        FolderWatcher &watcher = makeWatcher(notifications);
        watcher.start();
        watcher.checkForNewFiles(); // the folder is seen settled, with nothing new in it
        QVERIFY(writePhoto(QStringLiteral("IMG_0001.CR3")));
        QVERIFY(setModified(m_folder, folderTime));
        QCOMPARE(modifiedAt(m_folder), folderTime.toMSecsSinceEpoch());
        QTRY_COMPARE_WITH_TIMEOUT(handedNames(), QStringList({"IMG_0001.CR3"}), 20'000);
    }

    void watchFolderIsLeftUntouched()
    {
        QVERIFY(writePhoto(QStringLiteral("A.jpg")));
        QVERIFY(writeFile(path(QStringLiteral("B.CR3")), QByteArray(300'000, 'b')));
        QVERIFY(writeFile(path(QStringLiteral("empty.png")), ""));
        QVERIFY(writeFile(path(QStringLiteral("notes.txt")), "notes"));
        QVERIFY(QDir().mkpath(path(QStringLiteral("x.jpg"))));
        QVERIFY(writeFile(path(QStringLiteral("x.jpg/inner.jpg")), "inner"));
        QVERIFY(setModified(path(QStringLiteral("x.jpg")), longAgo()));
        const QStringList before = snapshot(m_folder);

        // Nothing known yet, so every name is examined and most are handed over.
        m_watcher = std::make_unique<FolderWatcher>(
            folderUrl(), [this](const QUrl &file) { record(file); }, QSet<QString>());
        m_watcher->start();
        QTRY_COMPARE_WITH_TIMEOUT(m_handed.size(), 3, 10'000);
        QTest::qWait(1100); // one more poll over the files that stay behind
        m_watcher->invalidateTimer();
        QStringList handed = handedNames();
        handed.sort();
        QCOMPARE(handed, QStringList({"A.jpg", "B.CR3", "x.jpg"}));
        QCOMPARE(snapshot(m_folder), before);
    }

    void stoppedWatcherHandsNothingOver()
    {
        FolderWatcher &watcher = makeWatcher();
        watcher.start();
        QVERIFY(watcher.isRunning());
        QVERIFY(writeFile(path(QStringLiteral("IMG_0001.JPG")), "still being written"));
        QTest::qWait(100); // seen, not ready yet: a follow-up is due
        watcher.invalidateTimer();
        QVERIFY(!watcher.isRunning());
        QVERIFY(writePhoto(QStringLiteral("IMG_0002.JPG")));

        // A second watcher on the same folder shows what the stopped one would have found.
        QStringList found;
        FolderWatcher other(
            folderUrl(), [&](const QUrl &file) { found.append(file.fileName()); }, {});
        other.start();
        QTRY_COMPARE_WITH_TIMEOUT(found.size(), 2, 10'000);
        watcher.checkForNewFiles();
        QVERIFY(m_handed.isEmpty());
    }

    void handlerMayStopTheWatcher()
    {
        FolderWatcher &watcher = makeWatcher();
        QVERIFY(writePhoto(QStringLiteral("A.jpg")));
        QVERIFY(writePhoto(QStringLiteral("B.jpg")));
        m_afterHandOver = [this](const QString &) { m_watcher->invalidateTimer(); };
        watcher.start();
        watcher.checkForNewFiles();
        QCOMPARE(handedNames(), QStringList({"A.jpg"}));
        QTest::qWait(1100);
        QCOMPARE(handedNames(), QStringList({"A.jpg"}));
    }

    void handlerMayReleaseTheWatcher()
    {
        FolderWatcher &watcher = makeWatcher();
        QVERIFY(writePhoto(QStringLiteral("A.jpg")));
        QVERIFY(writePhoto(QStringLiteral("B.jpg")));
        m_afterHandOver = [this](const QString &) { m_watcher.reset(); };
        watcher.checkForNewFiles();
        QCOMPARE(handedNames(), QStringList({"A.jpg"}));
    }

    void largeFolderOnlyNewPhotosAreHandedOver()
    {
        constexpr int existing = 10'000;
        for (int i = 0; i < existing; ++i)
            QVERIFY(writeFile(path(QStringLiteral("OLD_%1.CR3").arg(i, 5, 10, QLatin1Char('0'))), "o"));
        FolderWatcher &watcher = makeWatcher();
        QCOMPARE(watcher.knownFiles().size(), existing);
        watcher.start();
        QVERIFY(writePhoto(QStringLiteral("NEW_0001.CR3")));
        QTRY_COMPARE_WITH_TIMEOUT(m_handed.size(), 1, 10'000);
        QCOMPARE(handedNames(), QStringList({"NEW_0001.CR3"}));
        QCOMPARE(watcher.knownFiles().size(), existing + 1);
    }
};

QTEST_GUILESS_MAIN(FolderWatcherLiveTest)
#include "tst_folderwatcherlive.moc"
