// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>
#include <QVariant>

#include <memory>
#include <optional>

class APIClient;
class AsyncSemaphore;
class DeliveryLedger;
struct PhotoDelivery;
class PreviewMaker;
class QUrl;

// Sends every new photo of a live session: first its preview (made, authorised, stored and
// registered; two at a time), then its original (one at a time, one retry). Counters and the
// last error change only on the main thread. Jobs hold the manager weakly and run to their end
// even after it is gone.
class UploadManager : public QObject {
    Q_OBJECT
    Q_PROPERTY(qint64 uploadedCount READ uploadedCount NOTIFY uploadedCountChanged)
    Q_PROPERTY(qint64 fullResUploaded READ fullResUploaded NOTIFY fullResUploadedChanged)
    Q_PROPERTY(qint64 fullResTotal READ fullResTotal NOTIFY fullResTotalChanged)
    Q_PROPERTY(QVariant error READ errorValue NOTIFY errorChanged)

public:
    explicit UploadManager(qint64 folderId, QObject *parent = nullptr);
    ~UploadManager() override;

    // Returns at once; the photo's jobs run in the background. Call on the main thread.
    void uploadFile(const QUrl &fileURL);
    // Starts on the preview of a photo that looks complete but is not handed over yet, so it
    // is ready by the time uploadFile() asks for it. Call on the main thread.
    void preparePreview(const QUrl &fileURL);
    const PreviewMaker &previews() const { return *m_previews; }

    // The layer above the attempts: told of every photo before its first request and of each
    // step after. Set before the first photo; without one, a failed attempt is the end.
    void setLedger(std::shared_ptr<DeliveryLedger> ledger) { m_ledger = std::move(ledger); }
    // Another attempt at a photo an earlier one did not deliver, from the step it reached:
    // the preview (made, or only registered) and then the original, or the original alone.
    void redeliver(const PhotoDelivery &delivery);

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
    friend class UploadJobs; // the jobs report back through the three private calls below
    struct UploadJobContext jobContext(const QUrl &fileURL);
    void recordPreviewUploaded();
    void recordOriginalUploaded();
    void setError(const QString &message);

    qint64 m_uploadedCount = 0;
    qint64 m_fullResUploaded = 0;
    qint64 m_fullResTotal = 0;
    std::optional<QString> m_error;
    const qint64 m_folderId;
    APIClient &m_api;
    std::shared_ptr<AsyncSemaphore> m_previewSemaphore;
    std::shared_ptr<AsyncSemaphore> m_fullResSemaphore;
    std::shared_ptr<PreviewMaker> m_previews;
    std::shared_ptr<DeliveryLedger> m_ledger;
};
