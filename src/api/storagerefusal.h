// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// Why the object store refused an upload, as its S3-style error document says it
// (<Error><Code>…</Code><Message>…</Message></Error>): a permission past its time, which a fresh
// presign mends, or a refusal of another kind (a signature or key the store does not take), which
// only the service can mend.
struct StorageRefusal {
    QString code;
    QString message;

    // The permission ran out: the policy's expiration passed, or the request's.
    bool permissionExpired() const;

    // The error document of a refused upload; nothing when the body is not one.
    static std::optional<StorageRefusal> read(const QByteArray &body);
};
