// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

#include <memory>

class QFile;

// One send's way through a request body, from its first byte to its last: bytes held in
// memory, or a file's bytes read from the file as they are asked for, between a head and a
// tail. Its size is fixed when it is opened, and it never gives more or fewer bytes than that:
// a file that fails or ends sooner fails the read instead. Made by RequestBody::open().
class BodyReader {
public:
    BodyReader();
    BodyReader(BodyReader &&) noexcept;
    BodyReader &operator=(BodyReader &&) noexcept;
    ~BodyReader();

    qint64 size() const { return m_size; }
    qint64 position() const { return m_position; }
    bool atEnd() const { return m_position >= m_size; }
    // Copies the next bytes of the body, as many as asked for while there are any: 0 at its
    // end, -1 once the file has failed or ended before the size promised.
    qint64 read(char *data, qint64 maxSize);
    bool failed() const { return m_failed; }
    // The file the body reads from; empty for bytes in memory.
    const QString &filePath() const { return m_path; }

private:
    friend class RequestBody;
    BodyReader(QByteArray head, QByteArray bytes, QByteArray tail);
    BodyReader(QByteArray head, std::unique_ptr<QFile> file, QString path, QByteArray tail);

    qint64 readMiddle(char *data, qint64 offset, qint64 count);

    QByteArray m_head;
    QByteArray m_bytes;
    std::unique_ptr<QFile> m_file;
    QString m_path;
    qint64 m_middleSize = 0;
    QByteArray m_tail;
    qint64 m_size = 0;
    qint64 m_position = 0;
    bool m_failed = false;
};
