// SPDX-License-Identifier: MIT
#include "capturetime.h"

#include "exifreader.h"
#include "jpegmetadata.h"
#include "jpegsource.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <libraw/libraw.h>
#include <memory>
#include <tiffio.h>

namespace {

// Cameras write the Exif block right after the start of the image, in its first 64 KB; a
// thumbnail can push it a little further.
constexpr qint64 jpegHeadBytes = 256 * 1024;

int swallowMessage(TIFF *, void *, const char *, const char *, va_list) { return 1; }

std::optional<CaptureTime> ofJpeg(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray head = file.read(jpegHeadBytes);
    const std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t *>(head.data()),
                                              std::size_t(head.size()));
    const QByteArray block = JpegMetadata::exif(JpegSource::fromMemory(bytes));
    if (block.isEmpty())
        return std::nullopt;
    const ExifReader exif(std::span(reinterpret_cast<const std::uint8_t *>(block.constData()),
                                    std::size_t(block.size())));
    return CaptureTime::parse(exif.dateTimeOriginal(), exif.subSecTimeOriginal());
}

std::optional<CaptureTime> ofTiff(const QString &path)
{
    TIFFOpenOptions *options = TIFFOpenOptionsAlloc();
    if (options == nullptr)
        return std::nullopt;
    TIFFOpenOptionsSetErrorHandlerExtR(options, &swallowMessage, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options, &swallowMessage, nullptr);
    std::unique_ptr<TIFF, void (*)(TIFF *)> tiff(
        TIFFOpenExt(QFile::encodeName(path).constData(), "rm", options), &TIFFClose);
    TIFFOpenOptionsFree(options);
    toff_t exifAt = 0;
    if (!tiff || !TIFFGetField(tiff.get(), TIFFTAG_EXIFIFD, &exifAt) ||
        !TIFFReadEXIFDirectory(tiff.get(), exifAt))
        return std::nullopt;
    const char *dateTime = nullptr;
    const char *subSeconds = nullptr;
    if (!TIFFGetField(tiff.get(), EXIFTAG_DATETIMEORIGINAL, &dateTime) || !dateTime)
        return std::nullopt;
    TIFFGetField(tiff.get(), EXIFTAG_SUBSECTIMEORIGINAL, &subSeconds);
    return CaptureTime::parse(dateTime, subSeconds ? subSeconds : "");
}

std::optional<CaptureTime> ofRaw(const QString &path)
{
    // LibRaw reads the metadata only: open_file() does not unpack the raw data.
    auto raw = std::make_unique<LibRaw>();
    if (raw->open_file(QFile::encodeName(path).constData()) != LIBRAW_SUCCESS)
        return std::nullopt;
    const time_t taken = raw->imgdata.other.timestamp;
    if (taken <= 0)
        return std::nullopt;
    return CaptureTime{qint64(taken) * 1000, false};
}

} // namespace

std::optional<CaptureTime> CaptureTime::of(const QString &path)
{
    static const QSet<QString> raws{QStringLiteral("cr2"), QStringLiteral("cr3"),
                                    QStringLiteral("nef"), QStringLiteral("arw"),
                                    QStringLiteral("raf"), QStringLiteral("dng")};
    const QString extension = QFileInfo(path).suffix().toLower();
    if (extension == QLatin1String("jpg") || extension == QLatin1String("jpeg"))
        return ofJpeg(path);
    if (extension == QLatin1String("tif") || extension == QLatin1String("tiff"))
        return ofTiff(path);
    if (raws.contains(extension))
        return ofRaw(path);
    return std::nullopt;
}

std::optional<CaptureTime> CaptureTime::parse(std::string_view dateTime,
                                              std::string_view subSeconds)
{
    // "YYYY:MM:DD HH:MM:SS"; cameras without a clock set write blanks or zeros.
    const QDateTime local =
        QDateTime::fromString(QString::fromLatin1(dateTime.data(), qsizetype(dateTime.size())),
                              QStringLiteral("yyyy:MM:dd HH:mm:ss"));
    if (!local.isValid() || local.date().year() < 1970)
        return std::nullopt;
    CaptureTime time{local.toMSecsSinceEpoch(), false};
    // The fraction's digits, however many: "4" is 400 ms, "042" 42 ms.
    qint64 fraction = 0;
    qint64 scale = 1000;
    for (const char digit : subSeconds) {
        if (digit < '0' || digit > '9')
            break;
        scale /= 10;
        fraction += (digit - '0') * scale;
        time.exact = true;
        if (scale == 1)
            break;
    }
    time.msecs += fraction;
    return time;
}

bool CaptureTime::sameMomentAs(const CaptureTime &other) const
{
    if (exact && other.exact)
        return msecs == other.msecs;
    return msecs / 1000 == other.msecs / 1000;
}
