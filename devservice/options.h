// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <optional>
#include <string>

// What the command line asks for. See README.md for the meaning of each option.
struct Options {
    std::string host = "127.0.0.1";
    int port = 0;
    std::string dataDir;
    std::string tlsCertificate;
    std::string tlsKey;
    std::string publicHost;
    std::chrono::milliseconds presignLifetime{3600000};

    // The longest presign lifetime there is: what S3 allows a presigned request.
    static constexpr std::chrono::milliseconds longestPresignLifetime{7LL * 24 * 3600 * 1000};

    bool tls() const { return !tlsCertificate.empty(); }

    // Prints the problem and the usage to stderr and gives nothing when the arguments don't
    // make sense.
    static std::optional<Options> parse(int argc, char **argv);
};
