// SPDX-License-Identifier: MIT
#include "httpreplyparser.h"

#include <algorithm>

namespace {

// The characters of a field name (RFC 9110, section 5.6.2).
bool isTokenCharacter(char c)
{
    if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'))
        return true;
    return QByteArrayView("!#$%&'*+-.^_`|~").contains(c);
}

bool isBlank(char c) { return c == ' ' || c == '\t'; }

QByteArrayView trimmed(QByteArrayView text)
{
    while (!text.isEmpty() && isBlank(text.front()))
        text = text.sliced(1);
    while (!text.isEmpty() && isBlank(text.back()))
        text.chop(1);
    return text;
}

// A length a reply may declare: decimal digits only, and far below what a qint64 holds.
std::optional<qint64> decimalLength(QByteArrayView text)
{
    if (text.isEmpty() || text.size() > 15)
        return std::nullopt;
    qint64 value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9')
            return std::nullopt;
        value = value * 10 + (c - '0');
    }
    return value;
}

std::optional<qint64> hexadecimalLength(QByteArrayView text)
{
    if (text.isEmpty() || text.size() > 15)
        return std::nullopt;
    qint64 value = 0;
    for (const char c : text) {
        const int digit = c >= '0' && c <= '9'   ? c - '0'
                          : c >= 'a' && c <= 'f' ? c - 'a' + 10
                          : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                 : -1;
        if (digit < 0)
            return std::nullopt;
        value = value * 16 + digit;
    }
    return value;
}

} // namespace

void HttpReplyParser::feed(QByteArrayView bytes)
{
    if (bytes.isEmpty() || m_state == State::complete || m_state == State::malformed)
        return;
    m_received += bytes.size();
    m_pending.append(bytes);
    parse();
    m_pending.remove(0, m_consumed);
    m_consumed = 0;
}

void HttpReplyParser::connectionClosed()
{
    if (m_state == State::body && m_framing == Framing::untilClose)
        m_state = State::complete;
}

QByteArray HttpReplyParser::field(QByteArrayView name) const
{
    for (const auto &[fieldName, value] : m_fields) {
        if (QByteArrayView(fieldName).compare(name, Qt::CaseInsensitive) == 0)
            return value;
    }
    return {};
}

void HttpReplyParser::parse()
{
    while (m_state == State::head || m_state == State::body) {
        const bool progressed = m_state == State::head ? parseHead() : parseBody();
        if (!progressed)
            return;
    }
}

std::optional<QByteArrayView> HttpReplyParser::nextLine(qsizetype limit)
{
    const QByteArrayView unread = QByteArrayView(m_pending).sliced(m_consumed);
    const qsizetype end = unread.indexOf('\n');
    if (end < 0 || end > limit) {
        if (unread.size() > limit)
            fail();
        return std::nullopt;
    }
    QByteArrayView line = unread.first(end);
    if (line.endsWith('\r'))
        line.chop(1);
    m_consumed += end + 1;
    return line;
}

bool HttpReplyParser::parseHead()
{
    const std::optional<QByteArrayView> line = nextLine(headLimit - m_headSize);
    if (!line)
        return false;
    m_headSize += line->size() + 2;
    if (!m_statusLineRead)
        return parseStatusLine(*line);
    if (!line->isEmpty())
        return parseField(*line);
    if (m_status < 200) {
        // An interim reply (100 Continue, 103 Early Hints): the final one follows.
        m_statusLineRead = false;
        m_status = 0;
        m_fields.clear();
        m_headSize = 0;
        return true;
    }
    return chooseFraming();
}

bool HttpReplyParser::parseStatusLine(QByteArrayView line)
{
    // HTTP/1.x SP three digits, then SP and a reason phrase that means nothing to a program.
    if (line.size() < 12 || !line.startsWith("HTTP/1.") || line[7] < '0' || line[7] > '9' ||
        line[8] != ' ' || (line.size() > 12 && line[12] != ' ')) {
        fail();
        return false;
    }
    const std::optional<qint64> status = decimalLength(line.sliced(9, 3));
    // 101 would switch the connection to another protocol, which no upload asks for.
    if (!status || *status < 100 || *status > 599 || *status == 101) {
        fail();
        return false;
    }
    m_status = static_cast<int>(*status);
    m_statusLineRead = true;
    return true;
}

bool HttpReplyParser::parseField(QByteArrayView line)
{
    const qsizetype colon = line.indexOf(':');
    if (colon <= 0) {
        fail(); // no name, or a line folded onto the one before, which the protocol forbids
        return false;
    }
    const QByteArrayView name = line.first(colon);
    const QByteArrayView value = trimmed(line.sliced(colon + 1));
    if (!std::all_of(name.begin(), name.end(), isTokenCharacter) ||
        std::any_of(value.begin(), value.end(),
                    [](char c) { return c == '\0' || c == '\r' || c == '\n'; })) {
        fail();
        return false;
    }
    m_fields.append({name.toByteArray(), value.toByteArray()});
    return true;
}

bool HttpReplyParser::chooseFraming()
{
    // RFC 9112, section 6.3, for the reply to a request that is not HEAD.
    if (m_status == 204 || m_status == 304) {
        m_framing = Framing::none;
        m_state = State::complete;
        return true;
    }
    QByteArray lastCoding;
    std::optional<qint64> length;
    bool lengthDeclared = false;
    for (const auto &[name, value] : m_fields) {
        if (name.compare("Transfer-Encoding", Qt::CaseInsensitive) == 0) {
            for (const QByteArray &coding : value.split(',')) {
                if (!trimmed(coding).isEmpty())
                    lastCoding = trimmed(coding).toByteArray().toLower();
            }
        } else if (name.compare("Content-Length", Qt::CaseInsensitive) == 0) {
            // A list of equal lengths is one length; anything else cannot be trusted.
            for (const QByteArray &item : value.split(',')) {
                const std::optional<qint64> declared = decimalLength(trimmed(item));
                if (!declared || (lengthDeclared && length != declared)) {
                    fail();
                    return false;
                }
                length = declared;
                lengthDeclared = true;
            }
        }
    }
    m_state = State::body;
    if (!lastCoding.isEmpty()) {
        m_framing = lastCoding == "chunked" ? Framing::chunked : Framing::untilClose;
    } else if (length) {
        m_contentLength = length;
        m_framing = Framing::length;
        m_bodyLeft = *length;
        if (*length == 0)
            m_state = State::complete;
    } else {
        m_framing = Framing::untilClose;
    }
    return true;
}

bool HttpReplyParser::parseBody()
{
    if (m_framing == Framing::chunked)
        return parseChunked();
    const QByteArrayView unread = QByteArrayView(m_pending).sliced(m_consumed);
    if (unread.isEmpty())
        return false;
    const qsizetype taken =
        m_framing == Framing::length ? qsizetype(std::min<qint64>(unread.size(), m_bodyLeft))
                                     : unread.size();
    takeBody(unread.first(taken));
    m_consumed += taken;
    if (m_framing == Framing::length) {
        m_bodyLeft -= taken;
        if (m_bodyLeft == 0)
            m_state = State::complete;
    }
    return true;
}

bool HttpReplyParser::parseChunked()
{
    switch (m_chunkStep) {
    case ChunkStep::size: {
        const std::optional<QByteArrayView> line = nextLine(1024);
        if (!line)
            return false;
        // The size, then perhaps extensions after a semicolon, which mean nothing here.
        qsizetype digits = 0;
        while (digits < line->size() && (*line)[digits] != ';' && !isBlank((*line)[digits]))
            ++digits;
        const std::optional<qint64> size = hexadecimalLength(line->first(digits));
        if (!size) {
            fail();
            return false;
        }
        m_bodyLeft = *size;
        m_chunkStep = *size == 0 ? ChunkStep::trailer : ChunkStep::data;
        return true;
    }
    case ChunkStep::data: {
        const QByteArrayView unread = QByteArrayView(m_pending).sliced(m_consumed);
        if (unread.isEmpty())
            return false;
        const qsizetype taken = qsizetype(std::min<qint64>(unread.size(), m_bodyLeft));
        takeBody(unread.first(taken));
        m_consumed += taken;
        m_bodyLeft -= taken;
        if (m_bodyLeft == 0)
            m_chunkStep = ChunkStep::dataEnd;
        return true;
    }
    case ChunkStep::dataEnd: {
        const std::optional<QByteArrayView> line = nextLine(2);
        if (!line)
            return false;
        if (!line->isEmpty()) {
            fail();
            return false;
        }
        m_chunkStep = ChunkStep::size;
        return true;
    }
    case ChunkStep::trailer: {
        // Trailer fields count against the head's limit and are otherwise passed over.
        const std::optional<QByteArrayView> line = nextLine(headLimit - m_headSize);
        if (!line)
            return false;
        m_headSize += line->size() + 2;
        if (line->isEmpty())
            m_state = State::complete;
        return true;
    }
    }
    return false;
}

void HttpReplyParser::takeBody(QByteArrayView bytes)
{
    m_bodySize += bytes.size();
    if (m_body.size() < bodyKept)
        m_body.append(bytes.first(std::min(bytes.size(), bodyKept - m_body.size())));
}
