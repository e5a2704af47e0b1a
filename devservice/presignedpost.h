// SPDX-License-Identifier: MIT
#pragma once

#include "requestlog.h"

#include <QDateTime>
#include <array>
#include <chrono>
#include <optional>
#include <string_view>

// The form fields of an S3-style presigned POST: the object store wants each of them back,
// unchanged, in the upload's form. The signature is made with a development secret; nothing
// checks it cryptographically, only that it comes back as it was given.
namespace PresignedPost {

inline constexpr std::string_view bucket = "quillmere-dev";

// In the order the fields are handed out. Fault injection names them as "fields.<name>".
inline constexpr std::array<std::string_view, 7> fieldNames{
    "key",        "Content-Type",   "policy", "x-amz-algorithm", "x-amz-credential",
    "x-amz-date", "x-amz-signature"};

// The policy expires `lifetime` after `now`.
NameValueList fields(std::string_view key, std::string_view contentType, const QDateTime &now,
                     std::chrono::milliseconds lifetime);

// The "expiration" of a policy field as handed out (base64 JSON); nothing when it has none.
std::optional<QDateTime> expirationOf(std::string_view policy);

} // namespace PresignedPost
