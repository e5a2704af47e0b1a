// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <vector>

// A QR code as its grid of modules, quiet zone included, made by libqrencode: the code a phone
// reads off the screen. Error correction at level M (15 % of the code may be lost), as for a code
// shown on a screen; the smallest version the text fits in.
class QrMatrix {
public:
    // The four light modules around the code that readers need to find it.
    static constexpr int quietZone = 4;

    QrMatrix() = default;
    // Empty when the text cannot be encoded (too long for any version, or empty); errorString()
    // then says why.
    static QrMatrix encode(const QString &text);

    bool isEmpty() const { return m_side == 0; }
    // Modules on each side, quiet zone included.
    int side() const { return m_side; }
    bool isDark(int column, int row) const;
    QString errorString() const { return m_error; }

private:
    int m_side = 0;
    std::vector<bool> m_dark;
    QString m_error;
};
