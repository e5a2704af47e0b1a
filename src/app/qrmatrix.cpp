// SPDX-License-Identifier: MIT
#include "qrmatrix.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <qrencode.h>

QrMatrix QrMatrix::encode(const QString &text) {
    QrMatrix matrix;
    if (text.isEmpty()) {
        matrix.m_error = QStringLiteral("nothing to encode");
        return matrix;
    }
    const QByteArray bytes = text.toUtf8();
    // Case-sensitive 8-bit mode: an address keeps its lower-case letters as they are.
    errno = 0;
    const std::unique_ptr<QRcode, void (*)(QRcode *)> code(
        QRcode_encodeString(bytes.constData(), 0, QR_ECLEVEL_M, QR_MODE_8, 1), QRcode_free);
    if (!code) {
        matrix.m_error = errno == ERANGE ? QStringLiteral("the text is too long for a QR code")
                                         : QString::fromLocal8Bit(std::strerror(errno));
        return matrix;
    }
    const int width = code->width;
    matrix.m_side = width + 2 * quietZone;
    matrix.m_dark.assign(std::size_t(matrix.m_side) * std::size_t(matrix.m_side), false);
    for (int row = 0; row < width; ++row) {
        for (int column = 0; column < width; ++column) {
            // libqrencode: bit 0 of each byte is the module's colour, 1 for dark.
            if (code->data[row * width + column] & 1)
                matrix.m_dark[std::size_t(row + quietZone) * std::size_t(matrix.m_side) +
                              std::size_t(column + quietZone)] = true;
        }
    }
    return matrix;
}

bool QrMatrix::isDark(int column, int row) const {
    if (column < 0 || row < 0 || column >= m_side || row >= m_side)
        return false;
    return m_dark[std::size_t(row) * std::size_t(m_side) + std::size_t(column)];
}
