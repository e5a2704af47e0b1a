// SPDX-License-Identifier: MIT
// The watcher's early word that a candidate has stopped changing: said once per modification
// time, a fifth of a second after the last write and before the hand-over, which itself still
// waits for the full second.
//
// The word is due only when the watcher looks at a photo that has been quiet for a fifth of a
// second but not yet for a whole one. A test process held up for most of a second on a loaded
// machine may first look when the photo is ready, and then hands it over without a word, as it
// should. So the tests that wait for the word write another photo when that happens, and fail
// only on a word said wrongly or on several photos in a row without one.
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

    QList<Quiet> quietOf(const QString &name) const
    {
        QList<Quiet> said;
        for (const Quiet &quiet : m_quiet) {
            if (quiet.name == name)
                said.append(quiet);
        }
        return said;
    }

    // How many photos in a row may be handed over without the word before a test gives up.
    static constexpr int attempts = 3;

private Q_SLOTS:
    void saidOnceBetweenTheLastWriteAndTheHandOver_data() { addModes(); }
    void saidOnceBetweenTheLastWriteAndTheHandOver()
    {
        QFETCH(bool, notifications);
        startWatcher(notifications);
        // Clear of the first poll, which would find a photo written at the start just ready.
        QTest::qWait(300);
        int said = 0;
        for (int attempt = 0; attempt < attempts && said == 0; ++attempt) {
            const QString name = QStringLiteral("IMG_000%1.JPG").arg(attempt);
            QVERIFY(PhotoFiles::writeFile(path(name), "photo bytes"));
            const qint64 modified = modifiedAt(path(name));
            QTRY_VERIFY_WITH_TIMEOUT(handedNames().contains(name), 5000);
            QTest::qWait(1200); // one more poll and follow-up, which must say nothing more
            QCOMPARE(handedNames().count(name), 1);
            const QList<Quiet> words = quietOf(name);
            QVERIFY2(words.size() <= 1, qPrintable(QString::number(words.size())));
            if (words.isEmpty())
                continue;
            said = 1;
            QVERIFY2(words[0].at >= modified + FolderWatcher::quietAfterMilliseconds,
                     qPrintable(QStringLiteral("said %1 ms after the write").arg(words[0].at - modified)));
            QVERIFY(words[0].at < m_handed.last().at);
            QVERIFY(m_handed.last().at > modified + 1000);
        }
        QVERIFY2(said == 1, "no photo was said to have gone quiet");
        QCOMPARE(quietNames(), QStringList{m_handed.last().name});
    }

    void saidAgainAfterAnotherWrite()
    {
        startWatcher();
        bool saidTwice = false;
        for (int attempt = 0; attempt < attempts && !saidTwice; ++attempt) {
            const QString name = QStringLiteral("IMG_001%1.JPG").arg(attempt);
            const QString photo = path(name);
            QVERIFY(PhotoFiles::writeFile(photo, "first half"));
            QTRY_VERIFY_WITH_TIMEOUT(!quietOf(name).isEmpty() || handedNames().contains(name), 5000);
            if (handedNames().contains(name))
                continue; // looked at first when it was ready: no word due
            QFile file(photo);
            QVERIFY(file.open(QIODevice::Append));
            QVERIFY(file.write(" and the rest") > 0);
            file.close();
            const qint64 modified = modifiedAt(photo);
            QTRY_VERIFY_WITH_TIMEOUT(handedNames().contains(name), 5000);
            QTest::qWait(1200);
            QCOMPARE(handedNames().count(name), 1);
            QVERIFY(m_handed.last().at > modified + 1000);
            const QList<Quiet> words = quietOf(name);
            QVERIFY2(words.size() <= 2, qPrintable(QString::number(words.size())));
            if (words.size() < 2)
                continue; // the second write was first looked at when it was ready
            saidTwice = true;
            QVERIFY(words[1].at >= modified + FolderWatcher::quietAfterMilliseconds);
            QVERIFY(words[1].at < m_handed.last().at);
        }
        QVERIFY2(saidTwice, "no photo was said to have gone quiet again after another write");
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
        // Of the photo, the word may have been said or not (see the top of this file).
        QVERIFY2(quietNames().isEmpty() || quietNames() == QStringList{QStringLiteral("IMG_0003.JPG")},
                 qPrintable(quietNames().join(QLatin1Char(' '))));
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
