// SPDX-License-Identifier: MIT
#include "journalledger.h"

#include "deliveryjournal.h"
#include "deliveryqueue.h"

#include <QFileInfo>

JournalLedger::JournalLedger(std::shared_ptr<DeliveryJournal> journal, DeliveryQueue *queue)
    : m_journal(std::move(journal))
    , m_queue(queue)
{
}

qint64 JournalLedger::handedOver(qint64 folderId, const QUrl &fileURL)
{
    const QFileInfo file(fileURL.toLocalFile());
    const qint64 photo = m_journal->addPhoto(folderId, fileURL, file.size(),
                                             file.lastModified().toMSecsSinceEpoch());
    if (m_queue && photo)
        m_queue->photoHandedOver(photo, folderId, fileURL);
    return photo;
}

void JournalLedger::previewMade(qint64 photo, const std::optional<FileStamp> &taken)
{
    m_journal->setPreviewMade(photo, taken);
    if (m_queue)
        m_queue->fileTaken(photo, taken);
}

void JournalLedger::originalRead(qint64 photo, const std::optional<FileStamp> &taken)
{
    m_journal->setOriginalRead(photo, taken);
    if (m_queue)
        m_queue->fileTaken(photo, taken);
}

void JournalLedger::previewStored(qint64 photo, const StoredPreview &preview)
{
    m_journal->setPreviewStored(photo, preview);
    if (m_queue)
        m_queue->serviceAnswered();
}

void JournalLedger::registrationSent(qint64 photo) { m_journal->setRegistrationSent(photo); }

void JournalLedger::previewRegistered(qint64 photo)
{
    m_journal->setPreviewRegistered(photo);
    if (m_queue)
        m_queue->serviceAnswered();
}

void JournalLedger::originalPresigned(qint64 photo, const PresignResponse &presign)
{
    m_journal->setOriginalPresign(photo, presign);
}

void JournalLedger::originalStored(qint64 photo)
{
    m_journal->setOriginalStored(photo);
    if (m_queue)
        m_queue->photoDelivered(photo);
}

void JournalLedger::attemptFailed(qint64 photo, const AttemptFailure &failure)
{
    if (!failure.passes())
        m_journal->setRefused(photo, failure.description);
    if (m_queue)
        m_queue->attemptFailed(photo, failure);
}
