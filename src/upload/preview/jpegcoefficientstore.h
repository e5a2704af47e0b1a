// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

struct jpeg_common_struct;
struct jpeg_decompress_struct;
struct jvirt_barray_control;
class QTemporaryFile;

// Where libjpeg keeps the DCT coefficients of a progressive JPEG while its scans arrive: every
// coefficient of the whole picture at two bytes each, 135 MB for a 45-megapixel photo. This
// store keeps the first rows in memory up to a budget and the rest in a temporary file, one
// window at a time, so the memory a progressive photo takes is bounded whatever its
// size. Installed into one decompressor before its header is read; it must outlive the
// decompressor's use of it.
class JpegCoefficientStore {
public:
    explicit JpegCoefficientStore(std::size_t residentBytes);
    ~JpegCoefficientStore();
    JpegCoefficientStore(const JpegCoefficientStore &) = delete;
    JpegCoefficientStore &operator=(const JpegCoefficientStore &) = delete;

    // Takes over the decompressor's coefficient arrays; uses its client_data.
    void install(jpeg_decompress_struct &decompressor);

private:
    struct Hooks;

    std::size_t m_budget;
    std::vector<std::unique_ptr<jvirt_barray_control>> m_arrays;
    std::unique_ptr<QTemporaryFile> m_spill;
    void (*m_realizeOthers)(jpeg_common_struct *) = nullptr;
};
