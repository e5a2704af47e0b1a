// SPDX-License-Identifier: MIT
#include "exifwriter.h"

#include <QFile>
#include <QList>

namespace {

constexpr quint16 typeAscii = 2;
constexpr quint16 typeShort = 3;
constexpr quint16 typeLong = 4;
constexpr quint16 typeRational = 5;
constexpr quint16 typeByte = 1;

struct Entry {
    quint16 tag;
    quint16 type;
    quint32 count;
    QByteArray value;  // already in the file's byte order
    int pointsTo = -1; // index of a directory whose offset is the value
};

class Bytes {
public:
    explicit Bytes(bool bigEndian)
        : m_big(bigEndian) {}
    QByteArray u16(quint32 v) const {
        QByteArray b(2, 0);
        b[m_big ? 0 : 1] = char((v >> 8) & 0xFF);
        b[m_big ? 1 : 0] = char(v & 0xFF);
        return b;
    }
    QByteArray u32(quint32 v) const {
        return m_big ? u16(v >> 16) + u16(v & 0xFFFF) : u16(v & 0xFFFF) + u16(v >> 16);
    }

private:
    bool m_big;
};

// Directories laid out one after another from `base` (the offset of the first one in the TIFF
// structure), each entry's value inline when it fits in four bytes, else after the directory.
QByteArray layOut(const QList<QList<Entry>> &directories, quint32 base, const Bytes &bytes) {
    QList<quint32> starts;
    quint32 at = base;
    for (const QList<Entry> &entries : directories) {
        starts.append(at);
        at += 2 + 12 * quint32(entries.size()) + 4;
        for (const Entry &e : entries)
            if (e.value.size() > 4)
                at += quint32(e.value.size() + (e.value.size() & 1));
    }
    QByteArray out;
    for (qsizetype d = 0; d < directories.size(); ++d) {
        const QList<Entry> &entries = directories[d];
        QByteArray data;
        const quint32 dataAt = starts[d] + 2 + 12 * quint32(entries.size()) + 4;
        out += bytes.u16(quint32(entries.size()));
        for (const Entry &e : entries) {
            out += bytes.u16(e.tag) + bytes.u16(e.type) + bytes.u32(e.count);
            QByteArray value = e.pointsTo >= 0 ? bytes.u32(starts[e.pointsTo]) : e.value;
            if (value.size() > 4) {
                out += bytes.u32(dataAt + quint32(data.size()));
                data += value;
                if (value.size() & 1)
                    data += '\0';
            } else {
                out += value + QByteArray(4 - value.size(), '\0');
            }
        }
        out += bytes.u32(0);
        out += data;
    }
    return out;
}

Entry ascii(quint16 tag, const QByteArray &text) {
    const QByteArray value = text + '\0';
    return {tag, typeAscii, quint32(value.size()), value};
}

// Everything but IFD0: the Exif directory (1), its Interoperability directory (2) and the GPS
// directory (3), as indices into the list that layOut takes with IFD0 first.
QList<QList<Entry>> subDirectories(const ExifWriter::Fields &fields, const Bytes &bytes,
                                   int firstIndex) {
    QList<Entry> exif;
    exif.append({0x9000, 7, 4, QByteArray("0231")}); // ExifVersion, UNDEFINED
    if (!fields.dateTimeOriginal.isEmpty())
        exif.append(ascii(0x9003, fields.dateTimeOriginal));
    if (!fields.subSecTimeOriginal.isEmpty())
        exif.append(ascii(0x9291, fields.subSecTimeOriginal));
    if (fields.adobeRgb)
        exif.append({0xA001, typeShort, 1, bytes.u16(0xFFFF)});
    if (fields.adobeRgb)
        exif.append({0xA005, typeLong, 1, {}, firstIndex + 1});
    if (!fields.bodySerialNumber.isEmpty())
        exif.append(ascii(0xA431, fields.bodySerialNumber));
    QList<Entry> interop{ascii(0x0001, "R03")};
    const auto rational = [&](quint32 n, quint32 d) { return bytes.u32(n) + bytes.u32(d); };
    QList<Entry> gps{
        {0x0000, typeByte, 4, QByteArray("\x02\x03\x00\x00", 4)},
        ascii(0x0001, "N"),
        {0x0002, typeRational, 3, rational(48, 1) + rational(51, 1) + rational(2412, 100)},
        ascii(0x0003, "E"),
        {0x0004, typeRational, 3, rational(2, 1) + rational(17, 1) + rational(4000, 100)},
    };
    QList<QList<Entry>> directories{exif, interop};
    if (fields.gpsPosition)
        directories.append(gps);
    return directories;
}

} // namespace

QByteArray ExifWriter::tiffBlock(const Fields &fields) {
    const Bytes bytes(true);
    QList<Entry> ifd0;
    if (fields.orientation != 0)
        ifd0.append({0x0112, typeShort, 1, bytes.u16(quint32(fields.orientation))});
    ifd0.append(ascii(0x010F, "Quillmere")); // Make
    if (!fields.artist.isEmpty())
        ifd0.append(ascii(0x013B, fields.artist));
    ifd0.append({0x8769, typeLong, 1, {}, 1});
    if (fields.gpsPosition)
        ifd0.append({0x8825, typeLong, 1, {}, 3});
    QList<QList<Entry>> directories{ifd0};
    directories += subDirectories(fields, bytes, 1);
    return QByteArray("MM\0\x2A\0\0\0\x08", 8) + layOut(directories, 8, bytes);
}

QByteArray ExifWriter::littleEndianExifDirectory(const Fields &fields, quint32 at) {
    const Bytes bytes(false);
    return layOut(subDirectories(fields, bytes, 0), at, bytes);
}

QByteArray ExifWriter::withExif(const QByteArray &jpeg, const Fields &fields) {
    const QByteArray tiff = tiffBlock(fields);
    const Bytes bytes(true);
    const QByteArray app1 = QByteArray("\xFF\xE1", 2) + bytes.u16(quint32(2 + 6 + tiff.size())) +
                            QByteArray("Exif\0\0", 6) + tiff;
    return jpeg.left(2) + app1 + jpeg.mid(2);
}

QByteArray ExifWriter::withIccProfile(const QByteArray &jpeg, const QByteArray &profile,
                                      int chunkBytes) {
    const Bytes bytes(true);
    const int count = int((profile.size() + chunkBytes - 1) / chunkBytes);
    QByteArray segments;
    for (int i = 0; i < count; ++i) {
        const QByteArray chunk = profile.mid(qsizetype(i) * chunkBytes, chunkBytes);
        segments += QByteArray("\xFF\xE2", 2) + bytes.u16(quint32(2 + 14 + chunk.size())) +
                    QByteArray("ICC_PROFILE\0", 12) + char(i + 1) + char(count) + chunk;
    }
    return jpeg.left(2) + segments + jpeg.mid(2);
}

bool ExifWriter::appendExifToTiff(const QString &path, const Fields &fields) {
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite))
        return false;
    QByteArray tiff = file.readAll();
    const auto u16 = [&](qsizetype i) {
        return quint32(uchar(tiff[i])) | quint32(uchar(tiff[i + 1])) << 8;
    };
    const auto u32 = [&](qsizetype i) { return u16(i) | u16(i + 2) << 16; };
    if (tiff.size() < 8 || !tiff.startsWith("II"))
        return false;
    if (tiff.size() & 1)
        tiff += '\0';
    const quint32 at = quint32(tiff.size());
    const quint32 ifd0 = u32(4);
    const quint32 count = u16(ifd0);
    for (quint32 i = 0; i < count; ++i) {
        const qsizetype entry = qsizetype(ifd0 + 2 + 12 * i);
        if (u16(entry) != 34665)
            continue;
        const Bytes bytes(false);
        tiff.replace(entry + 8, 4, bytes.u32(at));
        tiff += littleEndianExifDirectory(fields, at);
        return file.seek(0) && file.write(tiff) == tiff.size();
    }
    return false;
}
