// SPDX-License-Identifier: MIT
#pragma once

#include "photometadata.h"

#include <QByteArray>
#include <QSize>
#include <QString>
#include <memory>
#include <optional>

class LibRaw;

// Previews of camera RAW files through LibRaw. The preview's size always follows the full
// developed raw; its pixels come from the fastest source that covers it: the full-size JPEG that
// most modern cameras embed (decoded like any JPEG), or else the raw data developed at half size
// (a quarter of the pixels, no demosaicing), or at full size when half would be narrower than the
// preview. Pixels stay in the sensor's stored grid; the camera's rotation goes with the preview
// as its orientation tag.
class RawPreview {
public:
    enum class Source { Nothing, EmbeddedJpeg, HalfSizeRaw, FullSizeRaw };

    explicit RawPreview(const QString &path);
    ~RawPreview();
    RawPreview(const RawPreview &) = delete;
    RawPreview &operator=(const RawPreview &) = delete;

    // Whether LibRaw recognised the file as camera raw data. TIFF-based formats share their
    // signature with plain TIFF files, which LibRaw turns away.
    bool isRaw() const { return m_developedSize.isValid(); }
    // The size dcraw_process would give at full resolution, unrotated.
    QSize developedSize() const { return m_developedSize; }
    std::optional<QByteArray> render();
    // Where the pixels of the last render came from.
    Source source() const { return m_source; }

private:
    bool open();
    std::optional<QByteArray> renderEmbeddedJpeg(QSize target);
    std::optional<QByteArray> renderDeveloped(QSize target);

    QByteArray m_path;
    qint64 m_fileSize = 0;
    std::unique_ptr<LibRaw> m_raw;
    QSize m_developedSize;
    PhotoMetadata m_metadata;
    Source m_source = Source::Nothing;
};
