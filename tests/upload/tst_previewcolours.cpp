// SPDX-License-Identifier: MIT
// A preview shows its photo's true colours: a photo whose values are meant in another colour
// space than sRGB (by its ICC profile, or by its EXIF or its RAW's colour-space mark alone)
// gets a preview in sRGB, which every viewer shows right. sRGB and untagged photos are left
// exactly as they were, and a profile that cannot be read is ignored.
#include "colourreference.h"
#include "exifwriter.h"
#include "imageresizer.h"
#include "photofiles.h"
#include "photoreference.h"
#include "previewfixture.h"
#include "rawdngwriter.h"

#include <QBuffer>
#include <QColorSpace>
#include <QTest>
#include <QUrl>

namespace {

// The goal: what the client sees is within these CIE76 differences of the true colours.
constexpr double meanGoal = 2.0;
constexpr double p99Goal = 10.0;

QByteArray profileNamed(const QString &name) {
    if (name == "Adobe RGB")
        return ColourReference::adobeRgbProfile();
    if (name == "Display P3")
        return ColourReference::displayP3Profile();
    if (name == "Adobe RGB by lookup tables")
        return ColourReference::adobeRgbLookupProfile();
    return ColourReference::proPhotoProfile();
}

std::optional<QByteArray> previewBytes(const QString &file) {
    return ImageResizer::createPreview(QUrl::fromLocalFile(file));
}

} // namespace

class TestPreviewColours : public PreviewFixture {
    Q_OBJECT

private slots:
    void trueColours_data();
    void trueColours();
    void srgbProfileLeavesThePreviewAsItWas();
    void unreadableProfileIsIgnored_data();
    void unreadableProfileIsIgnored();

private:
    QString photoFile(const QString &format, const QString &space, const QImage &values);
};

QString TestPreviewColours::photoFile(const QString &format, const QString &space,
                                      const QImage &values) {
    const QByteArray profile = profileNamed(space);
    const QString name = QString(format + "-" + space).replace(' ', '-');
    if (format == "jpeg")
        return write(name + ".jpg",
                     ExifWriter::withIccProfile(PhotoFiles::encodeJpeg(values, 95), profile));
    if (format == "jpeg, profile in small chunks")
        return write(name + ".jpg",
                     ExifWriter::withIccProfile(PhotoFiles::encodeJpeg(values, 95), profile, 100));
    if (format == "progressive jpeg")
        return write(name + ".jpg", ExifWriter::withIccProfile(
                                        PhotoFiles::encodeJpeg(
                                            values, 95, PhotoFiles::Chroma::Subsampled420, true),
                                        profile));
    if (format == "jpeg marked by EXIF alone")
        return write(name + ".jpg",
                     ExifWriter::withExif(PhotoFiles::encodeJpeg(values, 95), {.adobeRgb = true}));
    if (format == "16-bit tiff" || format == "8-bit tiff") {
        const QString file = path(name + ".tif");
        return PhotoFiles::writeTiff(file, {values}, format.startsWith("16") ? 16 : 8, 1, profile)
                   ? file
                   : QString();
    }
    if (format == "png") {
        QImage tagged = values;
        tagged.setColorSpace(QColorSpace::fromIccProfile(profile));
        const QString file = path(name + ".png");
        return tagged.colorSpace().isValid() && tagged.save(file, "PNG", fastPng) ? file
                                                                                  : QString();
    }
    // A camera set to Adobe RGB: its embedded JPEG without a profile, the RAW's EXIF saying so.
    const QString file = path(name + ".dng");
    return RawDngWriter::write(file, values, values.scaledToWidth(256),
                               PhotoFiles::encodeJpeg(values, 95), 1, {.adobeRgb = true})
               ? file
               : QString();
}

void TestPreviewColours::trueColours_data() {
    QTest::addColumn<QString>("format");
    QTest::addColumn<QString>("space");
    for (const char *space :
         {"Adobe RGB", "Display P3", "ProPhoto RGB", "Adobe RGB by lookup tables"})
        QTest::addRow("jpeg, %s", space) << "jpeg" << space;
    QTest::newRow("jpeg, profile in small chunks") << "jpeg, profile in small chunks"
                                                   << "Adobe RGB";
    QTest::newRow("progressive jpeg") << "progressive jpeg"
                                      << "Adobe RGB";
    QTest::newRow("jpeg marked Adobe RGB by EXIF alone") << "jpeg marked by EXIF alone"
                                                         << "Adobe RGB";
    QTest::newRow("16-bit tiff, Adobe RGB") << "16-bit tiff"
                                            << "Adobe RGB";
    QTest::newRow("8-bit tiff, ProPhoto RGB") << "8-bit tiff"
                                              << "ProPhoto RGB";
    QTest::newRow("png, Display P3") << "png"
                                     << "Display P3";
    QTest::newRow("raw whose JPEG is Adobe RGB by the raw's EXIF") << "raw"
                                                                   << "Adobe RGB";
}

void TestPreviewColours::trueColours() {
    QFETCH(QString, format);
    QFETCH(QString, space);
    // A photo that shows the scene: the scene's sRGB colours as the space's values.
    const QImage &scene = this->scene({3000, 2000}, 71);
    const QByteArray profile = profileNamed(space);
    // A lookup-table profile only reads values: they are made with the matrix one, its twin.
    const QByteArray making =
        space.contains("lookup") ? ColourReference::adobeRgbProfile() : profile;
    const QImage values = ColourReference::convert(scene, ColourReference::srgbProfile(), making);
    QVERIFY(!values.isNull());
    const QString file = photoFile(format, space, values);
    QVERIFY(!file.isEmpty());

    const QImage preview = previewOf(file);
    QCOMPARE(preview.size(), QSize(2000, 1333));
    // The true colours, converted at full size, then scaled like the preview.
    const QImage truth = ColourReference::convert(values, profile, ColourReference::srgbProfile());
    QVERIFY(!truth.isNull());
    const QImage reference = PhotoReference::lanczos3(truth, preview.size());
    const ColourReference::Difference seen = ColourReference::deltaE76(preview, reference);
    QVERIFY2(seen.mean <= meanGoal && seen.p99 <= p99Goal,
             qPrintable(QStringLiteral("mean %1, p99 %2").arg(seen.mean).arg(seen.p99)));
    // The values taken as sRGB, as a preview that ignored the colour space would show them,
    // are far off: the photo is one on which the test can fail.
    const ColourReference::Difference ignored =
        ColourReference::deltaE76(PhotoReference::lanczos3(values, preview.size()), reference);
    QVERIFY2(ignored.mean > 2 * meanGoal, qPrintable(QString::number(ignored.mean)));
    qInfo("delta E76 against the true colours: mean %.2f, p99 %.2f (values taken as sRGB: "
          "mean %.2f, p99 %.2f)",
          seen.mean, seen.p99, ignored.mean, ignored.p99);
}

void TestPreviewColours::srgbProfileLeavesThePreviewAsItWas() {
    const QByteArray plain = PhotoFiles::encodeJpeg(scene({2400, 1600}, 72), 92);
    const std::optional<QByteArray> untagged = previewBytes(write("plain.jpg", plain));
    const std::optional<QByteArray> tagged = previewBytes(
        write("srgb.jpg", ExifWriter::withIccProfile(plain, ColourReference::srgbProfile())));
    QVERIFY(untagged && tagged);
    QCOMPARE(*tagged, *untagged);
}

void TestPreviewColours::unreadableProfileIsIgnored_data() {
    const QByteArray adobe = ColourReference::adobeRgbProfile();
    QTest::addColumn<QString>("format");
    QTest::addColumn<QByteArray>("profile");
    for (const char *format : {"jpeg", "tiff"}) {
        QTest::addRow("%s, junk", format) << format << QByteArray(600, '\x5A');
        QTest::addRow("%s, cut in half", format) << format << adobe.left(adobe.size() / 2);
        // Every tag's data said to lie two gigabytes beyond the profile's start.
        QByteArray lying = adobe;
        const int tagCount = int(uchar(adobe[131])) | int(uchar(adobe[130])) << 8;
        for (int i = 0; i < tagCount; ++i)
            lying.replace(132 + 12 * i + 4, 4, QByteArray("\x7F\xFF\xFF\xF0", 4));
        QTest::addRow("%s, tags beyond the data", format) << format << lying;
        QByteArray tags = adobe;
        tags.replace(128, 4, QByteArray("\xFF\xFF\xFF\xFF", 4)); // four billion tags
        QTest::addRow("%s, tag count beyond the data", format) << format << tags;
    }
}

void TestPreviewColours::unreadableProfileIsIgnored() {
    QFETCH(QString, format);
    QFETCH(QByteArray, profile);
    const QImage &picture = scene({2400, 1600}, 73);
    QString broken;
    QString plain;
    if (format == "jpeg") {
        const QByteArray jpeg = PhotoFiles::encodeJpeg(picture, 92);
        broken = write("broken.jpg", ExifWriter::withIccProfile(jpeg, profile));
        plain = write("plain.jpg", jpeg);
    } else {
        broken = path("broken.tif");
        plain = path("plain.tif");
        QVERIFY(PhotoFiles::writeTiff(broken, {picture}, 8, 1, profile));
        QVERIFY(PhotoFiles::writeTiff(plain, {picture}, 8));
    }
    const std::optional<QByteArray> fromBroken = previewBytes(broken);
    QVERIFY(fromBroken.has_value());
    QCOMPARE(*fromBroken, *previewBytes(plain));
}

QTEST_GUILESS_MAIN(TestPreviewColours)
#include "tst_previewcolours.moc"
