// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <string>

// Reads the few EXIF fields a preview needs from an Exif block (the TIFF structure after
// "Exif\0\0"): the orientation of IFD0, the colour-space marks of the Exif and
// Interoperability directories, and when the photo was taken. Every offset is checked against the block, so a damaged or
// hostile block gives nothing rather than a read beyond it.
class ExifReader {
public:
    explicit ExifReader(std::span<const std::uint8_t> tiff);

    // The raw Orientation value, 0 when absent.
    int orientation() const { return m_orientation; }
    // Adobe RGB the way cameras say it: InteropIndex "R03" (with ColorSpace "uncalibrated",
    // 0xFFFF, or none), or ColorSpace 2 as some cameras write it.
    bool marksAdobeRgb() const;
    // DateTimeOriginal ("2026:03:14 09:26:53") and SubSecTimeOriginal ("042") as written, empty
    // when absent.
    const std::string &dateTimeOriginal() const { return m_dateTimeOriginal; }
    const std::string &subSecTimeOriginal() const { return m_subSecTimeOriginal; }

private:
    struct Entry {
        std::uint16_t tag;
        std::uint16_t type;
        std::uint32_t count;
        std::size_t valueAt; // where the value or its offset is stored
    };

    std::uint16_t read16(std::size_t at) const;
    std::uint32_t read32(std::size_t at) const;
    // Calls `visit` for each entry of the directory at `offset`; false when it is out of bounds.
    template <typename Visit> bool forEachEntry(std::uint32_t offset, Visit visit) const;
    std::uint32_t shortOrLong(const Entry &entry) const;
    void readExifDirectory(std::uint32_t offset);
    void readInteroperability(std::uint32_t offset);
    // An ASCII value of at most `longest` characters, up to its NUL.
    std::string ascii(const Entry &entry, std::uint32_t longest) const;

    std::span<const std::uint8_t> m_tiff;
    bool m_bigEndian = false;
    int m_orientation = 0;
    int m_colourSpace = 0;
    bool m_interopR03 = false;
    std::string m_dateTimeOriginal;
    std::string m_subSecTimeOriginal;
};
