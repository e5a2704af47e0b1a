// SPDX-License-Identifier: MIT
#pragma once

#include <QHash>
#include <QImage>
#include <QObject>
#include <QString>
#include <QTemporaryDir>

#include <cstdint>

// The fixture of the preview tests: a folder for the photo files they write, and photographic
// pictures drawn once per test program, since drawing them is the slow part.
class PreviewFixture : public QObject {
    Q_OBJECT

protected:
    // Qt maps PNG quality 100 to no deflate compression: big files, quickly written and read.
    static constexpr int fastPng = 100;

    // The preview of a file, decoded; a null image when there is none.
    static QImage previewOf(const QString &path);

    const QImage &scene(QSize size, std::uint32_t seed);
    QString path(const QString &name) const { return m_dir.filePath(name); }
    // Writes the bytes under the name; gives the file's path, or nothing when writing failed.
    QString write(const QString &name, const QByteArray &bytes) const;

private Q_SLOTS:
    void initTestCase();

private:
    QTemporaryDir m_dir;
    QHash<QString, QImage> m_scenes;
};
