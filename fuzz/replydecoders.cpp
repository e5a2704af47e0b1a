// SPDX-License-Identifier: MIT
// The reply decoders on arbitrary bytes. Each record's rules are checked again here, written
// out independently: a decode succeeds exactly when the body is a JSON object whose required
// members are present, not null and of their JSON type, and then carries their values; every
// other body fails with a DecodingError and nothing else.
#include "authresponse.h"
#include "decodingerror.h"
#include "fuzzrules.h"
#include "presignresponse.h"
#include "sessionresponse.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <cmath>
#include <cstdint>
#include <optional>

namespace {

using FuzzRules::require;

std::optional<QString> stringMember(const QJsonObject &object, const char *key) {
    const QJsonValue value = object.value(QLatin1String(key));
    return value.isString() ? std::optional(value.toString()) : std::nullopt;
}

constexpr double twoTo63 = 9223372036854775808.0;

// Whether a member is a JSON number with an integral value a signed 64-bit integer can hold.
// Exactly 2^63 as a double may be Qt's rounding of the largest integer, so it is left open.
enum class Integer { yes, no, either };
Integer integerMember(const QJsonObject &object, const char *key) {
    const QJsonValue value = object.value(QLatin1String(key));
    if (!value.isDouble())
        return Integer::no;
    const double number = value.toDouble();
    if (!std::isfinite(number) || std::trunc(number) != number || number < -twoTo63 ||
        number > twoTo63)
        return Integer::no;
    return number == twoTo63 ? Integer::either : Integer::yes;
}

bool stringMapMember(const QJsonObject &object, const char *key) {
    const QJsonValue value = object.value(QLatin1String(key));
    if (!value.isObject())
        return false;
    const QJsonObject map = value.toObject();
    for (auto it = map.constBegin(); it != map.constEnd(); ++it)
        if (!it->isString())
            return false;
    return true;
}

template <typename Decode> auto attempt(Decode decode, const char *record) {
    using Record = decltype(decode());
    try {
        return std::optional<Record>(decode());
    } catch (const DecodingError &error) {
        require(error.localizedDescription().contains(QLatin1String(record)),
                "a decoding error names its record");
        return std::optional<Record>();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const QByteArray body(reinterpret_cast<const char *>(data), qsizetype(size));
    const QJsonDocument document = QJsonDocument::fromJson(body);
    const bool isObject = document.isObject();
    const QJsonObject object = document.object();

    const auto auth = attempt([&] { return AuthResponse::decode(body); }, "AuthResponse");
    const std::optional<QString> token = stringMember(object, "token");
    require(auth.has_value() == (isObject && token.has_value()), "AuthResponse decodes exactly");
    if (auth)
        require(auth->token == *token, "AuthResponse keeps the token");

    const auto session = attempt([&] { return SessionResponse::decode(body); }, "SessionResponse");
    const Integer folderId = integerMember(object, "folder_id");
    const std::optional<QString> slug = stringMember(object, "slug");
    const std::optional<QString> liveUrl = stringMember(object, "live_url");
    const std::optional<QString> galleryUrl = stringMember(object, "gallery_url");
    const bool sessionStrings = isObject && slug && liveUrl && galleryUrl;
    if (folderId != Integer::either)
        require(session.has_value() == (sessionStrings && folderId == Integer::yes),
                "SessionResponse decodes exactly");
    if (session) {
        require(sessionStrings && folderId != Integer::no, "SessionResponse decodes exactly");
        require(double(session->folder_id) == object.value(QLatin1String("folder_id")).toDouble(),
                "SessionResponse keeps folder_id");
        require(session->slug == *slug && session->live_url == *liveUrl &&
                    session->gallery_url == *galleryUrl,
                "SessionResponse keeps its texts");
    }

    const auto presign = attempt([&] { return PresignResponse::decode(body); }, "PresignResponse");
    const QJsonValue host = object.value(QLatin1String("host"));
    const bool hostFits = host.isUndefined() || host.isNull() || host.isString();
    const bool presignFits = isObject && stringMember(object, "method") &&
                             stringMember(object, "url") && stringMember(object, "key") &&
                             stringMember(object, "bucket") && stringMapMember(object, "fields") &&
                             hostFits;
    require(presign.has_value() == presignFits, "PresignResponse decodes exactly");
    if (presign) {
        require(presign->url == *stringMember(object, "url") &&
                    presign->key == *stringMember(object, "key") &&
                    presign->bucket == *stringMember(object, "bucket") &&
                    presign->method == *stringMember(object, "method"),
                "PresignResponse keeps its texts");
        require(presign->host.has_value() == host.isString() &&
                    (!presign->host || *presign->host == host.toString()),
                "PresignResponse keeps host");
        const QJsonObject fields = object.value(QLatin1String("fields")).toObject();
        require(presign->fields.size() == fields.size(), "PresignResponse keeps every field");
        for (auto it = fields.constBegin(); it != fields.constEnd(); ++it)
            require(presign->fields.value(it.key()) == it->toString(),
                    "PresignResponse keeps every field's value");
    }
    return 0;
}
