// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>
#include <QUrl>
#include <QVariant>

#include <optional>

// The record of the one live session being prepared, recorded or just finished. A plain value;
// the screens read it through the gadget properties, where an absent value reads as undefined.
struct LiveSession {
    Q_GADGET
    Q_PROPERTY(QString clientName MEMBER clientName)
    Q_PROPERTY(QVariant watchFolder READ watchFolderValue)
    Q_PROPERTY(QVariant watchFolderPath READ watchFolderPathValue)
    Q_PROPERTY(QVariant folderId READ folderIdValue)
    Q_PROPERTY(QVariant slug READ slugValue)
    Q_PROPERTY(QVariant liveURL READ liveURLValue)
    Q_PROPERTY(QVariant galleryURL READ galleryURLValue)
    Q_PROPERTY(qint64 uploadedCount MEMBER uploadedCount)
    Q_PROPERTY(qint64 fullResUploaded MEMBER fullResUploaded)
    Q_PROPERTY(qint64 fullResTotal MEMBER fullResTotal)
    Q_PROPERTY(qint64 selectedCount MEMBER selectedCount)

public:
    QString clientName;
    std::optional<QUrl> watchFolder;
    std::optional<qint64> folderId;
    std::optional<QString> slug;
    std::optional<QString> liveURL;
    std::optional<QString> galleryURL;
    qint64 uploadedCount = 0;
    qint64 fullResUploaded = 0;
    qint64 fullResTotal = 0;
    qint64 selectedCount = 0;

    QVariant watchFolderValue() const;
    QVariant watchFolderPathValue() const;
    QVariant folderIdValue() const;
    QVariant slugValue() const;
    QVariant liveURLValue() const;
    QVariant galleryURLValue() const;

    friend bool operator==(const LiveSession &, const LiveSession &) = default;
};

Q_DECLARE_METATYPE(LiveSession)
