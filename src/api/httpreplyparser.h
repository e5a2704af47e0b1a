// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QPair>

#include <optional>

// Reads an HTTP/1.1 reply as its bytes come off a connection: the status line, the header
// fields, then the body, which ends where Content-Length says, with the last chunk, or with the
// connection. Interim replies (1xx) are passed over. A reply that is not HTTP, breaks the
// protocol's framing or has a head beyond any sane size is malformed, and nothing more is read
// of it: what a peer sends can make it fail, never make it read out of bounds or grow without
// limit.
class HttpReplyParser {
public:
    enum class State { head, body, complete, malformed };
    using Fields = QList<QPair<QByteArray, QByteArray>>;

    // A reply's head (status line and fields) may not outgrow this.
    static constexpr qsizetype headLimit = 64 * 1024;
    // Of a body, this much is kept; the rest is counted and let go. The object store's replies
    // are a few hundred bytes, and nothing reads them beyond their status.
    static constexpr qsizetype bodyKept = 64 * 1024;

    // Takes the next bytes off the connection.
    void feed(QByteArrayView bytes);
    // The connection has closed: a body that runs to the close is complete now; a reply cut
    // short anywhere else stays incomplete.
    void connectionClosed();

    State state() const { return m_state; }
    bool isComplete() const { return m_state == State::complete; }
    // Whether any byte of a reply came at all.
    bool receivedAnything() const { return m_received > 0; }
    // The final status, 0 before its status line has come.
    int status() const { return m_status; }
    const Fields &fields() const { return m_fields; }
    // The first value of a field, its name compared without regard to case; empty if absent.
    QByteArray field(QByteArrayView name) const;
    std::optional<qint64> contentLength() const { return m_contentLength; }
    const QByteArray &body() const { return m_body; }
    qint64 bodySize() const { return m_bodySize; }

private:
    enum class Framing { none, length, chunked, untilClose };
    enum class ChunkStep { size, data, dataEnd, trailer };

    void parse();
    bool parseHead();
    bool parseStatusLine(QByteArrayView line);
    bool parseField(QByteArrayView line);
    bool chooseFraming();
    bool parseBody();
    bool parseChunked();
    void takeBody(QByteArrayView bytes);
    // The next line of the pending input, without its line ending; none while incomplete.
    std::optional<QByteArrayView> nextLine(qsizetype limit);
    void fail() { m_state = State::malformed; }

    State m_state = State::head;
    QByteArray m_pending;
    qsizetype m_consumed = 0; // of m_pending
    qint64 m_received = 0;
    qsizetype m_headSize = 0;
    bool m_statusLineRead = false;
    int m_status = 0;
    Fields m_fields;
    std::optional<qint64> m_contentLength;
    Framing m_framing = Framing::none;
    qint64 m_bodyLeft = 0; // of a length-framed body or of the current chunk
    ChunkStep m_chunkStep = ChunkStep::size;
    QByteArray m_body;
    qint64 m_bodySize = 0;
};
