// SPDX-License-Identifier: MIT
// The folder watcher's rules: which names count, when a file is ready, what is handed over
// and in which order, and what never is.
#include "watchfoldertest.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

class FolderWatcherTest : public WatchFolderTest {
    Q_OBJECT

private Q_SLOTS:
    void listFilesKeepsPhotoNamesOnly()
    {
        const QStringList accepted = {"a.jpg", "b.JPEG", "c.Cr2", "d.CR3", "e.nef", "f.ARW",
                                      "g.raf", "h.dng", "i.TIFF", "j.tif", "k.PNG", "empty.jpg"};
        const QStringList refused = {"IMG_0001.jpg.part", "notes.txt", ".hidden.jpg",
                                     "._IMG_0001.JPG", "noextension", "IMG.", "jpg",
                                     "IMG_0002.jpgx", "IMG_0003.xmp"};
        for (const QString &name : accepted + refused)
            QVERIFY(writeFile(path(name), name == QStringLiteral("empty.jpg") ? "" : "x"));
        QVERIFY(QDir(m_folder).mkpath(QStringLiteral("x.jpg/nested.jpg")));

        QSet<QString> expected(accepted.begin(), accepted.end());
        expected.insert(QStringLiteral("x.jpg")); // a folder passes the name test
        QCOMPARE(FolderWatcher::listFiles(folderUrl()), expected);
    }

    void listFilesOfWhatCannotBeListedIsEmpty()
    {
        QVERIFY(writePhoto(QStringLiteral("a.jpg")));
        QCOMPARE(FolderWatcher::listFiles(QUrl::fromLocalFile(path(QStringLiteral("gone")))),
                 QSet<QString>());
        QCOMPARE(FolderWatcher::listFiles(QUrl::fromLocalFile(path(QStringLiteral("a.jpg")))),
                 QSet<QString>());
        QCOMPARE(FolderWatcher::listFiles(QUrl(QStringLiteral("https://example.com/shoot"))),
                 QSet<QString>());
        QCOMPARE(FolderWatcher::listFiles(QUrl()), QSet<QString>());
    }

    void isFileReadyWantsContentAndAnOldEnoughDate()
    {
        QVERIFY(!FolderWatcher::isFileReady(QUrl::fromLocalFile(path(QStringLiteral("no.jpg")))));

        QVERIFY(writeFile(path(QStringLiteral("empty.jpg")), ""));
        QVERIFY(setModified(path(QStringLiteral("empty.jpg")), longAgo()));
        QVERIFY(!FolderWatcher::isFileReady(QUrl::fromLocalFile(path(QStringLiteral("empty.jpg")))));

        QVERIFY(writePhoto(QStringLiteral("old.jpg")));
        QVERIFY(FolderWatcher::isFileReady(QUrl::fromLocalFile(path(QStringLiteral("old.jpg")))));

        QVERIFY(writeFile(path(QStringLiteral("ahead.jpg")), "x"));
        QVERIFY(setModified(path(QStringLiteral("ahead.jpg")),
                            QDateTime::currentDateTime().addSecs(3600)));
        QVERIFY(!FolderWatcher::isFileReady(QUrl::fromLocalFile(path(QStringLiteral("ahead.jpg")))));

        QVERIFY(!FolderWatcher::isFileReady(QUrl(QStringLiteral("https://example.com/a.jpg"))));
    }

    void isFileReadyOnlyMoreThanASecondAfterTheLastWrite_data()
    {
        QTest::addColumn<qint64>("offset");
        QTest::newRow("written now") << qint64{0};
        QTest::newRow("dated 1.5 s ahead") << qint64{1500};
    }

    void isFileReadyOnlyMoreThanASecondAfterTheLastWrite()
    {
        QFETCH(qint64, offset);
        const QString file = path(QStringLiteral("IMG_0001.JPG"));
        QVERIFY(writeFile(file, "x"));
        if (offset != 0)
            QVERIFY(setModified(file, QDateTime::currentDateTime().addMSecs(offset)));
        const qint64 modified = modifiedAt(file);

        qint64 firstReady = 0;
        while (now() - modified < 10'000) {
            if (FolderWatcher::isFileReady(QUrl::fromLocalFile(file))) {
                firstReady = now();
                break;
            }
            QTest::qWait(5);
        }
        QVERIFY2(firstReady != 0, "never became ready");
        QVERIFY2(firstReady - modified > 1000,
                 qPrintable(QStringLiteral("ready %1 ms after its date").arg(firstReady - modified)));
    }

    void filesPresentAtStartAreNeverHandedOver()
    {
        QVERIFY(writePhoto(QStringLiteral("A.jpg")));
        QVERIFY(writePhoto(QStringLiteral("B.CR3")));
        FolderWatcher &watcher = makeWatcher();
        QCOMPARE(watcher.knownFiles(), QSet<QString>({"A.jpg", "B.CR3"}));
        watcher.start();

        // Written again and complete once more: still the same names.
        QVERIFY(writePhoto(QStringLiteral("A.jpg"), "new bytes"));
        QVERIFY(writePhoto(QStringLiteral("B.CR3"), "new bytes"));
        QVERIFY(writePhoto(QStringLiteral("C.jpg")));
        QTRY_VERIFY_WITH_TIMEOUT(handedNames().contains(QStringLiteral("C.jpg")), 10'000);
        QCOMPARE(handedNames(), QStringList({"C.jpg"}));
        QCOMPARE(m_handed.first().file, QUrl::fromLocalFile(path(QStringLiteral("C.jpg"))));
    }

    void onlyPhotoNamesAreHandedOver()
    {
        FolderWatcher &watcher = makeWatcher();
        const QStringList names = {"IMG_0001.JPG", "IMG_0001.jpg.part", "notes.txt",
                                   ".hidden.jpg", "._IMG_0001.JPG"};
        for (const QString &name : names)
            QVERIFY(writePhoto(name));
        watcher.checkForNewFiles();
        QCOMPARE(handedNames(), QStringList({"IMG_0001.JPG"}));
        watcher.checkForNewFiles();
        QCOMPARE(handedNames(), QStringList({"IMG_0001.JPG"}));
    }

    void handOverRecordsTheNameFirst()
    {
        FolderWatcher &watcher = makeWatcher();
        QVERIFY(writePhoto(QStringLiteral("IMG_0001.JPG")));
        watcher.checkForNewFiles();
        QCOMPARE(m_handed.size(), 1);
        QVERIFY(m_handed.first().alreadyKnown);
    }

    void emptyPhotoWaitsForContentAndAQuietSecond()
    {
        FolderWatcher &watcher = makeWatcher();
        const QString file = path(QStringLiteral("IMG_0001.JPG"));
        QVERIFY(writeFile(file, ""));
        QVERIFY(setModified(file, longAgo()));
        watcher.checkForNewFiles();
        QVERIFY(m_handed.isEmpty());
        QVERIFY(!watcher.knownFiles().contains(QStringLiteral("IMG_0001.JPG")));

        watcher.start();
        QVERIFY(writePhoto(QStringLiteral("IMG_0002.JPG")));
        QTRY_VERIFY_WITH_TIMEOUT(!m_handed.isEmpty(), 10'000);
        QCOMPARE(handedNames(), QStringList({"IMG_0002.JPG"}));

        QVERIFY(writeFile(file, "now with content"));
        const qint64 written = modifiedAt(file);
        QTRY_COMPARE_WITH_TIMEOUT(m_handed.size(), 2, 10'000);
        const HandOver &handOver = m_handed.last();
        QCOMPARE(handOver.name, QStringLiteral("IMG_0001.JPG"));
        QCOMPARE(handOver.size, qint64{16});
        QVERIFY(handOver.at - written > 1000);
    }

    void photoDatedAheadWaitsUntilThatMomentHasPassed()
    {
        FolderWatcher &watcher = makeWatcher();
        watcher.start();
        const QString file = path(QStringLiteral("IMG_0001.JPG"));
        QVERIFY(writeFile(file, "x"));
        QVERIFY(setModified(file, QDateTime::currentDateTime().addMSecs(1500)));
        const qint64 dated = modifiedAt(file);
        QTRY_COMPARE_WITH_TIMEOUT(m_handed.size(), 1, 10'000);
        QVERIFY2(m_handed.first().at - dated > 1000,
                 qPrintable(QStringLiteral("handed over %1 ms after its date")
                                .arg(m_handed.first().at - dated)));
    }

    void newPhotosOfOneCheckComeInCodePointOrder_data()
    {
        QTest::addColumn<bool>("notifications");
        QTest::addColumn<bool>("quiet");
        QTest::newRow("notifications, complete files") << true << true;
        QTest::newRow("notifications, fresh files") << true << false;
        QTest::newRow("polling, complete files") << false << true;
        QTest::newRow("polling, fresh files") << false << false;
    }

    void newPhotosOfOneCheckComeInCodePointOrder()
    {
        QFETCH(bool, notifications);
        QFETCH(bool, quiet);
        FolderWatcher &watcher = makeWatcher(notifications);
        watcher.start();
        // UTF-16 order would put the emoji (a surrogate pair) before the full-width letter.
        const QStringList ordered = {"IMG_0009.CR3", "IMG_0010.CR3", "img_0001.cr3",
                                     QStringLiteral("\uFF21.jpg"),
                                     QStringLiteral("\U0001F600.jpg")};
        // Written in reverse, all dated alike, so that whichever check sees one sees them all
        // as equally ready.
        const QDateTime dated = quiet ? longAgo() : QDateTime::currentDateTime();
        for (auto name = ordered.crbegin(); name != ordered.crend(); ++name) {
            QVERIFY(writeFile(path(*name), "x"));
            QVERIFY(setModified(path(*name), dated));
        }
        QTRY_COMPARE_WITH_TIMEOUT(m_handed.size(), ordered.size(), 10'000);
        QCOMPARE(handedNames(), ordered);
    }

    void photoWrittenAgainAfterHandOverIsNotHandedOverAgain()
    {
        FolderWatcher &watcher = makeWatcher();
        QVERIFY(writePhoto(QStringLiteral("IMG_0001.JPG")));
        watcher.checkForNewFiles();
        QCOMPARE(handedNames(), QStringList({"IMG_0001.JPG"}));

        QVERIFY(QFile::remove(path(QStringLiteral("IMG_0001.JPG"))));
        watcher.checkForNewFiles();
        QVERIFY(watcher.knownFiles().contains(QStringLiteral("IMG_0001.JPG")));
        QVERIFY(writePhoto(QStringLiteral("IMG_0001.JPG"), "another photo"));
        QVERIFY(writePhoto(QStringLiteral("IMG_0002.JPG")));
        watcher.checkForNewFiles();
        QCOMPARE(handedNames(), QStringList({"IMG_0001.JPG", "IMG_0002.JPG"}));
    }

    void subfolderWithAPhotoNameIsHandedOverWhenItLooksComplete()
    {
        FolderWatcher &watcher = makeWatcher();
        const QString subfolder = path(QStringLiteral("x.jpg"));
        QVERIFY(QDir().mkpath(subfolder));
        QVERIFY(writeFile(subfolder + QStringLiteral("/inner.jpg"), "x"));
        QVERIFY(setModified(subfolder, longAgo()));
        // ext4 and most other file systems give a folder a non-zero size.
        QVERIFY2(QFileInfo(subfolder).size() > 0, "this file system reports empty folders");
        watcher.checkForNewFiles();
        QCOMPARE(handedNames(), QStringList({"x.jpg"}));
    }

    void removedFolderGivesNothingUntilItComesBack_data() { addModes(); }

    void removedFolderGivesNothingUntilItComesBack()
    {
        QFETCH(bool, notifications);
        FolderWatcher &watcher = makeWatcher(notifications);
        watcher.start();
        QVERIFY(writePhoto(QStringLiteral("A.jpg")));
        QTRY_COMPARE_WITH_TIMEOUT(m_handed.size(), 1, 10'000);

        QVERIFY(QDir(m_folder).removeRecursively());
        watcher.checkForNewFiles();
        QTest::qWait(1500); // polls and notifications meet the missing folder; no warning
        QCOMPARE(handedNames(), QStringList({"A.jpg"}));
        QVERIFY(watcher.isRunning());

        QVERIFY(QDir().mkpath(m_folder));
        QVERIFY(writePhoto(QStringLiteral("A.jpg")));
        QVERIFY(writePhoto(QStringLiteral("B.jpg")));
        QTRY_COMPARE_WITH_TIMEOUT(m_handed.size(), 2, 10'000);
        QCOMPARE(handedNames(), QStringList({"A.jpg", "B.jpg"}));

        // Listening again on the new folder, or polling it.
        QVERIFY(writePhoto(QStringLiteral("C.jpg")));
        QTRY_COMPARE_WITH_TIMEOUT(m_handed.size(), 3, 10'000);
        QCOMPARE(handedNames(), QStringList({"A.jpg", "B.jpg", "C.jpg"}));
    }
};

QTEST_GUILESS_MAIN(FolderWatcherTest)
#include "tst_folderwatcher.moc"
