// SPDX-License-Identifier: MIT
#include "rawpreview.h"

#include "jpegpreview.h"
#include "jpegsource.h"
#include "previewgeometry.h"
#include "previewrgbscaler.h"
#include "rawhalfsizedeveloper.h"
#include "rawmetadata.h"

#include <QFile>
#include <QFileInfo>
#include <cmath>
#include <cstdint>
#include <libraw/libraw.h>
#include <span>
#include <vector>

namespace {

// LibRaw reports damaged data through these callbacks, by default on stderr; a preview fails
// or succeeds silently instead.
void ignoreDataError(void *, const char *, const int) {}
#if !LIBRAW_COMPILE_CHECK_VERSION_NOTLESS(0, 21)
// Up to 0.20 LibRaw reports a failed allocation to this handler too; 0.21 dropped the handler,
// and the failure comes back from the call alone.
void ignoreMemoryError(void *, const char *, const char *) {}
#endif

// Raw data takes two bytes a pixel once unpacked. Compressed raws keep well over a byte for
// every eight pixels, so a file smaller than that cannot hold the raw it claims: it is cut
// short or lying, and unpacking it would allocate for nothing.
constexpr qint64 pixelsPerFileByte = 8;

struct ProcessedImageFree {
    void operator()(libraw_processed_image_t *image) const { LibRaw::dcraw_clear_mem(image); }
};

// Camera JPEGs and LibRaw's crop of the sensor differ by a few margin pixels, so "full size"
// means: as large as the preview needs, and the same shape within a percent.
bool coversDevelopedFrame(QSize jpeg, QSize developed, QSize target) {
    if (jpeg.width() < target.width() || jpeg.height() < target.height())
        return false;
    const double jpegAspect = double(jpeg.width()) / jpeg.height();
    const double developedAspect = double(developed.width()) / developed.height();
    return std::abs(jpegAspect / developedAspect - 1.0) <= 0.01;
}

} // namespace

RawPreview::RawPreview(const QString &path)
    : m_path(QFile::encodeName(path))
    , m_fileSize(QFileInfo(path).size())
    , m_raw(std::make_unique<LibRaw>()) {
    if (!open())
        return;
    m_metadata = RawMetadata::of(*m_raw);
    // Flip 0 is what the stored grid needs; with it the format query gives the developed size
    // without starting any processing.
    m_raw->imgdata.sizes.flip = 0;
    int width = 0;
    int height = 0;
    int colors = 0;
    int bits = 0;
    m_raw->get_mem_image_format(&width, &height, &colors, &bits);
    if (width > 0 && height > 0)
        m_developedSize = QSize(width, height);
}

RawPreview::~RawPreview() = default;

bool RawPreview::open() {
    m_raw->recycle();
    m_raw->set_dataerror_handler(&ignoreDataError, nullptr);
#if !LIBRAW_COMPILE_CHECK_VERSION_NOTLESS(0, 21)
    m_raw->set_memerror_handler(&ignoreMemoryError, nullptr);
#endif
    libraw_output_params_t &params = m_raw->imgdata.params;
    params.user_flip = 0;
    // LibRaw's own cap on the unpacked raw: the largest photo decoded at two bytes a pixel. Its
    // place moved from the output parameters to the unpacking ones in 0.21.
    const auto rawMegabytes = unsigned(PreviewGeometry::largestSourcePixels * 2 / (1024 * 1024));
#if LIBRAW_COMPILE_CHECK_VERSION_NOTLESS(0, 21)
    m_raw->imgdata.rawparams.max_raw_memory_mb = rawMegabytes;
#else
    params.max_raw_memory_mb = rawMegabytes;
#endif
    return m_raw->open_file(m_path.constData()) == LIBRAW_SUCCESS;
}

std::optional<QByteArray> RawPreview::render() {
    const std::optional<QSize> target = PreviewGeometry::targetSize(m_developedSize);
    if (!isRaw() || !target)
        return std::nullopt;
    if (std::optional<QByteArray> preview = renderEmbeddedJpeg(*target))
        return preview;
    return renderDeveloped(*target);
}

std::optional<QByteArray> RawPreview::renderEmbeddedJpeg(QSize target) {
    // A thumbnail longer than the file is a damaged directory, not a JPEG to allocate for.
    if (qint64(m_raw->imgdata.thumbnail.tlength) > m_fileSize ||
        m_raw->unpack_thumb() != LIBRAW_SUCCESS)
        return std::nullopt;
    const libraw_thumbnail_t &thumbnail = m_raw->imgdata.thumbnail;
    if (thumbnail.tformat != LIBRAW_THUMBNAIL_JPEG || thumbnail.thumb == nullptr ||
        thumbnail.tlength == 0)
        return std::nullopt;
    // LibRaw holds the embedded JPEG in memory already: it is decoded from there.
    const JpegSource source = JpegSource::fromMemory(std::span(
        reinterpret_cast<const std::uint8_t *>(thumbnail.thumb), std::size_t(thumbnail.tlength)));
    const JpegPreview jpeg(source);
    if (!jpeg.isValid() || !coversDevelopedFrame(jpeg.size(), m_developedSize, target))
        return std::nullopt;
    std::optional<QByteArray> preview =
        jpeg.render(target, RawMetadata::forEmbeddedJpeg(m_metadata, jpeg.metadata()));
    if (preview)
        m_source = Source::EmbeddedJpeg;
    return preview;
}

std::optional<QByteArray> RawPreview::renderDeveloped(QSize target) {
    // A fresh open: LibRaw's processing wants its steps in order, and the thumbnail was read.
    if (!open())
        return std::nullopt;
    const libraw_image_sizes_t &sizes = m_raw->imgdata.sizes;
    const qint64 rawPixels = qint64(sizes.raw_width) * sizes.raw_height;
    if (rawPixels > PreviewGeometry::largestSourcePixels ||
        rawPixels > m_fileSize * pixelsPerFileByte)
        return std::nullopt;
    libraw_output_params_t &params = m_raw->imgdata.params;
    // Half size takes each 2x2 Bayer cell as one pixel: a quarter of the work and no
    // demosaicing, and still wide enough for any camera whose raw is at least twice the preview.
    const bool halfSize = m_developedSize.width() / 2 >= target.width();
    params.half_size = halfSize ? 1 : 0;
    params.user_qual = 2; // PPG: only small raws get here, and it is fast
    params.use_camera_wb = 1;
    params.output_bps = 8;
    params.gamm[0] = 1.0 / 2.4; // sRGB, like every other preview
    params.gamm[1] = 12.92;
    // LibRaw fills what it cannot read with zeros and carries on; a cut-off or damaged raw gets
    // no preview rather than a half-black one.
    if (m_raw->unpack() != LIBRAW_SUCCESS || m_raw->error_count() > 0)
        return std::nullopt;
    if (halfSize && RawHalfSizeDeveloper::supports(*m_raw)) {
        // Bayer sensors, nearly every camera: developed row by row beside the raw data.
        RawHalfSizeDeveloper developer(*m_raw);
        PreviewRgbScaler scaler(developer.size(), target);
        developer.develop([&](const std::uint8_t *row) { scaler.pushRow(row); });
        m_raw->recycle();
        std::optional<QByteArray> preview = scaler.encode(RawMetadata::forDeveloped(m_metadata));
        if (preview)
            m_source = Source::HalfSizeRaw;
        return preview;
    }
    if (m_raw->dcraw_process() != LIBRAW_SUCCESS)
        return std::nullopt;
    int errorCode = 0;
    const std::unique_ptr<libraw_processed_image_t, ProcessedImageFree> image(
        m_raw->dcraw_make_mem_image(&errorCode));
    // The raw data and LibRaw's working image are not needed any more.
    m_raw->recycle();
    if (!image || image->type != LIBRAW_IMAGE_BITMAP || image->bits != 8 ||
        (image->colors != 1 && image->colors != 3) || image->width == 0 || image->height == 0)
        return std::nullopt;

    const QSize size(image->width, image->height);
    PreviewRgbScaler scaler(size, target);
    std::vector<std::uint8_t> grey;
    if (image->colors == 1)
        grey.resize(std::size_t(size.width()) * 3);
    const std::size_t stride = std::size_t(size.width()) * image->colors;
    for (int y = 0; y < size.height(); ++y) {
        const std::uint8_t *row = image->data + std::size_t(y) * stride;
        if (!grey.empty()) {
            for (int x = 0; x < size.width(); ++x)
                grey[std::size_t(x) * 3] = grey[std::size_t(x) * 3 + 1] =
                    grey[std::size_t(x) * 3 + 2] = row[x];
            row = grey.data();
        }
        scaler.pushRow(row);
    }
    std::optional<QByteArray> preview = scaler.encode(RawMetadata::forDeveloped(m_metadata));
    if (preview)
        m_source = halfSize ? Source::HalfSizeRaw : Source::FullSizeRaw;
    return preview;
}
