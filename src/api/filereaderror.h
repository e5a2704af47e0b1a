// SPDX-License-Identifier: MIT
#pragma once

#include "requestfailure.h"

#include <QCoreApplication>
#include <QFileInfo>

// The file a request was to send from could not be opened, failed while it was read, or ended
// before the size it had when it was opened: nothing of it was stored. Not the network's
// fault, and waiting does not mend it; a file still being written is told apart by whoever
// watches it change.
class FileReadError final : public RequestFailure {
public:
    explicit FileReadError(QString path)
        : m_path(std::move(path))
    {
    }

    const QString &path() const { return m_path; }
    QString fileName() const { return QFileInfo(m_path).fileName(); }
    QString localizedDescription() const override
    {
        return QStringLiteral("No se pudo leer ") + fileName();
    }

private:
    QString m_path;
};
