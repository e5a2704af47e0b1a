// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

// A streaming reader of multipart/form-data bodies (RFC 7578): it takes the body in chunks of
// any size and reports the parts in order, their content in pieces, without ever holding more
// than a header line or a boundary's length of the body. Strict on purpose: no preamble, only
// the Content-Disposition and Content-Type headers, the body ends at the close delimiter with
// at most one CRLF after it. Once something is wrong it keeps swallowing input quietly, so the
// caller can still read the request to its end and answer properly.
class MultipartReader {
public:
    struct Part {
        std::string name;
        std::optional<std::string> filename;
        std::optional<std::string> contentType;
    };
    struct Callbacks {
        std::function<void(const Part &)> begin;
        std::function<void(std::string_view)> content;
        std::function<void()> end;
    };

    // The boundary named by a Content-Type header of multipart/form-data, if it is one.
    static std::optional<std::string> boundaryOf(std::string_view contentType);

    MultipartReader(std::string_view boundary, Callbacks callbacks);

    void feed(std::string_view chunk);
    // The body is complete; error() then says whether it was well formed.
    void finish();
    const std::optional<std::string> &error() const { return m_error; }

private:
    enum class State { opening, headers, content, afterDelimiter, closed, failed };

    // Each step consumes what it can from the buffer; false when it needs more input.
    bool readOpening();
    bool readHeaderLine();
    bool readContent();
    bool readAfterDelimiter();
    bool readClosing();
    bool takeHeader(std::string_view line);
    bool takeDisposition(std::string_view value);
    void fail(std::string message);
    // The part of the buffer no step has consumed yet.
    std::string_view pending() const { return std::string_view(m_buffer).substr(m_consumed); }
    void consume(std::size_t count) { m_consumed += count; }

    std::string m_dashBoundary; // "--" boundary
    std::string m_delimiter;    // CRLF "--" boundary
    Callbacks m_callbacks;
    State m_state = State::opening;
    std::string m_buffer;
    std::size_t m_consumed = 0;
    Part m_part;
    bool m_hasDisposition = false;
    std::optional<std::string> m_error;
};
