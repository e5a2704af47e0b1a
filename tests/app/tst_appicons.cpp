// SPDX-License-Identifier: MIT
// The program's icons for Windows and macOS, as kept in the repository: every size each system
// asks for is there, a PNG of its own size, drawn from the SVG.
#include <QFile>
#include <QImage>
#include <QTest>

#include <map>

namespace {

QByteArray readAll(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The unsigned number of `width` bytes at `at`, read byte by byte through at(): GCC's bounds
// analysis, in the sanitizer build, takes pointer arithmetic on a QByteArray's data for reads
// past an empty array's single byte.
quint32 littleEndian(const QByteArray &bytes, qsizetype at, int width) {
    quint32 value = 0;
    for (int i = width - 1; i >= 0; --i)
        value = (value << 8) | quint8(bytes.at(at + i));
    return value;
}

quint32 bigEndian(const QByteArray &bytes, qsizetype at, int width) {
    quint32 value = 0;
    for (int i = 0; i < width; ++i)
        value = (value << 8) | quint8(bytes.at(at + i));
    return value;
}

// Width of each image by its stated size, or -1 where the bytes are not a PNG of that size.
std::map<int, int> icoImages(const QByteArray &ico) {
    std::map<int, int> images;
    if (ico.size() < 6 || littleEndian(ico, 2, 2) != 1)
        return images;
    const int count = int(littleEndian(ico, 4, 2));
    for (int i = 0; i < count && 6 + 16 * (i + 1) <= ico.size(); ++i) {
        const qsizetype entry = 6 + 16 * i;
        const int stated = ico.at(entry) == 0 ? 256 : quint8(ico.at(entry));
        const quint32 length = littleEndian(ico, entry + 8, 4);
        const quint32 offset = littleEndian(ico, entry + 12, 4);
        const QImage image = QImage::fromData(ico.mid(offset, length), "PNG");
        images[stated] = image.width() == image.height() ? image.width() : -1;
    }
    return images;
}

std::map<QByteArray, int> icnsImages(const QByteArray &icns) {
    std::map<QByteArray, int> images;
    if (!icns.startsWith("icns") || icns.size() < 8 || bigEndian(icns, 4, 4) != quint32(icns.size()))
        return images;
    for (qsizetype at = 8; at + 8 <= icns.size();) {
        const quint32 length = bigEndian(icns, at + 4, 4);
        if (length < 8)
            break;
        const QImage image = QImage::fromData(icns.mid(at + 8, length - 8), "PNG");
        images[icns.mid(at, 4)] = image.width() == image.height() ? image.width() : -1;
        at += length;
    }
    return images;
}

} // namespace

class TestAppIcons : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void windowsIconHasEverySizeFrom16To256() {
        const auto images = icoImages(readAll(QStringLiteral(QUILLMERE_PACKAGING_DIR "/windows/quillmere-live.ico")));
        for (const int size : {16, 20, 24, 32, 40, 48, 64, 96, 128, 256}) {
            QVERIFY2(images.count(size), qPrintable(QString::number(size)));
            QCOMPARE(images.at(size), size);
        }
    }

    void macIconHasEverySizeFrom16To1024() {
        const auto images = icnsImages(readAll(QStringLiteral(QUILLMERE_PACKAGING_DIR "/macos/quillmere-live.icns")));
        const std::map<QByteArray, int> expected{{"icp4", 16}, {"icp5", 32}, {"icp6", 64},
                                                 {"ic07", 128}, {"ic08", 256}, {"ic09", 512},
                                                 {"ic10", 1024}, {"ic11", 32}, {"ic12", 64},
                                                 {"ic13", 256}, {"ic14", 512}};
        QCOMPARE(images, expected);
    }
};

QTEST_GUILESS_MAIN(TestAppIcons)
#include "tst_appicons.moc"
