// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

struct jpeg_decompress_struct;

// Where the bytes of a JPEG come from: a buffer in memory (a RAW's embedded JPEG, which LibRaw
// hands over whole), or a file read a piece at a time, so that a photo of any size costs the
// decoder no more memory than a small one. The decoder and the metadata reader ask it for
// bytes; neither holds the whole file.
class JpegSource {
public:
    // The bytes must outlive the source.
    static JpegSource fromMemory(std::span<const std::uint8_t> bytes);
    // No value when the file cannot be opened.
    static std::optional<JpegSource> fromFile(const QString &path);

    JpegSource(JpegSource &&) noexcept;
    JpegSource &operator=(JpegSource &&) noexcept;
    ~JpegSource();

    qint64 size() const { return m_size; }
    // Up to `count` bytes from `offset`: fewer at the end, or where a file fails.
    QByteArray read(qint64 offset, qint64 count) const;
    // Whether the JPEG ends with its end-of-image marker, as a complete file does.
    bool endsWithEndOfImage() const;
    // Has the decompressor read from the first byte on. A file, or a buffer, that ends sooner
    // than its markers say gives the decompressor a warning and an end-of-image marker, as
    // libjpeg's own sources do. The source must outlive the decompressor's use of it.
    void install(jpeg_decompress_struct &decompressor) const;

private:
    struct File;
    JpegSource() = default;

    std::span<const std::uint8_t> m_memory;
    std::unique_ptr<File> m_file;
    qint64 m_size = 0;
};
