// SPDX-License-Identifier: MIT
#include "jpegmetadata.h"

#include "exifreader.h"

#include <QList>
#include <cstring>

namespace {

constexpr std::uint8_t app1 = 0xE1;
constexpr std::uint8_t app2 = 0xE2;
constexpr std::uint8_t startOfScan = 0xDA;
constexpr std::uint8_t endOfImage = 0xD9;

bool startsWith(std::span<const std::uint8_t> bytes, const char *prefix, std::size_t length) {
    return bytes.size() >= length && std::memcmp(bytes.data(), prefix, length) == 0;
}

// Chunks of a profile by their sequence number, 1-based, as ICC numbers them.
class ProfileChunks {
public:
    void add(std::span<const std::uint8_t> payload) {
        // Sequence number and count follow the 12-byte signature.
        if (payload.size() < 14 || payload[12] == 0 || payload[13] == 0)
            return;
        const int sequence = payload[12];
        const int count = payload[13];
        if (m_chunks.isEmpty())
            m_chunks.resize(count);
        if (count != m_chunks.size() || sequence > count || !m_chunks[sequence - 1].isEmpty()) {
            m_damaged = true;
            return;
        }
        m_chunks[sequence - 1] = QByteArray(reinterpret_cast<const char *>(payload.data() + 14),
                                            qsizetype(payload.size() - 14));
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
void JpegMetadata::forEachSegment(std::span<const std::uint8_t> jpeg, Visit visit) {
    std::size_t at = 2;
    while (at + 4 <= jpeg.size()) {
        if (jpeg[at] != 0xFF)
            break;
        const std::uint8_t marker = jpeg[at + 1];
        if (marker == 0xFF) {
            ++at; // fill byte
            continue;
        }
        if (marker == startOfScan || marker == endOfImage)
            break;
        const std::size_t length = std::size_t(jpeg[at + 2]) << 8 | jpeg[at + 3];
        if (length < 2 || at + 2 + length > jpeg.size())
            break;
        visit(marker, jpeg.subspan(at + 4, length - 2));
        at += 2 + length;
    }
}

std::span<const std::uint8_t> JpegMetadata::exif(std::span<const std::uint8_t> jpeg) {
    std::span<const std::uint8_t> block;
    bool seen = false;
    // The first Exif block is the photo's; a second one (XMP's extension, a copy) is not.
    forEachSegment(jpeg, [&](std::uint8_t marker, std::span<const std::uint8_t> payload) {
        if (marker == app1 && !seen && startsWith(payload, "Exif\0\0", 6)) {
            seen = true;
            block = payload.subspan(6);
        }
    });
    return block;
}

PhotoMetadata JpegMetadata::read(std::span<const std::uint8_t> jpeg) {
    PhotoMetadata metadata;
    if (const std::span<const std::uint8_t> block = exif(jpeg); !block.empty()) {
        const ExifReader exifReader(block);
        metadata.orientation = PhotoMetadata::validOrientation(exifReader.orientation());
        metadata.adobeRgb = exifReader.marksAdobeRgb();
    }
    ProfileChunks chunks;
    forEachSegment(jpeg, [&](std::uint8_t marker, std::span<const std::uint8_t> payload) {
        if (marker == app2 && startsWith(payload, "ICC_PROFILE\0", 12))
            chunks.add(payload);
    });
    metadata.iccProfile = chunks.profile();
    return metadata;
}
