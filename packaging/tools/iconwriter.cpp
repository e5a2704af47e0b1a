// SPDX-License-Identifier: MIT
// Writes the program's icon for Windows (.ico) and macOS (.icns) from its SVG, every image a
// PNG drawn at its own size: packaging/windows/quillmere-live.ico and
// packaging/macos/quillmere-live.icns are its output, kept in the repository.
//   quillmere_iconwriter ICON.svg OUT.ico OUT.icns
// .ico: 16 to 256 pixels, PNG-compressed entries, which Windows reads since Vista
// (https://learn.microsoft.com/windows/win32/uxguide/vis-icons). .icns: the PNG-carrying types
// iconutil(1) writes for an icon set of 16 to 1024 pixels (icp4 to ic14), which macOS 10.7 and
// later read. `cmake --build build/dev --target app_icons` writes both afresh.
#include <QBuffer>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>
#include <QtEndian>

#include <cstdio>
#include <utility>
#include <vector>

namespace {

QByteArray png(QSvgRenderer &svg, int size) {
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    svg.render(&painter, QRectF(0, 0, size, size));
    painter.end();
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

template <typename T>
void append(QByteArray &out, T value, bool bigEndian) {
    char bytes[sizeof(T)];
    if (bigEndian)
        qToBigEndian(value, bytes);
    else
        qToLittleEndian(value, bytes);
    out.append(bytes, sizeof(T));
}

QByteArray ico(QSvgRenderer &svg) {
    const std::vector<int> sizes{16, 20, 24, 32, 40, 48, 64, 96, 128, 256};
    QByteArray directory, images;
    append<quint16>(directory, 0, false);
    append<quint16>(directory, 1, false); // an icon
    append<quint16>(directory, quint16(sizes.size()), false);
    const quint32 firstOffset = quint32(6 + 16 * sizes.size());
    for (const int size : sizes) {
        const QByteArray image = png(svg, size);
        directory.append(char(size == 256 ? 0 : size)); // 0 stands for 256
        directory.append(char(size == 256 ? 0 : size));
        directory.append(char(0)); // no palette
        directory.append(char(0));
        append<quint16>(directory, 1, false);  // planes
        append<quint16>(directory, 32, false); // bits per pixel
        append<quint32>(directory, quint32(image.size()), false);
        append<quint32>(directory, quint32(firstOffset + images.size()), false);
        images += image;
    }
    return directory + images;
}

QByteArray icns(QSvgRenderer &svg) {
    const std::vector<std::pair<const char *, int>> types{
        {"icp4", 16}, {"icp5", 32}, {"icp6", 64}, {"ic07", 128}, {"ic08", 256},
        {"ic09", 512}, {"ic10", 1024}, {"ic11", 32}, {"ic12", 64}, {"ic13", 256}, {"ic14", 512}};
    QByteArray entries;
    for (const auto &[type, size] : types) {
        const QByteArray image = png(svg, size);
        entries.append(type, 4);
        append<quint32>(entries, quint32(8 + image.size()), true);
        entries += image;
    }
    QByteArray file("icns", 4);
    append<quint32>(file, quint32(8 + entries.size()), true);
    return file + entries;
}

bool write(const QString &path, const QByteArray &bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

} // namespace

int main(int argc, char *argv[]) {
    QGuiApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() != 4) {
        std::fputs("usage: quillmere_iconwriter ICON.svg OUT.ico OUT.icns\n", stderr);
        return 2;
    }
    QSvgRenderer svg(arguments[1]);
    if (!svg.isValid()) {
        std::fprintf(stderr, "quillmere_iconwriter: cannot read %s\n", qPrintable(arguments[1]));
        return 1;
    }
    return write(arguments[2], ico(svg)) && write(arguments[3], icns(svg)) ? 0 : 1;
}
