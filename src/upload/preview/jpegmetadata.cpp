// SPDX-License-Identifier: MIT
#include "jpegmetadata.h"

#include "exifreader.h"
#include "jpegsource.h"

#include <QList>
#include <cstring>
#include <span>

namespace {

constexpr std::uint8_t app1 = 0xE1;
constexpr std::uint8_t app2 = 0xE2;
constexpr std::uint8_t startOfScan = 0xDA;
constexpr std::uint8_t endOfImage = 0xD9;

bool startsWith(const QByteArray &bytes, const char *prefix, qsizetype length) {
    return bytes.size() >= length && std::memcmp(bytes.constData(), prefix, std::size_t(length)) == 0;
}

std::span<const std::uint8_t> bytesOf(const QByteArray &bytes) {
    return {reinterpret_cast<const std::uint8_t *>(bytes.constData()), std::size_t(bytes.size())};
}

// Chunks of a profile by their sequence number, 1-based, as ICC numbers them.
class ProfileChunks {
public:
    void add(const QByteArray &payload) {
        // Sequence number and count follow the 12-byte signature.
        if (payload.size() < 14 || payload[12] == 0 || payload[13] == 0)
            return;
        const int sequence = std::uint8_t(payload[12]);
        const int count = std::uint8_t(payload[13]);
        if (m_chunks.isEmpty())
            m_chunks.resize(count);
        if (count != m_chunks.size() || sequence > count || !m_chunks[sequence - 1].isEmpty()) {
            m_damaged = true;
            return;
        }
        m_chunks[sequence - 1] = payload.mid(14);
        if (m_chunks[sequence - 1].isEmpty())
            m_damaged = true;
    }

    QByteArray profile() const {
        QByteArray whole;
        if (m_damaged)
            return whole;
        for (const QByteArray &chunk : m_chunks) {
            if (chunk.isEmpty())
                return {};
            whole += chunk;
        }
        return whole;
    }

private:
    QList<QByteArray> m_chunks;
    bool m_damaged = false;
};

} // namespace

template <typename Visit>
void JpegMetadata::forEachSegment(const JpegSource &jpeg, Visit visit) {
    qint64 at = 2;
    while (at + 4 <= jpeg.size()) {
        const QByteArray head = jpeg.read(at, 4);
        if (head.size() < 4 || std::uint8_t(head[0]) != 0xFF)
            break;
        const std::uint8_t marker = std::uint8_t(head[1]);
        if (marker == 0xFF) {
            ++at; // fill byte
            continue;
        }
        if (marker == startOfScan || marker == endOfImage)
            break;
        const qint64 length = qint64(std::uint8_t(head[2])) << 8 | std::uint8_t(head[3]);
        if (length < 2 || at + 2 + length > jpeg.size())
            break;
        visit(marker, at + 4, length - 2);
        at += 2 + length;
    }
}

QByteArray JpegMetadata::exif(const JpegSource &jpeg) {
    QByteArray block;
    bool seen = false;
    // The first Exif block is the photo's; a second one (XMP's extension, a copy) is not.
    forEachSegment(jpeg, [&](std::uint8_t marker, qint64 offset, qint64 length) {
        if (marker != app1 || seen)
            return;
        const QByteArray payload = jpeg.read(offset, length);
        if (startsWith(payload, "Exif\0\0", 6)) {
            seen = true;
            block = payload.mid(6);
        }
    });
    return block;
}

PhotoMetadata JpegMetadata::read(const JpegSource &jpeg) {
    PhotoMetadata metadata;
    if (const QByteArray block = exif(jpeg); !block.isEmpty()) {
        const ExifReader exifReader(bytesOf(block));
        metadata.orientation = PhotoMetadata::validOrientation(exifReader.orientation());
        metadata.adobeRgb = exifReader.marksAdobeRgb();
    }
    ProfileChunks chunks;
    forEachSegment(jpeg, [&](std::uint8_t marker, qint64 offset, qint64 length) {
        if (marker != app2)
            return;
        const QByteArray payload = jpeg.read(offset, length);
        if (startsWith(payload, "ICC_PROFILE\0", 12))
            chunks.add(payload);
    });
    metadata.iccProfile = chunks.profile();
    return metadata;
}
