// SPDX-License-Identifier: MIT
// The watcher's early word that a candidate has stopped changing: said once per modification
// time, a fifth of a second after the last write and before the hand-over, which itself still
// waits for the full second.
#include "photofiles.h"
#include "watchfoldertest.h"

#include <QDateTime>
#include <QFile>
#include <QTest>

class FolderWatcherQuietTest : public WatchFolderTest {
    Q_OBJECT

    struct Quiet {
        QString name;
        qint64 at;
    };
    QList<Quiet> m_quiet;

    // Once per test function, so also where the record of what was said starts afresh.
    void startWatcher(bool notifications = true)
    {
        m_quiet.clear();
        FolderWatcher &watcher = makeWatcher(notifications);
        connect(&watcher, &FolderWatcher::candidateQuiet, this,
                [this](const QUrl &file) { m_quiet.append({file.fileName(), now()}); });
        watcher.start();
    }

    QStringList quietNames() const
    {
        QStringList names;
        for (const Quiet &quiet : m_quiet)
            names.append(quiet.name);
        return names;
    }

private Q_SLOTS:
    void saidOnceBetweenTheLastWriteAndTheHandOver_data() { addModes(); }
    void saidOnceBetweenTheLastWriteAndTheHandOver()
    {
        QFETCH(bool, notifications);
        startWatcher(notifications);
        // Well clear of the first poll, which would otherwise find the photo ready already.
        QTest::qWait(300);
        QVERIFY(PhotoFiles::writeFile(path(QStringLiteral("IMG_0001.JPG")), "photo bytes"));
        const qint64 modified = modifiedAt(path(QStringLiteral("IMG_0001.JPG")));
        QTRY_COMPARE_WITH_TIMEOUT(m_handed.size(), 1, 5000);
        QTest::qWait(1200);
        QCOMPARE(quietNames(), QStringList{QStringLiteral("IMG_0001.JPG")});
        QCOMPARE(handedNames(), QStringList{QStringLiteral("IMG_0001.JPG")});
        QVERIFY2(m_quiet[0].at >= modified + FolderWatcher::quietAfterMilliseconds,
                 qPrintable(QStringLiteral("said %1 ms after the write").arg(m_quiet[0].at - modified)));
        QVERIFY(m_quiet[0].at < m_handed[0].at);
        QVERIFY(m_handed[0].at > modified + 1000);
    }

    void saidAgainAfterAnotherWrite()
    {
        startWatcher();
        const QString photo = path(QStringLiteral("IMG_0002.JPG"));
        QVERIFY(PhotoFiles::writeFile(photo, "first half"));
        QTRY_COMPARE_WITH_TIMEOUT(m_quiet.size(), 1, 5000);
        QVERIFY(m_handed.isEmpty());
        QFile file(photo);
        QVERIFY(file.open(QIODevice::Append));
        QVERIFY(file.write(" and the rest") > 0);
        file.close();
        const qint64 modified = modifiedAt(photo);
        QTRY_COMPARE_WITH_TIMEOUT(m_handed.size(), 1, 5000);
        QTest::qWait(1200);
        QCOMPARE(quietNames(), (QStringList{QStringLiteral("IMG_0002.JPG"), QStringLiteral("IMG_0002.JPG")}));
        QVERIFY(m_quiet[1].at >= modified + FolderWatcher::quietAfterMilliseconds);
        QCOMPARE(m_handed.size(), 1);
        QVERIFY(m_handed[0].at > modified + 1000);
    }

    void neverSaidOfFilesThatAreNotCandidates()
    {
        QVERIFY(PhotoFiles::writeFile(path(QStringLiteral("KNOWN.JPG")), "there at the start"));
        startWatcher();
        QVERIFY(PhotoFiles::writeFile(path(QStringLiteral("KNOWN.JPG")), "written again"));
        QVERIFY(PhotoFiles::writeFile(path(QStringLiteral(".hidden.jpg")), "hidden"));
        QVERIFY(PhotoFiles::writeFile(path(QStringLiteral("notes.txt")), "notes"));
        QVERIFY(PhotoFiles::writeFile(path(QStringLiteral("IMG_0003.JPG.part")), "partial"));
        QVERIFY(PhotoFiles::writeFile(path(QStringLiteral("EMPTY.JPG")), ""));
        QVERIFY(PhotoFiles::writeFile(path(QStringLiteral("IMG_0003.JPG")), "a photo"));
        QTRY_COMPARE_WITH_TIMEOUT(m_handed.size(), 1, 5000);
        QTest::qWait(1500);
        QCOMPARE(quietNames(), QStringList{QStringLiteral("IMG_0003.JPG")});
        QCOMPARE(handedNames(), QStringList{QStringLiteral("IMG_0003.JPG")});
    }

    void notSaidOfAPhotoThatIsReadyWhenItAppears()
    {
        // Finished elsewhere long ago, then moved in: it goes straight to the hand-over.
        const QString outside = m_root->filePath(QStringLiteral("IMG_0004.JPG"));
        QVERIFY(PhotoFiles::writeFile(outside, "finished photo"));
        QFile file(outside);
        QVERIFY(file.open(QIODevice::Append));
        QVERIFY(file.setFileTime(QDateTime::currentDateTime().addSecs(-3600),
                                 QFileDevice::FileModificationTime));
        file.close();
        startWatcher();
        QVERIFY(QFile::rename(outside, path(QStringLiteral("IMG_0004.JPG"))));
        QTRY_COMPARE_WITH_TIMEOUT(m_handed.size(), 1, 5000);
        QTest::qWait(500);
        QVERIFY(m_quiet.isEmpty());
    }

    void nothingIsSaidOnceStopped()
    {
        startWatcher();
        QVERIFY(PhotoFiles::writeFile(path(QStringLiteral("IMG_0005.JPG")), "a photo"));
        m_watcher->invalidateTimer();
        QTest::qWait(1500);
        QVERIFY(m_quiet.isEmpty());
        QVERIFY(m_handed.isEmpty());
    }
};

QTEST_GUILESS_MAIN(FolderWatcherQuietTest)
#include "tst_folderwatcherquiet.moc"
