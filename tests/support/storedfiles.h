// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

class DevService;

// What the object store of a devservice holds, looked up the way a test thinks of it: by the
// photo's file name rather than by the store's object key.
class StoredFiles {
public:
    explicit StoredFiles(DevService &service)
        : m_service(service)
    {
    }

    // The names the service was asked to authorise, in order.
    QStringList presignedNames() const;
    // Object keys of every upload the store received, in order (failed ones included), as
    // they stood at the first call: one object of this class is one look at the store.
    QStringList uploadedKeys() const;
    // The bytes stored for the file presigned under exactly this name, if any.
    std::optional<QByteArray> objectNamed(const QString &fileName) const;
    // How many distinct objects the store holds for the file presigned under exactly this name:
    // 1 for a photo whose original went up once, however many attempts it took.
    int storedCount(const QString &fileName) const;
    // How many times the photo's preview was registered with the session: 1 when the client saw
    // it once, however many attempts it took.
    int registeredCount(qint64 folderId, const QString &fileName) const;

private:
    DevService &m_service;
    mutable std::optional<QStringList> m_uploadedKeys;
};
