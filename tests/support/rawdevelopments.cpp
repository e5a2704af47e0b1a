// SPDX-License-Identifier: MIT
#include "rawdevelopments.h"

#include "rawhalfsizedeveloper.h"

#include <QFile>
#include <cstring>
#include <libraw/libraw.h>
#include <memory>

namespace {

std::unique_ptr<LibRaw> unpacked(const QString &path) {
    auto raw = std::make_unique<LibRaw>();
    libraw_output_params_t &params = raw->imgdata.params;
    params.user_flip = 0;
    params.half_size = 1;
    params.use_camera_wb = 1;
    params.output_bps = 8;
    params.gamm[0] = 1.0 / 2.4;
    params.gamm[1] = 12.92;
    if (raw->open_file(QFile::encodeName(path).constData()) != LIBRAW_SUCCESS ||
        raw->unpack() != LIBRAW_SUCCESS)
        return nullptr;
    return raw;
}

} // namespace

QImage RawDevelopments::libRaw(const QString &path) {
    const std::unique_ptr<LibRaw> raw = unpacked(path);
    if (!raw || raw->dcraw_process() != LIBRAW_SUCCESS)
        return {};
    int error = 0;
    libraw_processed_image_t *developed = raw->dcraw_make_mem_image(&error);
    if (developed == nullptr)
        return {};
    QImage image;
    if (developed->type == LIBRAW_IMAGE_BITMAP && developed->colors == 3 && developed->bits == 8) {
        image = QImage(developed->width, developed->height, QImage::Format_RGB888);
        for (int y = 0; y < image.height(); ++y)
            std::memcpy(image.scanLine(y), developed->data + std::size_t(y) * developed->width * 3,
                        std::size_t(developed->width) * 3);
    }
    LibRaw::dcraw_clear_mem(developed);
    return image;
}

QImage RawDevelopments::streamed(const QString &path) {
    const std::unique_ptr<LibRaw> raw = unpacked(path);
    if (!raw || !RawHalfSizeDeveloper::supports(*raw))
        return {};
    RawHalfSizeDeveloper developer(*raw);
    QImage image(developer.size(), QImage::Format_RGB888);
    int y = 0;
    developer.develop([&](const std::uint8_t *row) {
        std::memcpy(image.scanLine(y++), row, std::size_t(image.width()) * 3);
    });
    return image;
}
