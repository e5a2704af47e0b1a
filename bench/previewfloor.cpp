// SPDX-License-Identifier: MIT
#include "previewfloor.h"

#include "jpegdecoder.h"
#include "jpegencoder.h"
#include "jpegpreview.h"
#include "previewgeometry.h"

#include <QFile>
#include <cstdint>
#include <span>

std::optional<QByteArray> PreviewFloor::run(const QString &path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray bytes = file.readAll();
    const JpegDecoder decoder(std::span(reinterpret_cast<const std::uint8_t *>(bytes.constData()),
                                        std::size_t(bytes.size())));
    const std::optional<QSize> target = PreviewGeometry::targetSize(decoder.size());
    if (!target)
        return std::nullopt;
    const std::optional<JpegPlanes> planes =
        decoder.decodePlanes(JpegPreview::scaleEighths(decoder.size(), *target));
    return planes ? JpegEncoder::fromPlanes(*planes) : std::nullopt;
}
