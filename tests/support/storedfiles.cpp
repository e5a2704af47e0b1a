// SPDX-License-Identifier: MIT
#include "storedfiles.h"

#include "devservicefixture.h"
#include "uploadmanager.h"

#include <QFileInfo>

QStringList StoredFiles::presignedNames() const
{
    QStringList names;
    for (const DevService::ReceivedRequest &request : m_service.requests(QStringLiteral("presign")))
        names << request.query.value(0).second;
    return names;
}

QStringList StoredFiles::uploadedKeys() const
{
    if (m_uploadedKeys)
        return *m_uploadedKeys;
    // The key travels as one of the presigned form fields of each upload.
    static const QByteArray marker = "name=\"key\"\r\n\r\n";
    QStringList keys;
    for (const DevService::ReceivedRequest &upload : m_service.requests(QStringLiteral("upload"))) {
        const qsizetype at = upload.body.indexOf(marker);
        if (at < 0)
            continue;
        const qsizetype start = at + marker.size();
        keys << QString::fromUtf8(upload.body.mid(start, upload.body.indexOf("\r\n", start) - start));
    }
    m_uploadedKeys = keys;
    return keys;
}

std::optional<QByteArray> StoredFiles::objectNamed(const QString &fileName) const
{
    const QStringList keys = uploadedKeys();
    for (auto key = keys.crbegin(); key != keys.crend(); ++key) {
        if (!key->endsWith(QLatin1Char('/') + fileName))
            continue;
        if (std::optional<QByteArray> object = m_service.storedObject(*key))
            return object;
    }
    return std::nullopt;
}

int StoredFiles::storedCount(const QString &fileName) const
{
    const QStringList keys = uploadedKeys();
    QStringList stored;
    for (const QString &key : keys) {
        if (key.endsWith(QLatin1Char('/') + fileName) && !stored.contains(key) &&
            m_service.storedObject(key))
            stored << key;
    }
    return static_cast<int>(stored.size());
}

int StoredFiles::registeredCount(qint64 folderId, const QString &fileName) const
{
    const QString preview =
        UploadManager::previewName(fileName, QFileInfo(fileName).suffix());
    int count = 0;
    for (const DevService::RegisteredFile &file : m_service.registeredFiles(folderId))
        count += file.key.endsWith(QLatin1Char('/') + preview) ? 1 : 0;
    return count;
}
