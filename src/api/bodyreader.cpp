// SPDX-License-Identifier: MIT
#include "bodyreader.h"

#include <QFile>

#include <algorithm>
#include <cstring>

namespace {

// Copies what of `part`, which starts at `partStart` in the body, lies in [at, at + count).
qint64 copyFrom(const QByteArray &part, qint64 partStart, qint64 at, char *data, qint64 count)
{
    const qint64 from = at - partStart;
    if (from < 0 || from >= part.size())
        return 0;
    const qint64 copied = std::min(count, part.size() - from);
    std::memcpy(data, part.constData() + from, size_t(copied));
    return copied;
}

} // namespace

BodyReader::BodyReader() = default;
BodyReader::BodyReader(BodyReader &&) noexcept = default;
BodyReader &BodyReader::operator=(BodyReader &&) noexcept = default;
BodyReader::~BodyReader() = default;

BodyReader::BodyReader(QByteArray head, QByteArray bytes, QByteArray tail)
    : m_head(std::move(head))
    , m_bytes(std::move(bytes))
    , m_middleSize(m_bytes.size())
    , m_tail(std::move(tail))
    , m_size(m_head.size() + m_middleSize + m_tail.size())
{
}

BodyReader::BodyReader(QByteArray head, std::unique_ptr<QFile> file, QString path,
                       QByteArray tail)
    : m_head(std::move(head))
    , m_file(std::move(file))
    , m_path(std::move(path))
    , m_middleSize(m_file->size())
    , m_tail(std::move(tail))
    , m_size(m_head.size() + m_middleSize + m_tail.size())
{
}

qint64 BodyReader::read(char *data, qint64 maxSize)
{
    if (m_failed)
        return -1;
    const qint64 wanted = std::min(maxSize, m_size - m_position);
    qint64 done = 0;
    while (done < wanted) {
        const qint64 at = m_position + done;
        qint64 copied = copyFrom(m_head, 0, at, data + done, wanted - done);
        if (copied == 0 && at >= m_head.size() && at < m_head.size() + m_middleSize) {
            const qint64 offset = at - m_head.size();
            copied = readMiddle(data + done, offset,
                                std::min(wanted - done, m_middleSize - offset));
            if (copied < 0) {
                m_failed = true;
                return -1;
            }
        }
        if (copied == 0)
            copied = copyFrom(m_tail, m_head.size() + m_middleSize, at, data + done, wanted - done);
        if (copied == 0)
            break; // not reached: every byte below the size lies in one of the parts
        done += copied;
    }
    m_position += done;
    return done;
}

qint64 BodyReader::readMiddle(char *data, qint64 offset, qint64 count)
{
    if (!m_file)
        return copyFrom(m_bytes, 0, offset, data, count);
    // The file is read in order, never sought: the size it had at its opening is all it may
    // give, and a file that has less by now is no longer the one the request announced.
    qint64 done = 0;
    while (done < count) {
        const qint64 got = m_file->read(data + done, count - done);
        if (got <= 0)
            return -1;
        done += got;
    }
    return done;
}
