// SPDX-License-Identifier: MIT
#include "watchfoldertest.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTest>

#ifdef Q_OS_UNIX
#include <sys/time.h>
#endif

qint64 WatchFolderTest::now()
{
    return QDateTime::currentMSecsSinceEpoch();
}

QDateTime WatchFolderTest::longAgo()
{
    return QDateTime::currentDateTime().addSecs(-3600);
}

qint64 WatchFolderTest::modifiedAt(const QString &path)
{
    return QFileInfo(path).lastModified().toMSecsSinceEpoch();
}

bool WatchFolderTest::setModified(const QString &path, const QDateTime &time)
{
    if (QFileInfo(path).isDir()) {
#ifdef Q_OS_UNIX
        // Qt has no way to date a folder; access and modification time alike will do.
        const qint64 ms = time.toMSecsSinceEpoch();
        const timeval when{static_cast<time_t>(ms / 1000),
                           static_cast<suseconds_t>((ms % 1000) * 1000)};
        const timeval times[2] = {when, when};
        return utimes(QFile::encodeName(path).constData(), times) == 0;
#else
        return false;
#endif
    }
    QFile file(path);
    return file.open(QIODevice::Append)
        && file.setFileTime(time, QFileDevice::FileModificationTime);
}

bool WatchFolderTest::writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

QStringList WatchFolderTest::snapshot(const QString &folder)
{
    QStringList lines;
    const QFileInfoList entries = QDir(folder).entryInfoList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    for (const QFileInfo &entry : entries) {
        QString line = entry.fileName() + QLatin1Char(' ')
            + QString::number(entry.lastModified().toMSecsSinceEpoch());
        if (entry.isDir()) {
            lines.append(line);
            for (const QString &inner : snapshot(entry.filePath()))
                lines.append(entry.fileName() + QLatin1Char('/') + inner);
            continue;
        }
        QFile file(entry.filePath());
        if (!file.open(QIODevice::ReadOnly))
            return {QStringLiteral("unreadable ") + entry.fileName()};
        line += QLatin1Char(' ') + QString::number(entry.size()) + QLatin1Char(' ')
            + QString::fromLatin1(
                    QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256).toHex());
        lines.append(line);
    }
    return lines;
}

void WatchFolderTest::addModes()
{
    QTest::addColumn<bool>("notifications");
    QTest::newRow("notifications") << true;
    QTest::newRow("polling") << false;
}

FolderWatcher &WatchFolderTest::makeWatcher(bool notifications)
{
    m_watcher = std::make_unique<FolderWatcher>(
        folderUrl(), [this](const QUrl &file) { record(file); },
        FolderWatcher::listFiles(folderUrl()));
    m_watcher->setNotificationsEnabled(notifications);
    return *m_watcher;
}

void WatchFolderTest::record(const QUrl &file)
{
    const QFileInfo info(file.toLocalFile());
    m_handed.append({file, info.fileName(), now(), info.size(),
                     info.lastModified().toMSecsSinceEpoch(),
                     m_watcher && m_watcher->knownFiles().contains(info.fileName())});
    if (m_afterHandOver)
        m_afterHandOver(info.fileName());
}

QStringList WatchFolderTest::handedNames() const
{
    QStringList names;
    for (const HandOver &handOver : m_handed)
        names.append(handOver.name);
    return names;
}

bool WatchFolderTest::writePhoto(const QString &name, const QByteArray &content)
{
    return writeFile(path(name), content) && setModified(path(name), longAgo());
}

void WatchFolderTest::init()
{
    QTest::failOnWarning(QRegularExpression(QStringLiteral(".*")));
    m_root = std::make_unique<QTemporaryDir>();
    QVERIFY(m_root->isValid());
    m_folder = m_root->filePath(QStringLiteral("shoot"));
    QVERIFY(QDir().mkpath(m_folder));
    m_handed.clear();
    m_afterHandOver = nullptr;
}

void WatchFolderTest::cleanup()
{
    m_watcher.reset();
    m_root.reset();
}
