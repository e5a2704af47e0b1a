// SPDX-License-Identifier: MIT
#include "sessionrecorder.h"
#include "sessionlog.h"

#include "delivery.h"
#include "folderwatcher.h"
#include "previewmaker.h"
#include "sessionjournal.h"
#include "uploadlanes.h"

#include <QPointer>

SessionRecorder::SessionRecorder(Delivery &delivery, qint64 folderId, const QUrl &folder,
                                 QSet<QString> knownNames, QObject *parent)
    : QObject(parent)
    , m_delivery(delivery)
    , m_folderId(folderId)
{
    QPointer<SessionRecorder> self(this);
    m_watcher = std::make_unique<FolderWatcher>(
        folder, [self](const QUrl &file) { if (self) self->handleNewFile(file); },
        std::move(knownNames));
    // A photo left alone for a moment is most likely complete: its preview is started while
    // the rest of the readiness rule's second runs out.
    connect(m_watcher.get(), &FolderWatcher::candidateQuiet, this, [this](const QUrl &file) {
        if (!m_paused)
            m_delivery.lanes()->previews->prepare(file);
    });
    connect(m_watcher.get(), &FolderWatcher::folderAvailableChanged, this,
            &SessionRecorder::folderAvailableChanged);
}

SessionRecorder::~SessionRecorder() = default;

void SessionRecorder::start() { m_watcher->start(); }

void SessionRecorder::stop()
{
    m_watcher->invalidateTimer();
    // Nothing more is handed over: previews begun early for photos of this folder will not be
    // asked for.
    m_delivery.lanes()->previews->dropEarlyWork();
}

bool SessionRecorder::folderAvailable() const { return m_watcher->folderAvailable(); }

void SessionRecorder::handleNewFile(const QUrl &file)
{
    if (m_paused) {
        qCDebug(sessionLog, "%s: shot while paused, not sent", qPrintable(file.fileName()));
        m_delivery.sessions().addSkippedName(m_folderId, file.fileName());
        return;
    }
    // Handed over in a turn of its own, so the watcher's poll returns at once; delivered even
    // when the session stops in between.
    Delivery *delivery = &m_delivery;
    const qint64 folderId = m_folderId;
    QMetaObject::invokeMethod(
        delivery, [delivery, folderId, file] { delivery->deliver(folderId, file); },
        Qt::QueuedConnection);
}
