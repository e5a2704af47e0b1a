// SPDX-License-Identifier: MIT
#include "jpegsource.h"

#include <QFile>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <jpeglib.h>
#include <jerror.h>
#include <vector>

namespace {

// What the decoder reads of a file at once, and what the metadata reader keeps of it to walk
// the segments before the first scan without going to the file for each of them.
constexpr qint64 pieceBytes = 64 * 1024;

const JOCTET endOfImage[2] = {0xFF, JPEG_EOI};

} // namespace

// The file, the decompressor's manager of it, and a window of the file for random reads.
struct JpegSource::File : jpeg_source_mgr {
    QFile file;
    std::vector<JOCTET> piece = std::vector<JOCTET>(std::size_t(pieceBytes));
    qint64 next = 0; // where the decompressor's next piece starts
    QByteArray window;
    qint64 windowStart = -1;

    // Reads at `offset`, however the file's own position stands.
    qint64 readAt(qint64 offset, char *data, qint64 count) {
        if (!file.seek(offset))
            return 0;
        qint64 done = 0;
        while (done < count) {
            const qint64 got = file.read(data + done, count - done);
            if (got <= 0)
                break;
            done += got;
        }
        return done;
    }

    static File &of(j_decompress_ptr decompressor) {
        return *static_cast<File *>(decompressor->src);
    }
    static void start(j_decompress_ptr decompressor) {
        File &self = of(decompressor);
        self.next = 0;
        self.next_input_byte = nullptr;
        self.bytes_in_buffer = 0;
    }
    static boolean fill(j_decompress_ptr decompressor) {
        File &self = of(decompressor);
        const qint64 got = self.readAt(self.next, reinterpret_cast<char *>(self.piece.data()),
                                       pieceBytes);
        if (got <= 0) {
            // As libjpeg's own sources do at a premature end: a warning, then an end of image.
            WARNMS(decompressor, JWRN_JPEG_EOF);
            self.next_input_byte = endOfImage;
            self.bytes_in_buffer = sizeof endOfImage;
            return TRUE;
        }
        self.next += got;
        self.next_input_byte = self.piece.data();
        self.bytes_in_buffer = std::size_t(got);
        return TRUE;
    }
    static void skip(j_decompress_ptr decompressor, long count) {
        if (count <= 0)
            return;
        File &self = of(decompressor);
        const auto skipped = std::size_t(count);
        if (skipped <= self.bytes_in_buffer) {
            self.next_input_byte += skipped;
            self.bytes_in_buffer -= skipped;
            return;
        }
        // Past what is buffered: the next piece starts beyond, without reading what lies between.
        self.next += qint64(skipped - self.bytes_in_buffer);
        self.next_input_byte = nullptr;
        self.bytes_in_buffer = 0;
    }
    static void finish(j_decompress_ptr) {}
};

JpegSource::JpegSource(JpegSource &&) noexcept = default;
JpegSource &JpegSource::operator=(JpegSource &&) noexcept = default;
JpegSource::~JpegSource() = default;

JpegSource JpegSource::fromMemory(std::span<const std::uint8_t> bytes) {
    JpegSource source;
    source.m_memory = bytes;
    source.m_size = qint64(bytes.size());
    return source;
}

std::optional<JpegSource> JpegSource::fromFile(const QString &path) {
    JpegSource source;
    source.m_file = std::make_unique<File>();
    source.m_file->file.setFileName(path);
    // Unbuffered: every read is of a piece's size or of a few bytes at a known place.
    if (!source.m_file->file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return std::nullopt;
    source.m_size = source.m_file->file.size();
    source.m_file->init_source = &File::start;
    source.m_file->fill_input_buffer = &File::fill;
    source.m_file->skip_input_data = &File::skip;
    source.m_file->resync_to_restart = &jpeg_resync_to_restart;
    source.m_file->term_source = &File::finish;
    return source;
}

QByteArray JpegSource::read(qint64 offset, qint64 count) const {
    if (offset < 0 || count <= 0 || offset >= m_size)
        return {};
    count = std::min(count, m_size - offset);
    if (!m_file)
        return QByteArray(reinterpret_cast<const char *>(m_memory.data() + offset), count);
    File &file = *m_file;
    if (count > pieceBytes) {
        QByteArray bytes(count, Qt::Uninitialized);
        bytes.truncate(file.readAt(offset, bytes.data(), count));
        return bytes;
    }
    if (file.windowStart < 0 || offset < file.windowStart ||
        offset + count > file.windowStart + file.window.size()) {
        file.window.resize(pieceBytes);
        file.window.truncate(file.readAt(offset, file.window.data(), pieceBytes));
        file.windowStart = offset;
    }
    const qint64 from = offset - file.windowStart;
    return file.window.mid(from, std::min(count, file.window.size() - from));
}

bool JpegSource::endsWithEndOfImage() const {
    return read(m_size - 2, 2) == QByteArray::fromRawData("\xFF\xD9", 2);
}

void JpegSource::install(jpeg_decompress_struct &decompressor) const {
    if (m_file)
        decompressor.src = m_file.get();
    else
        jpeg_mem_src(&decompressor, m_memory.data(), static_cast<unsigned long>(m_memory.size()));
}
