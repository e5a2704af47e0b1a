// SPDX-License-Identifier: MIT
// The RAW and the JPEG a camera writes of one shot are one photo for the client: one preview,
// registered once, from whichever file has its preview made first, and both originals, each
// stored once under its own name. Whatever the order and the time between the two files, across
// a restart too; files of one name taken at other moments stay photos of their own. The RAW is
// the repository's DNG; the JPEGs carry its capture time, or another.
#include "delivery.h"
#include "exifwriter.h"
#include "headlessprogram.h"
#include "repositoryfixtures.h"
#include "sessionharness.h"
#include "sessionviewmodel.h"
#include "storedfiles.h"
#include "tracedapp.h"
#include "uploadmanager.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTest>

namespace {

constexpr int settles = 30000;
const QString dngFixture = QStringLiteral("lg-g4-600x338.dng");
// When the fixture DNG says it was taken.
const QByteArray dngTaken = "2015:06:08 12:10:44";

QByteArray fixtureDng()
{
    QFile file(RepositoryFixtures::path(dngFixture));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray jpegTakenAt(const QByteArray &taken, int seed = 42)
{
    ExifWriter::Fields fields;
    fields.dateTimeOriginal = taken;
    return ExifWriter::withExif(SessionHarness::photoJpeg(seed), fields);
}

} // namespace

class RawJpegPairsTest : public QObject {
    Q_OBJECT

    struct File {
        QString name;
        QByteArray bytes;
    };

    bool drop(const File &file) { return m_harness.dropPhoto(file.name, file.bytes); }

    // Each shot's preview registered once, every file's original stored once as it was written,
    // and the counters: photos the client sees, originals of every file.
    void expectDelivered(SessionViewModel &model, int shots, const QList<File> &files)
    {
        const qint64 folderId = *model.session().folderId;
        QTRY_COMPARE_WITH_TIMEOUT(model.uploadManager()->fullResUploaded(), files.size(), settles);
        QTRY_COMPARE_WITH_TIMEOUT(model.deliveries().unfinishedCount(), 0, settles);
        QCOMPARE(m_harness.service().registeredFiles(folderId).size(), shots);
        QCOMPARE(model.uploadManager()->uploadedCount(), shots);
        QCOMPARE(model.uploadManager()->fullResTotal(), files.size());
        const StoredFiles store(m_harness.service());
        for (const File &file : files) {
            QVERIFY2(store.storedCount(file.name) == 1, qPrintable(file.name));
            QVERIFY2(store.objectNamed(file.name) == file.bytes, qPrintable(file.name));
        }
        QVERIFY(!model.refusedNotice().isValid());
    }

    std::unique_ptr<SessionViewModel> recording()
    {
        auto model = std::make_unique<SessionViewModel>();
        if (!m_harness.signIn(*model) || !m_harness.startSession(*model, QStringLiteral("Lucía")))
            return {};
        return model;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QUILLMERE_REQUIRE_FIXTURE(dngFixture);
        QVERIFY2(m_harness.start(), qPrintable(m_harness.errorString()));
    }
    void init() { m_harness.resetForTest(); }

    void aJpegAndItsRawWrittenTogetherAreOnePhoto()
    {
        std::unique_ptr<SessionViewModel> model = recording();
        QVERIFY(model);
        const File jpeg{QStringLiteral("IMG_0042.JPG"), jpegTakenAt(dngTaken)};
        const File raw{QStringLiteral("IMG_0042.DNG"), fixtureDng()};
        QVERIFY(drop(jpeg));
        QVERIFY(drop(raw));
        expectDelivered(*model, 1, {jpeg, raw});
        QCOMPARE(StoredFiles(m_harness.service()).registeredCount(*model->session().folderId,
                                                                   jpeg.name),
                 1);
    }

    void aJpegEightSecondsAfterItsRawSendsOnlyItsOriginal()
    {
        std::unique_ptr<SessionViewModel> model = recording();
        QVERIFY(model);
        const File raw{QStringLiteral("IMG_0043.DNG"), fixtureDng()};
        const File jpeg{QStringLiteral("IMG_0043.JPG"), jpegTakenAt(dngTaken)};
        QElapsedTimer sinceRaw;
        sinceRaw.start();
        QVERIFY(drop(raw));
        // The RAW is delivered whole before its JPEG comes, as over a camera's slow FTP.
        QTRY_COMPARE_WITH_TIMEOUT(model->uploadManager()->fullResUploaded(), 1, settles);
        QTest::qWait(int(std::max<qint64>(0, 8000 - sinceRaw.elapsed())));
        QVERIFY(drop(jpeg));
        expectDelivered(*model, 1, {raw, jpeg});
    }

    void aLoneJpegAndALoneRawAreAPhotoEach()
    {
        std::unique_ptr<SessionViewModel> model = recording();
        QVERIFY(model);
        const File jpeg{QStringLiteral("IMG_0050.JPG"), jpegTakenAt(dngTaken)};
        const File raw{QStringLiteral("IMG_0051.DNG"), fixtureDng()};
        QVERIFY(drop(jpeg));
        QVERIFY(drop(raw));
        expectDelivered(*model, 2, {jpeg, raw});
    }

    void filesOfOneNameTakenAtOtherMomentsAreTwoPhotos()
    {
        std::unique_ptr<SessionViewModel> model = recording();
        QVERIFY(model);
        // Two bodies numbering alike: the same name, a minute apart.
        const File raw{QStringLiteral("IMG_0060.DNG"), fixtureDng()};
        const File jpeg{QStringLiteral("IMG_0060.JPG"), jpegTakenAt("2015:06:08 12:11:44")};
        QVERIFY(drop(raw));
        QVERIFY(drop(jpeg));
        expectDelivered(*model, 2, {raw, jpeg});
        QCOMPARE(StoredFiles(m_harness.service()).registeredCount(*model->session().folderId,
                                                                   jpeg.name),
                 2);
    }

    void aFileOfWhichNoPreviewCanBeMadeHasItsPartnersPreview_data()
    {
        QTest::addColumn<bool>("brokenJpeg");
        QTest::newRow("broken JPEG") << true;
        QTest::newRow("broken RAW") << false;
    }

    void aFileOfWhichNoPreviewCanBeMadeHasItsPartnersPreview()
    {
        QFETCH(bool, brokenJpeg);
        std::unique_ptr<SessionViewModel> model = recording();
        QVERIFY(model);
        const QByteArray broken("\xFF\xD8\xFF not a photo at all", 23);
        const File jpeg{QStringLiteral("IMG_0070.JPG"), brokenJpeg ? broken : jpegTakenAt(dngTaken)};
        const File raw{QStringLiteral("IMG_0070.DNG"), brokenJpeg ? fixtureDng() : broken};
        QVERIFY(drop(jpeg));
        QVERIFY(drop(raw));
        expectDelivered(*model, 1, {jpeg, raw});
    }

    void aPairSplitByARestartIsStillOnePhoto()
    {
        const File jpeg{QStringLiteral("IMG_0080.JPG"), jpegTakenAt(dngTaken)};
        const File raw{QStringLiteral("IMG_0080.DNG"), fixtureDng()};
        {
            TracedApp shooting;
            QVERIFY(shooting.start(HeadlessProgram::path(), HeadlessProgram::environment(m_harness)));
            QVERIFY(shooting.send(QStringLiteral("signin")));
            QUILLMERE_EXPECT_LINE(shooting, QStringLiteral("signed in"), settles);
            QVERIFY(shooting.send(QStringLiteral("start Lucía")));
            QUILLMERE_EXPECT_LINE(shooting, QStringLiteral("screen recording 1001"), settles);
            QVERIFY(drop(jpeg));
            QUILLMERE_EXPECT_LINE(shooting, QStringLiteral("stored 1"), settles);
            shooting.process().kill();
            QVERIFY(shooting.waitForExit(settles));
        }
        // Its RAW comes while the program is away.
        QVERIFY(drop(raw));

        TracedApp resumed;
        QVERIFY(resumed.start(HeadlessProgram::path(), HeadlessProgram::environment(m_harness)));
        QUILLMERE_EXPECT_LINE(resumed, QStringLiteral("screen recording 1001"), settles);
        QUILLMERE_EXPECT_LATEST(resumed, QStringLiteral("stored "), QStringLiteral("stored 2"),
                                settles);
        QUILLMERE_EXPECT_LATEST(resumed, QStringLiteral("owed "), QStringLiteral("owed 0"), settles);
        QUILLMERE_EXPECT_LATEST(resumed, QStringLiteral("uploaded "), QStringLiteral("uploaded 1"),
                                settles);
        QCOMPARE(m_harness.service().registeredFiles(1001).size(), 1);
        const StoredFiles store(m_harness.service());
        QCOMPARE(store.storedCount(jpeg.name), 1);
        QCOMPARE(store.storedCount(raw.name), 1);
        QCOMPARE(store.objectNamed(raw.name), std::optional(raw.bytes));
    }

private:
    SessionHarness m_harness;
};

QUILLMERE_HEADLESS_TEST_MAIN(RawJpegPairsTest)

#include "tst_rawjpegpairs.moc"
