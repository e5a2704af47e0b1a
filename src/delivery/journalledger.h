// SPDX-License-Identifier: MIT
#pragma once

#include "deliveryledger.h"

#include <QPointer>

#include <memory>

class DeliveryJournal;
class DeliveryQueue;

// What the upload jobs report to: the queue while it lives, and the journal alone after it (the
// program closing with uploads under way), so that every step is written down either way.
class JournalLedger final : public DeliveryLedger {
public:
    JournalLedger(std::shared_ptr<DeliveryJournal> journal, DeliveryQueue *queue);

    qint64 handedOver(qint64 folderId, const QUrl &fileURL) override;
    void previewMade(qint64 photo, const std::optional<FileStamp> &taken) override;
    void originalRead(qint64 photo, const std::optional<FileStamp> &taken) override;
    void previewStored(qint64 photo, const StoredPreview &preview) override;
    void registrationSent(qint64 photo) override;
    void previewRegistered(qint64 photo) override;
    void originalPresigned(qint64 photo, const PresignResponse &presign) override;
    void originalStored(qint64 photo) override;
    void attemptFailed(qint64 photo, const AttemptFailure &failure) override;

private:
    std::shared_ptr<DeliveryJournal> m_journal;
    QPointer<DeliveryQueue> m_queue;
};
