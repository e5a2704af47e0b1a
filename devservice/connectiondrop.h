// SPDX-License-Identifier: MIT
#pragma once

#include "httplibfwd.h"

// Cuts the connection a request came in on, so that the client gets no reply at all: not a
// status line, not a byte. httplib doesn't hand handlers their socket, so the socket is found
// by the two addresses of the connection.
bool dropConnection(const httplib::Request &request);
