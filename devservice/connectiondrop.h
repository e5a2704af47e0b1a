// SPDX-License-Identifier: MIT
#pragma once

#include "httplibfwd.h"

#include <string_view>

// Cuts the connection a request came in on, so that the client gets no reply at all: not a
// status line, not a byte. httplib doesn't hand handlers their socket, so the socket is found
// by the two addresses of the connection.
bool dropConnection(const httplib::Request &request);

// Resets the connection (a TCP RST) instead of closing it in order: what a crashing process or
// a middlebox giving up looks like to the client.
bool resetConnection(const httplib::Request &request);

// Takes the connection away from httplib without a word to the client: the returned
// descriptor (-1 when the socket can't be found) keeps it open for as long as the caller
// likes, while httplib's own descriptor now points at /dev/null, where its reply goes, and
// where it finds the end of the stream, so that its worker thread is free at once.
int takeConnection(const httplib::Request &request);

// Sends `bytes` as they are, with no HTTP around them, and closes the connection: the client
// gets something that is not an HTTP reply at all.
bool answerRawAndClose(const httplib::Request &request, std::string_view bytes);
