// SPDX-License-Identifier: MIT
#include "imageresizer.h"

#include "jpegpreview.h"
#include "previewgeometry.h"
#include "previewpngreader.h"
#include "previewqtreader.h"
#include "previewtiffreader.h"
#include "rawpreview.h"

#include <QFile>
#include <QUrl>
#include <cstdint>
#include <exception>
#include <span>

namespace {

enum class Signature { Jpeg, Png, Tiff, Other };

// Formats are told by their first bytes, not by the name: a camera's .JPG may be anything, and
// the TIFF-based RAW formats share the TIFF signature.
Signature signatureOf(const QByteArray &head) {
    if (head.startsWith("\xFF\xD8\xFF"))
        return Signature::Jpeg;
    if (head.startsWith("\x89PNG\r\n\x1A\n"))
        return Signature::Png;
    if (head.startsWith(QByteArrayLiteral("II*\0")) || head.startsWith(QByteArrayLiteral("MM\0*")))
        return Signature::Tiff;
    return Signature::Other;
}

// A JPEG is decoded from memory, so its bytes count against the preview's memory too. The best
// quality a camera writes stays under a byte per pixel, so even a 200-megapixel photo fits;
// a larger file is junk that only claims to be a JPEG.
constexpr qint64 largestJpegBytes = 160 * 1024 * 1024;

std::optional<QByteArray> jpegPreview(QFile &file) {
    if (file.size() > largestJpegBytes)
        return std::nullopt;
    // Read, not mapped: a file cut short while mapped would kill the process with SIGBUS.
    const QByteArray bytes = file.readAll();
    const JpegPreview jpeg(std::span(reinterpret_cast<const std::uint8_t *>(bytes.constData()),
                                     std::size_t(bytes.size())));
    const std::optional<QSize> target = PreviewGeometry::targetSize(jpeg.size());
    if (!jpeg.isValid() || !target)
        return std::nullopt;
    return jpeg.render(*target, jpeg.metadata());
}

std::optional<QByteArray> preview(const QString &path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const Signature signature = signatureOf(file.peek(16));
    if (signature == Signature::Jpeg)
        return jpegPreview(file);
    file.close();
    if (signature == Signature::Png)
        return PreviewPngReader::createPreview(path);
    // LibRaw first: it knows which TIFF-signed files are raw and turns plain TIFFs away.
    if (RawPreview raw(path); raw.isRaw())
        return raw.render();
    if (signature == Signature::Tiff)
        return PreviewTiffReader::createPreview(path);
    return PreviewQtReader::createPreview(path);
}

} // namespace

std::optional<QByteArray> ImageResizer::createPreview(const QUrl &from) {
    if (!from.isLocalFile())
        return std::nullopt;
    try {
        return preview(from.toLocalFile());
    } catch (const std::exception &) {
        // Out of memory for a huge or damaged file is one more photo without a preview.
        return std::nullopt;
    }
}
