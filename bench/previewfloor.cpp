// SPDX-License-Identifier: MIT
#include "previewfloor.h"

#include "jpegdecoder.h"
#include "jpegencoder.h"
#include "jpegpreview.h"
#include "jpegsource.h"
#include "previewgeometry.h"

#include <QFile>
#include <cstdint>
#include <span>

std::optional<QByteArray> PreviewFloor::run(const QString &path) {
    const std::optional<JpegSource> source = JpegSource::fromFile(path);
    if (!source)
        return std::nullopt;
    const JpegDecoder decoder(*source);
    const std::optional<QSize> target = PreviewGeometry::targetSize(decoder.size());
    if (!target)
        return std::nullopt;
    const std::optional<JpegPlanes> planes =
        decoder.decodePlanes(JpegPreview::scaleEighths(decoder.size(), *target));
    return planes ? JpegEncoder::fromPlanes(*planes) : std::nullopt;
}
