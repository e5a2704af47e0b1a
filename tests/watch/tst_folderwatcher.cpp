// SPDX-License-Identifier: MIT
#include "folderwatcher.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <memory>

#ifdef Q_OS_UNIX
#include <sys/time.h>
#endif

namespace {

qint64 now()
{
    return QDateTime::currentMSecsSinceEpoch();
}

QDateTime longAgo()
{
    return QDateTime::currentDateTime().addSecs(-3600);
}

qint64 modifiedAt(const QString &path)
{
    return QFileInfo(path).lastModified().toMSecsSinceEpoch();
}

bool setModified(const QString &path, const QDateTime &time)
{
    if (QFileInfo(path).isDir()) {
#ifdef Q_OS_UNIX
        // Qt has no way to date a folder; access and modification time alike will do.
        const qint64 ms = time.toMSecsSinceEpoch();
        const timeval when{static_cast<time_t>(ms / 1000),
                           static_cast<suseconds_t>((ms % 1000) * 1000)};
        const timeval times[2] = {when, when};
        return utimes(QFile::encodeName(path).constData(), times) == 0;
#else
        return false;
#endif
    }
    QFile file(path);
    return file.open(QIODevice::Append)
        && file.setFileTime(time, QFileDevice::FileModificationTime);
}

bool writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

// Names, sizes, modification times and contents of everything in a folder, subfolders included.
QStringList snapshot(const QString &folder)
{
    QStringList lines;
    const QFileInfoList entries = QDir(folder).entryInfoList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    for (const QFileInfo &entry : entries) {
        QString line = entry.fileName() + QLatin1Char(' ')
            + QString::number(entry.lastModified().toMSecsSinceEpoch());
        if (entry.isDir()) {
            lines.append(line);
            for (const QString &inner : snapshot(entry.filePath()))
                lines.append(entry.fileName() + QLatin1Char('/') + inner);
            continue;
        }
        QFile file(entry.filePath());
        if (!file.open(QIODevice::ReadOnly))
            return {QStringLiteral("unreadable ") + entry.fileName()};
        line += QLatin1Char(' ') + QString::number(entry.size()) + QLatin1Char(' ')
            + QString::fromLatin1(
                    QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256).toHex());
        lines.append(line);
    }
    return lines;
}

struct HandOver {
    QUrl file;
    QString name;
    qint64 at;       // wall-clock milliseconds when the handler ran
    qint64 size;     // as the handler found the file
    qint64 modified; // as the handler found the file
    bool alreadyKnown;
};

} // namespace

class FolderWatcherTest : public QObject {
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_root;
    QString m_folder;
    QList<HandOver> m_handed;
    std::unique_ptr<FolderWatcher> m_watcher;
    std::function<void(const QString &)> m_afterHandOver;

    QString path(const QString &name) const { return m_folder + QLatin1Char('/') + name; }
    QUrl folderUrl() const { return QUrl::fromLocalFile(m_folder); }

    // As the session controller makes it: what is in the folder now is known from the start.
    FolderWatcher &makeWatcher(bool notifications = true)
    {
        m_watcher = std::make_unique<FolderWatcher>(
            folderUrl(), [this](const QUrl &file) { record(file); },
            FolderWatcher::listFiles(folderUrl()));
        m_watcher->setNotificationsEnabled(notifications);
        return *m_watcher;
    }

    void record(const QUrl &file)
    {
        const QFileInfo info(file.toLocalFile());
        m_handed.append({file, info.fileName(), now(), info.size(),
                         info.lastModified().toMSecsSinceEpoch(),
                         m_watcher && m_watcher->knownFiles().contains(info.fileName())});
        if (m_afterHandOver)
            m_afterHandOver(info.fileName());
    }

    QStringList handedNames() const
    {
        QStringList names;
        for (const HandOver &handOver : m_handed)
            names.append(handOver.name);
        return names;
    }

    static void addModes()
    {
        QTest::addColumn<bool>("notifications");
        QTest::newRow("notifications") << true;
        QTest::newRow("polling") << false;
    }

    // A complete photo: non-empty and last modified long ago.
    bool writePhoto(const QString &name, const QByteArray &content = "photo bytes")
    {
        return writeFile(path(name), content) && setModified(path(name), longAgo());
    }

private Q_SLOTS:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(QStringLiteral(".*")));
        m_root = std::make_unique<QTemporaryDir>();
        QVERIFY(m_root->isValid());
        m_folder = m_root->filePath(QStringLiteral("shoot"));
        QVERIFY(QDir().mkpath(m_folder));
        m_handed.clear();
        m_afterHandOver = nullptr;
    }

    void cleanup()
    {
        m_watcher.reset();
        m_root.reset();
    }

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

    void freshPhotoIsHandedOverSoonAfterAQuietSecond_data() { addModes(); }

    // The worst moment for a watcher that only polls: a photo written just after a check.
    // The next poll finds it too young and the one after that hands it over, almost two
    // seconds after its last write; the follow-up at its deadline comes one second after.
    void freshPhotoIsHandedOverSoonAfterAQuietSecond()
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
            const qint64 latency = m_handed.last().at - written;
            qInfo("%s handed over %lld ms after its last write", qPrintable(fresh), latency);
            QVERIFY(latency > 1000);
            QVERIFY(latency < 1700);
        }
    }

    void photoAppearingCompleteIsFoundBeforeTheFirstPoll_data() { addModes(); }

    // A file renamed into place after it was written is ready the moment it appears: the
    // folder's notification finds it at once, the poll only after a second.
    void photoAppearingCompleteIsFoundBeforeTheFirstPoll()
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
        const qint64 after = m_handed.first().at - started;
        qInfo("handed over %lld ms after start", after);
        if (notifications)
            QVERIFY(after < 900);
        else
            QVERIFY(after >= 900); // the first poll, one second after start
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

QTEST_GUILESS_MAIN(FolderWatcherTest)
#include "tst_folderwatcher.moc"
