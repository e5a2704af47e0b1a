// SPDX-License-Identifier: MIT
// A JPEG read from its file, a piece at a time, decodes to exactly what the same bytes decode to
// from memory, with the same metadata; large segments before the first scan (a profile of
// several pieces) are stepped over and read across the pieces alike, and a file that ends
// sooner than its picture gives no decode.
#include "exifwriter.h"
#include "jpegdecoder.h"
#include "jpegmetadata.h"
#include "jpegsource.h"
#include "originalfile.h"
#include "photofiles.h"
#include "photogenerator.h"

#include <QTemporaryDir>
#include <QTest>

#include <cstring>

namespace {

using Chroma = PhotoFiles::Chroma;

// Larger than the pieces a file is read in, so that the decoder skips it across several.
const QByteArray profile = OriginalFile::bytes(200 * 1024);

std::span<const std::uint8_t> bytesOf(const QByteArray &bytes)
{
    return {reinterpret_cast<const std::uint8_t *>(bytes.constData()), std::size_t(bytes.size())};
}

// The photo as a camera with a profile writes it: Exif first, the profile's segments after.
QByteArray photo(Chroma chroma, bool progressive)
{
    const QByteArray jpeg = PhotoFiles::encodeJpeg(PhotoGenerator(QSize(1203, 805), 11).image8(),
                                                   90, chroma, progressive);
    ExifWriter::Fields exif;
    exif.orientation = 6;
    return ExifWriter::withExif(ExifWriter::withIccProfile(jpeg, profile), exif);
}

bool samePlanes(const JpegPlanes &a, const JpegPlanes &b)
{
    if (a.size() != b.size() || a.subsampling() != b.subsampling())
        return false;
    for (int i = 0; i < a.planeCount(); ++i)
        for (int y = 0; y < a.planeSize(i).height(); ++y)
            if (std::memcmp(a.data(i) + std::ptrdiff_t(y) * a.stride(i),
                            b.data(i) + std::ptrdiff_t(y) * b.stride(i),
                            std::size_t(a.planeSize(i).width())) != 0)
                return false;
    return true;
}

} // namespace

class JpegSourceTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void fileDecodesAsItsBytesDoInMemory_data()
    {
        QTest::addColumn<QByteArray>("jpeg");
        QTest::addColumn<int>("eighths");
        QTest::newRow("4:2:0 at 2/8") << photo(Chroma::Subsampled420, false) << 2;
        QTest::newRow("4:2:0 whole") << photo(Chroma::Subsampled420, false) << 8;
        QTest::newRow("4:2:2 at 3/8") << photo(Chroma::Subsampled422, false) << 3;
        QTest::newRow("4:4:4 at 5/8") << photo(Chroma::Full444, false) << 5;
        QTest::newRow("grey at 1/8") << photo(Chroma::Grey, false) << 1;
        QTest::newRow("progressive 4:2:0 at 4/8") << photo(Chroma::Subsampled420, true) << 4;
        QTest::newRow("cmyk at 2/8") << PhotoFiles::encodeCmykJpeg(QSize(640, 480), {10, 80, 160, 240}, 90) << 2;
    }
    void fileDecodesAsItsBytesDoInMemory()
    {
        QFETCH(QByteArray, jpeg);
        QFETCH(int, eighths);
        QTemporaryDir folder;
        QVERIFY(folder.isValid());
        const QString path = OriginalFile::write(folder.filePath(QStringLiteral("photo.jpg")), jpeg);
        const std::optional<JpegSource> file = JpegSource::fromFile(path);
        QVERIFY(file);
        QCOMPARE(file->size(), jpeg.size());
        QVERIFY(file->endsWithEndOfImage());
        const JpegSource memory = JpegSource::fromMemory(bytesOf(jpeg));
        const JpegDecoder fromFile(*file);
        const JpegDecoder fromMemory(memory);
        QVERIFY(fromFile.isValid());
        QCOMPARE(fromFile.size(), fromMemory.size());
        QCOMPARE(fromFile.hasPlanes(), fromMemory.hasPlanes());
        if (fromFile.hasPlanes()) {
            const std::optional<JpegPlanes> filePlanes = fromFile.decodePlanes(eighths);
            const std::optional<JpegPlanes> memoryPlanes = fromMemory.decodePlanes(eighths);
            QVERIFY(filePlanes && memoryPlanes);
            QCOMPARE(filePlanes->size(), fromFile.scaledSize(eighths));
            QVERIFY(samePlanes(*filePlanes, *memoryPlanes));
        }
        const std::optional<std::vector<std::uint8_t>> fileRgb = fromFile.decodeRgb(eighths);
        QVERIFY(fileRgb);
        QCOMPARE(qsizetype(fileRgb->size()), qsizetype(fromFile.scaledSize(eighths).width()) *
                                                  fromFile.scaledSize(eighths).height() * 3);
        QVERIFY(fileRgb == fromMemory.decodeRgb(eighths));
    }

    void metadataFromTheFileIsTheMetadataOfItsBytes()
    {
        const QByteArray jpeg = photo(Chroma::Subsampled420, false);
        QTemporaryDir folder;
        QVERIFY(folder.isValid());
        const QString path = OriginalFile::write(folder.filePath(QStringLiteral("photo.jpg")), jpeg);
        const std::optional<JpegSource> file = JpegSource::fromFile(path);
        QVERIFY(file);
        const PhotoMetadata fromFile = JpegMetadata::read(*file);
        QCOMPARE(fromFile.orientation, 6);
        QCOMPARE(fromFile.iccProfile.size(), profile.size());
        QVERIFY(fromFile.iccProfile == profile);
        const PhotoMetadata fromMemory = JpegMetadata::read(JpegSource::fromMemory(bytesOf(jpeg)));
        QCOMPARE(fromMemory.orientation, fromFile.orientation);
        QVERIFY(fromMemory.iccProfile == fromFile.iccProfile);
        QVERIFY(!JpegMetadata::exif(*file).isEmpty());
        QVERIFY(JpegMetadata::exif(*file) == JpegMetadata::exif(JpegSource::fromMemory(bytesOf(jpeg))));
    }

    // The header is whole, the picture is not: the decoder meets the file's end, and gives
    // nothing rather than a picture with a grey bottom.
    void fileCutShortGivesNoDecode_data()
    {
        QTest::addColumn<bool>("progressive");
        QTest::newRow("baseline") << false;
        QTest::newRow("progressive") << true;
    }
    void fileCutShortGivesNoDecode()
    {
        QFETCH(bool, progressive);
        const QByteArray jpeg = photo(Chroma::Subsampled420, progressive);
        QTemporaryDir folder;
        QVERIFY(folder.isValid());
        const QString path = OriginalFile::write(folder.filePath(QStringLiteral("cut.jpg")),
                                                 jpeg.left(jpeg.size() * 9 / 10));
        const std::optional<JpegSource> file = JpegSource::fromFile(path);
        QVERIFY(file);
        QVERIFY(!file->endsWithEndOfImage());
        const JpegDecoder decoder(*file);
        QVERIFY(decoder.isValid());
        QCOMPARE(decoder.decodePlanes(2), std::nullopt);
        QCOMPARE(decoder.decodeRgb(2), std::nullopt);
    }

    void fileThatCannotBeOpenedIsNoSource()
    {
        QTemporaryDir folder;
        QVERIFY(folder.isValid());
        QVERIFY(!JpegSource::fromFile(folder.filePath(QStringLiteral("missing.jpg"))));
    }
};

QTEST_GUILESS_MAIN(JpegSourceTest)
#include "tst_jpegsource.moc"
