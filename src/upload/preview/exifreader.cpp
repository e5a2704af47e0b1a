// SPDX-License-Identifier: MIT
#include "exifreader.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::uint16_t orientationTag = 0x0112;
constexpr std::uint16_t exifPointerTag = 0x8769;
constexpr std::uint16_t colourSpaceTag = 0xA001;
constexpr std::uint16_t interoperabilityPointerTag = 0xA005;
constexpr std::uint16_t interoperabilityIndexTag = 0x0001;
constexpr std::uint16_t dateTimeOriginalTag = 0x9003;
constexpr std::uint16_t subSecTimeOriginalTag = 0x9291;
constexpr std::uint16_t typeAscii = 2;
constexpr std::uint16_t typeShort = 3;
constexpr std::uint16_t typeLong = 4;
// A real directory has a few dozen entries; more is a loop or junk to walk for nothing.
constexpr std::uint16_t mostEntries = 1000;

} // namespace

ExifReader::ExifReader(std::span<const std::uint8_t> tiff)
    : m_tiff(tiff) {
    if (tiff.size() < 8)
        return;
    if (tiff[0] == 'M' && tiff[1] == 'M')
        m_bigEndian = true;
    else if (tiff[0] != 'I' || tiff[1] != 'I')
        return;
    if (read16(2) != 42)
        return;
    std::uint32_t exifAt = 0;
    forEachEntry(read32(4), [&](const Entry &entry) {
        if (entry.tag == orientationTag && entry.count == 1)
            m_orientation = int(shortOrLong(entry));
        else if (entry.tag == exifPointerTag && entry.count == 1)
            exifAt = shortOrLong(entry);
    });
    if (exifAt != 0)
        readExifDirectory(exifAt);
}

bool ExifReader::marksAdobeRgb() const {
    // DCF's R03 goes with ColorSpace "uncalibrated"; only an explicit sRGB mark overrides it.
    return m_colourSpace == 2 || (m_interopR03 && m_colourSpace != 1);
}

std::uint16_t ExifReader::read16(std::size_t at) const {
    if (at > m_tiff.size() || m_tiff.size() - at < 2)
        return 0;
    const std::uint8_t *p = m_tiff.data() + at;
    return m_bigEndian ? std::uint16_t(p[0] << 8 | p[1]) : std::uint16_t(p[1] << 8 | p[0]);
}

std::uint32_t ExifReader::read32(std::size_t at) const {
    const std::uint32_t first = read16(at);
    const std::uint32_t second = read16(at + 2);
    return m_bigEndian ? (first << 16 | second) : (second << 16 | first);
}

template <typename Visit> bool ExifReader::forEachEntry(std::uint32_t offset, Visit visit) const {
    if (offset < 8 || offset > m_tiff.size() || m_tiff.size() - offset < 2)
        return false;
    const std::uint16_t count = read16(offset);
    if (count > mostEntries || (m_tiff.size() - offset - 2) / 12 < count)
        return false;
    for (std::uint16_t i = 0; i < count; ++i) {
        const std::size_t at = std::size_t(offset) + 2 + std::size_t(i) * 12;
        visit(Entry{read16(at), read16(at + 2), read32(at + 4), at + 8});
    }
    return true;
}

std::uint32_t ExifReader::shortOrLong(const Entry &entry) const {
    if (entry.type == typeShort)
        return read16(entry.valueAt);
    if (entry.type == typeLong)
        return read32(entry.valueAt);
    return 0;
}

void ExifReader::readExifDirectory(std::uint32_t offset) {
    std::uint32_t interoperabilityAt = 0;
    forEachEntry(offset, [&](const Entry &entry) {
        if (entry.tag == colourSpaceTag && entry.count == 1)
            m_colourSpace = int(shortOrLong(entry));
        else if (entry.tag == interoperabilityPointerTag && entry.count == 1)
            interoperabilityAt = shortOrLong(entry);
        else if (entry.tag == dateTimeOriginalTag)
            m_dateTimeOriginal = ascii(entry, 19);
        else if (entry.tag == subSecTimeOriginalTag)
            m_subSecTimeOriginal = ascii(entry, 9);
    });
    // A pointer back into a directory already read would only read it again: no loop is
    // possible, since each directory is visited once by position in this chain.
    if (interoperabilityAt != 0 && interoperabilityAt != offset)
        readInteroperability(interoperabilityAt);
}

std::string ExifReader::ascii(const Entry &entry, std::uint32_t longest) const {
    if (entry.type != typeAscii || entry.count == 0)
        return {};
    // Up to four bytes sit in the entry itself; longer values lie at the offset it holds.
    const std::size_t at = entry.count <= 4 ? entry.valueAt : read32(entry.valueAt);
    const std::size_t length = std::min<std::size_t>(entry.count, longest);
    if (at > m_tiff.size() || m_tiff.size() - at < length)
        return {};
    const auto *text = reinterpret_cast<const char *>(m_tiff.data() + at);
    return std::string(text, std::find(text, text + length, '\0'));
}

void ExifReader::readInteroperability(std::uint32_t offset) {
    forEachEntry(offset, [&](const Entry &entry) {
        // "R03" and its NUL fit in the value field itself.
        if (entry.tag == interoperabilityIndexTag && entry.type == typeAscii && entry.count >= 3 &&
            entry.count <= 4 && entry.valueAt + 3 <= m_tiff.size())
            m_interopR03 = std::memcmp(m_tiff.data() + entry.valueAt, "R03", 3) == 0;
    });
}
