// SPDX-License-Identifier: MIT
#pragma once

#include <QCoroTask>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariant>

#include <memory>
#include <optional>

struct AttemptStep;
class PreviewMaker;
struct UploadLanes;
class QUrl;

// What a session that goes on after a restart had already counted.
struct UploadCounts {
    qint64 uploadedCount = 0;
    qint64 fullResUploaded = 0;
    qint64 fullResTotal = 0;
};

// What a live session has sent, as the screens show it: previews registered, originals due and
// stored, and the last failure's text. uploadFile() sends a photo once, by the rules of a single
// attempt, and counts what it did; the delivery layer sends the photos it keeps in its journal
// through the same lanes and counts them here with count(). Counters and the error change only
// on the main thread. Attempts run to their end even after the manager is gone.
class UploadManager : public QObject {
    Q_OBJECT
    Q_PROPERTY(qint64 uploadedCount READ uploadedCount NOTIFY uploadedCountChanged)
    Q_PROPERTY(qint64 fullResUploaded READ fullResUploaded NOTIFY fullResUploadedChanged)
    Q_PROPERTY(qint64 fullResTotal READ fullResTotal NOTIFY fullResTotalChanged)
    Q_PROPERTY(QVariant error READ errorValue NOTIFY errorChanged)

public:
    // Without lanes, the manager has two of its own: two previews and one original at a time.
    explicit UploadManager(qint64 folderId, std::shared_ptr<UploadLanes> lanes = {},
                           UploadCounts counts = {}, QObject *parent = nullptr);
    ~UploadManager() override;

    // Returns at once; the photo's attempt runs in the background. Call on the main thread.
    void uploadFile(const QUrl &fileURL);
    // Starts on the preview of a photo that looks complete but is not handed over yet, so it
    // is ready by the time its attempt asks for it. Call on the main thread.
    void preparePreview(const QUrl &fileURL);
    // What one step of an attempt at a photo of this session means for the counters and the
    // error line.
    void count(const AttemptStep &step);
    // A file whose shot's preview another file gave: its original is due too.
    void countOriginalDue();

    qint64 folderId() const { return m_folderId; }
    const std::shared_ptr<UploadLanes> &lanes() const { return m_lanes; }
    const PreviewMaker &previews() const;
    qint64 uploadedCount() const { return m_uploadedCount; }
    qint64 fullResUploaded() const { return m_fullResUploaded; }
    qint64 fullResTotal() const { return m_fullResTotal; }
    const std::optional<QString> &error() const { return m_error; }
    QVariant errorValue() const { return m_error ? QVariant(*m_error) : QVariant(); }

    // "preview_" + the file name with every occurrence of its extension replaced by "jpg".
    static QString previewName(const QString &fileName, const QString &extension);

Q_SIGNALS:
    void uploadedCountChanged();
    void fullResUploadedChanged();
    void fullResTotalChanged();
    void errorChanged();

private:
    static QCoro::Task<> attemptAndCount(std::shared_ptr<UploadLanes> lanes,
                                         QPointer<UploadManager> manager, QUrl fileURL,
                                         qint64 folderId);
    void setError(const QString &message);

    qint64 m_uploadedCount = 0;
    qint64 m_fullResUploaded = 0;
    qint64 m_fullResTotal = 0;
    std::optional<QString> m_error;
    const qint64 m_folderId;
    std::shared_ptr<UploadLanes> m_lanes;
};
