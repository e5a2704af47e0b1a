// SPDX-License-Identifier: MIT
// When a photo was taken, as its file says: a JPEG's Exif block, a TIFF's Exif directory, a
// camera RAW's through LibRaw; nothing for a file that says nothing or cannot be read.
#include "capturetime.h"
#include "exifwriter.h"
#include "photogenerator.h"
#include "photofiles.h"
#include "rawdngwriter.h"
#include "repositoryfixtures.h"

#include <QDateTime>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>
#include <QTest>

namespace {

qint64 localMsecs(const char *text)
{
    return QDateTime::fromString(QString::fromLatin1(text), QStringLiteral("yyyy:MM:dd HH:mm:ss"))
        .toMSecsSinceEpoch();
}

QByteArray jpeg(const ExifWriter::Fields &fields)
{
    return ExifWriter::withExif(
        PhotoFiles::encodeJpeg(PhotoGenerator(QSize(64, 48), 7).image8(), 90), fields);
}

} // namespace

class CaptureTimeTest : public QObject {
    Q_OBJECT

    QString write(const QString &name, const QByteArray &bytes)
    {
        QFile file(m_folder.filePath(name));
        return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size()
                   ? file.fileName()
                   : QString();
    }

private Q_SLOTS:
    void aJpegSaysItsTimeToTheMillisecond()
    {
        ExifWriter::Fields fields;
        fields.dateTimeOriginal = "2026:03:14 09:26:53";
        fields.subSecTimeOriginal = "42";
        const std::optional<CaptureTime> taken =
            CaptureTime::of(write(QStringLiteral("A.JPG"), jpeg(fields)));
        QVERIFY(taken);
        QCOMPARE(taken->msecs, localMsecs("2026:03:14 09:26:53") + 420);
        QVERIFY(taken->exact);
    }

    void aJpegWithoutSubSecondsSaysItsSecond()
    {
        ExifWriter::Fields fields;
        fields.dateTimeOriginal = "2026:03:14 09:26:53";
        const std::optional<CaptureTime> taken =
            CaptureTime::of(write(QStringLiteral("B.jpeg"), jpeg(fields)));
        QVERIFY(taken);
        QCOMPARE(taken->msecs, localMsecs("2026:03:14 09:26:53"));
        QVERIFY(!taken->exact);
    }

    void aTiffSaysItsTimeInItsExifDirectory()
    {
        // A TIFF file with an Exif directory, as tethering software writes one (this one happens
        // to be laid out as a DNG, which is a TIFF file too).
        ExifWriter::Fields fields;
        fields.dateTimeOriginal = "2025:12:31 23:59:59";
        fields.subSecTimeOriginal = "5";
        const QImage sensor = PhotoGenerator(QSize(64, 48), 3).image8();
        const QString path = m_folder.filePath(QStringLiteral("C.TIF"));
        QVERIFY(RawDngWriter::write(path, sensor, sensor.scaled(16, 12), {}, 1, fields));
        const std::optional<CaptureTime> taken = CaptureTime::of(path);
        QVERIFY(taken);
        QCOMPARE(taken->msecs, localMsecs("2025:12:31 23:59:59") + 500);
    }

    void aRawSaysItsTimeThroughLibRaw()
    {
        QUILLMERE_REQUIRE_FIXTURE(QStringLiteral("lg-g4-600x338.dng"));
        const std::optional<CaptureTime> taken =
            CaptureTime::of(RepositoryFixtures::path(QStringLiteral("lg-g4-600x338.dng")));
        QVERIFY(taken);
        QCOMPARE(taken->msecs, localMsecs("2015:06:08 12:10:44"));
        QVERIFY(!taken->exact);
    }

    void filesThatSayNothingHaveNoTime()
    {
        ExifWriter::Fields blank;
        blank.dateTimeOriginal = "    :  :     :  :  "; // a camera whose clock was never set
        QVERIFY(!CaptureTime::of(write(QStringLiteral("D.JPG"), jpeg(blank))));
        QVERIFY(!CaptureTime::of(write(QStringLiteral("E.JPG"), jpeg({}))));
        QVERIFY(!CaptureTime::of(write(QStringLiteral("F.CR2"), "not a raw at all")));
        QVERIFY(!CaptureTime::of(write(QStringLiteral("G.JPG"), QByteArray("\xFF\xD8\xFF", 3))));
        QVERIFY(!CaptureTime::of(m_folder.filePath(QStringLiteral("gone.jpg"))));
        QImage picture(8, 8, QImage::Format_RGB32);
        picture.fill(Qt::red);
        QVERIFY(picture.save(m_folder.filePath(QStringLiteral("H.png"))));
        QVERIFY(!CaptureTime::of(m_folder.filePath(QStringLiteral("H.png"))));
    }

    void momentsCompareToWhatBothKnow()
    {
        const CaptureTime exact{localMsecs("2026:03:14 09:26:53") + 420, true};
        const CaptureTime sameSecond{localMsecs("2026:03:14 09:26:53"), false};
        const CaptureTime otherExact{localMsecs("2026:03:14 09:26:53") + 430, true};
        const CaptureTime nextSecond{localMsecs("2026:03:14 09:26:54"), false};
        QVERIFY(exact.sameMomentAs(sameSecond));
        QVERIFY(sameSecond.sameMomentAs(exact));
        QVERIFY(!exact.sameMomentAs(otherExact));
        QVERIFY(!sameSecond.sameMomentAs(nextSecond));
        QVERIFY(exact.sameMomentAs(exact));
    }

private:
    QTemporaryDir m_folder;
};

QTEST_GUILESS_MAIN(CaptureTimeTest)
#include "tst_capturetime.moc"
