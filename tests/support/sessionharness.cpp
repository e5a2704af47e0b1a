// SPDX-License-Identifier: MIT
#include "sessionharness.h"

#include "apiclient.h"
#include "photofiles.h"
#include "photogenerator.h"
#include "rawdngwriter.h"
#include "sessionviewmodel.h"
#include "taskoutcome.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

bool SessionHarness::start()
{
    if (!m_service.start())
        return false;
    APIClient::redirectShared(m_service.baseURL(), m_service.storageHost());
    return true;
}

void SessionHarness::resetForTest()
{
    m_service.reset();
    // The old store must be gone before the new one claims the settings path.
    m_preferences.reset();
    m_preferences = std::make_unique<ScopedPreferences>();
    m_folder = std::make_unique<QTemporaryDir>();
}

bool SessionHarness::signIn(SessionViewModel &model)
{
    model.setEmail(DevService::demoEmail());
    model.setPassword(DevService::demoPassword());
    awaitOutcome(model.loginTask());
    return model.hasStoredToken() && !model.error();
}

bool SessionHarness::startSession(SessionViewModel &model, const QString &clientName)
{
    model.setClientName(clientName);
    const QUrl folder = QUrl::fromLocalFile(m_folder->path());
    model.setFolderChooser([folder](const QString &) { return std::optional(folder); });
    model.pickFolder();
    awaitOutcome(model.startSessionTask());
    return model.state() == AppState::recording;
}

bool SessionHarness::dropPhoto(const QString &name, const QByteArray &bytes, bool alreadySettled)
{
    return dropPhotoAt(m_folder->path(), name, bytes, alreadySettled);
}

bool SessionHarness::dropPhotoAt(const QString &folder, const QString &name,
                                 const QByteArray &bytes, bool alreadySettled)
{
    QFile file(QDir(folder).filePath(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        return false;
    // Written out first: bytes still buffered would reach the file when it closes, after the
    // time was set, and the write would make the file new again.
    if (!file.flush())
        return false;
    if (alreadySettled)
        return file.setFileTime(QDateTime::currentDateTime().addSecs(-2),
                                QFileDevice::FileModificationTime);
    return true;
}

QByteArray SessionHarness::photoJpeg(int seed, int width, int height)
{
    return PhotoFiles::encodeJpeg(PhotoGenerator(QSize(width, height), std::uint32_t(seed)).image8(), 88);
}

QByteArray SessionHarness::photoRaw(int seed)
{
    QTemporaryDir scratch;
    const QString path = scratch.filePath(QStringLiteral("raw.dng"));
    const QImage sensor = PhotoGenerator(QSize(480, 320), std::uint32_t(seed)).image8();
    if (!RawDngWriter::write(path, sensor, sensor.scaled(120, 80)))
        return {};
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
