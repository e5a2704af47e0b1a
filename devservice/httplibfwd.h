// SPDX-License-Identifier: MIT
#pragma once

// What the route headers need of httplib, without its 2,000 lines and OpenSSL's headers.
namespace httplib {
class ContentReader;
class Server;
struct Request;
struct Response;
} // namespace httplib
