// SPDX-License-Identifier: MIT
#include "imageresizer.h"

#include "jpegpreview.h"
#include "jpegsource.h"
#include "previewgeometry.h"
#include "previewpngreader.h"
#include "previewqtreader.h"
#include "previewtiffreader.h"
#include "rawpreview.h"

#include <QFile>
#include <QUrl>
#include <exception>

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

// A JPEG is decoded from its file, read a piece at a time as the decoder goes: its memory
// follows the picture's size, whatever the file's.
std::optional<QByteArray> jpegPreview(const QString &path) {
    const std::optional<JpegSource> source = JpegSource::fromFile(path);
    if (!source)
        return std::nullopt;
    const JpegPreview jpeg(*source);
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
    file.close();
    if (signature == Signature::Jpeg)
        return jpegPreview(path);
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
