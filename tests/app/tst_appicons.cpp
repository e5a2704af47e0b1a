// SPDX-License-Identifier: MIT
// The program's icons for Windows and macOS, as kept in the repository: every size each system
// asks for is there, a PNG of its own size, drawn from the SVG.
#include <QFile>
#include <QImage>
#include <QTest>
#include <QtEndian>

#include <map>

namespace {

QByteArray readAll(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Width of each image by its stated size, or -1 where the bytes are not a PNG of that size.
std::map<int, int> icoImages(const QByteArray &ico) {
    std::map<int, int> images;
    if (ico.size() < 6 || qFromLittleEndian<quint16>(ico.constData() + 2) != 1)
        return images;
    const int count = qFromLittleEndian<quint16>(ico.constData() + 4);
    for (int i = 0; i < count && 6 + 16 * (i + 1) <= ico.size(); ++i) {
        const char *entry = ico.constData() + 6 + 16 * i;
        const int stated = entry[0] == 0 ? 256 : quint8(entry[0]);
        const quint32 length = qFromLittleEndian<quint32>(entry + 8);
        const quint32 offset = qFromLittleEndian<quint32>(entry + 12);
        const QImage image = QImage::fromData(ico.mid(offset, length), "PNG");
        images[stated] = image.width() == image.height() ? image.width() : -1;
    }
    return images;
}

std::map<QByteArray, int> icnsImages(const QByteArray &icns) {
    std::map<QByteArray, int> images;
    if (!icns.startsWith("icns") || qFromBigEndian<quint32>(icns.constData() + 4) != quint32(icns.size()))
        return images;
    for (qsizetype at = 8; at + 8 <= icns.size();) {
        const quint32 length = qFromBigEndian<quint32>(icns.constData() + at + 4);
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
