// SPDX-License-Identifier: MIT
#include "multipartreader.h"

#include <algorithm>
#include <cctype>
#include <utility>
#include <vector>

namespace {

constexpr std::string_view crlf = "\r\n";
constexpr std::size_t longestHeaderLine = 8192;

std::string_view trimmed(std::string_view text) {
    const auto blank = [](char c) { return c == ' ' || c == '\t'; };
    while (!text.empty() && blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && blank(text.back()))
        text.remove_suffix(1);
    return text;
}

bool sameLetters(std::string_view a, std::string_view b) {
    return std::ranges::equal(
        a, b, [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

// Splits "a; b=c; d=\"e;f\"" into its first item and the parameters after it; a quoted value
// may hold ';'. Nothing when a quote is left open or a parameter has no '='.
struct Parameter {
    std::string_view name;
    std::string_view value;
};
std::optional<std::pair<std::string_view, std::vector<Parameter>>>
splitParameters(std::string_view text) {
    const std::size_t first = text.find(';');
    std::vector<Parameter> parameters;
    std::string_view rest = first == std::string_view::npos ? "" : text.substr(first + 1);
    while (!trimmed(rest).empty()) {
        rest = trimmed(rest);
        const std::size_t equals = rest.find('=');
        if (equals == std::string_view::npos)
            return std::nullopt;
        Parameter parameter{trimmed(rest.substr(0, equals)), {}};
        rest = trimmed(rest.substr(equals + 1));
        std::size_t end = 0;
        if (rest.starts_with('"')) {
            end = rest.find('"', 1);
            if (end == std::string_view::npos)
                return std::nullopt;
            parameter.value = rest.substr(1, end - 1);
            ++end;
        } else {
            end = std::min(rest.find(';'), rest.size());
            parameter.value = trimmed(rest.substr(0, end));
        }
        parameters.push_back(parameter);
        rest = trimmed(rest.substr(end));
        if (!rest.empty() && !rest.starts_with(';'))
            return std::nullopt;
        if (!rest.empty())
            rest.remove_prefix(1);
    }
    return std::pair{trimmed(text.substr(0, first)), parameters};
}

} // namespace

std::optional<std::string> MultipartReader::boundaryOf(std::string_view contentType) {
    const auto split = splitParameters(contentType);
    if (!split || !sameLetters(split->first, "multipart/form-data"))
        return std::nullopt;
    std::optional<std::string> boundary;
    for (const Parameter &parameter : split->second) {
        if (!sameLetters(parameter.name, "boundary"))
            continue;
        if (boundary)
            return std::nullopt;
        boundary = std::string(parameter.value);
    }
    // RFC 2046: 1 to 70 characters, not ending in a space.
    if (!boundary || boundary->empty() || boundary->size() > 70 || boundary->back() == ' ')
        return std::nullopt;
    return boundary;
}

MultipartReader::MultipartReader(std::string_view boundary, Callbacks callbacks)
    : m_dashBoundary("--" + std::string(boundary))
    , m_delimiter(std::string(crlf) + m_dashBoundary)
    , m_callbacks(std::move(callbacks)) {}

void MultipartReader::feed(std::string_view chunk) {
    if (m_state == State::failed)
        return;
    // What the steps consumed goes once per chunk: erasing it step by step would move the rest
    // of a body given whole once for every line and part, which is quadratic in its size.
    m_buffer.erase(0, m_consumed);
    m_consumed = 0;
    m_buffer.append(chunk);
    for (;;) {
        bool progressed = false;
        switch (m_state) {
        case State::opening:
            progressed = readOpening();
            break;
        case State::headers:
            progressed = readHeaderLine();
            break;
        case State::content:
            progressed = readContent();
            break;
        case State::afterDelimiter:
            progressed = readAfterDelimiter();
            break;
        case State::closed:
            progressed = readClosing();
            break;
        case State::failed:
            break;
        }
        if (!progressed)
            return;
    }
}

void MultipartReader::finish() {
    if (m_state == State::closed && (pending().empty() || pending() == crlf))
        return;
    if (m_state != State::failed)
        fail(m_state == State::closed ? "data after the closing boundary"
                                      : "the body ends before the closing boundary");
}

bool MultipartReader::readOpening() {
    const std::string opening = m_dashBoundary + std::string(crlf);
    const std::size_t compared = std::min(pending().size(), opening.size());
    if (pending().compare(0, compared, opening, 0, compared) != 0) {
        fail("the body does not begin with the boundary of the Content-Type header");
        return false;
    }
    if (pending().size() < opening.size())
        return false;
    consume(opening.size());
    m_state = State::headers;
    return true;
}

bool MultipartReader::readHeaderLine() {
    const std::size_t end = pending().find(crlf);
    if (end == std::string::npos) {
        if (pending().size() > longestHeaderLine)
            fail("a part header line is too long");
        return false;
    }
    const std::string line(pending().substr(0, end));
    consume(end + crlf.size());
    if (!line.empty())
        return takeHeader(line);
    if (!m_hasDisposition) {
        fail("a part has no Content-Disposition header");
        return false;
    }
    m_state = State::content;
    m_callbacks.begin(m_part);
    return true;
}

bool MultipartReader::readContent() {
    const std::size_t delimiter = pending().find(m_delimiter);
    if (delimiter == std::string::npos) {
        // Everything but a tail that could still be the start of the delimiter is content.
        const std::size_t keep = std::min(pending().size(), m_delimiter.size() - 1);
        const std::size_t safe = pending().size() - keep;
        if (safe > 0) {
            m_callbacks.content(pending().substr(0, safe));
            consume(safe);
        }
        return false;
    }
    if (delimiter > 0)
        m_callbacks.content(pending().substr(0, delimiter));
    consume(delimiter + m_delimiter.size());
    m_callbacks.end();
    m_state = State::afterDelimiter;
    return true;
}

bool MultipartReader::readAfterDelimiter() {
    if (pending().size() < 2)
        return false;
    if (pending().starts_with(crlf)) {
        consume(2);
        m_part = Part();
        m_hasDisposition = false;
        m_state = State::headers;
        return true;
    }
    if (pending().starts_with("--")) {
        consume(2);
        m_state = State::closed;
        return true;
    }
    fail("a boundary is followed by neither CRLF nor \"--\"");
    return false;
}

bool MultipartReader::readClosing() {
    // Only a CRLF may follow the close delimiter; anything else is an error at once.
    if (pending().size() > crlf.size() || !std::string_view(crlf).starts_with(pending()))
        fail("data after the closing boundary");
    return false;
}

bool MultipartReader::takeHeader(std::string_view line) {
    const std::size_t colon = line.find(':');
    const std::string_view name = colon == std::string_view::npos ? "" : line.substr(0, colon);
    if (name.empty() || name != trimmed(name)) {
        fail("a part header line is not \"Name: value\"");
        return false;
    }
    const std::string_view value = trimmed(line.substr(colon + 1));
    if (sameLetters(name, "Content-Disposition")) {
        if (m_hasDisposition) {
            fail("a part has two Content-Disposition headers");
            return false;
        }
        m_hasDisposition = true;
        return takeDisposition(value);
    }
    if (sameLetters(name, "Content-Type")) {
        if (m_part.contentType || value.empty()) {
            fail("a part has an empty or a second Content-Type header");
            return false;
        }
        m_part.contentType = std::string(value);
        return true;
    }
    fail("a part has the unexpected header \"" + std::string(name) + '"');
    return false;
}

bool MultipartReader::takeDisposition(std::string_view value) {
    const auto split = splitParameters(value);
    if (!split || !sameLetters(split->first, "form-data")) {
        fail("Content-Disposition is not form-data");
        return false;
    }
    bool named = false;
    for (const Parameter &parameter : split->second) {
        if (sameLetters(parameter.name, "name") && !named) {
            m_part.name = std::string(parameter.value);
            named = true;
        } else if (sameLetters(parameter.name, "filename") && !m_part.filename) {
            m_part.filename = std::string(parameter.value);
        } else {
            fail("Content-Disposition has the unexpected or repeated parameter \"" +
                 std::string(parameter.name) + '"');
            return false;
        }
    }
    if (!named || m_part.name.empty()) {
        fail("Content-Disposition names no form field");
        return false;
    }
    return true;
}

void MultipartReader::fail(std::string message) {
    m_state = State::failed;
    m_error = std::move(message);
    m_buffer.clear();
    m_consumed = 0;
}
