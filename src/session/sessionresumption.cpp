// SPDX-License-Identifier: MIT
#include "sessionresumption.h"

#include "folderwatcher.h"
#include "sessionjournal.h"

namespace {

QString landedText(qsizetype landed, bool paused)
{
    if (landed == 0)
        return {};
    if (landed == 1)
        return paused ? QStringLiteral(" · 1 foto llegó en pausa y no se envía")
                      : QStringLiteral(" · 1 foto llegó mientras tanto");
    return (paused ? QStringLiteral(" · %1 fotos llegaron en pausa y no se envían")
                   : QStringLiteral(" · %1 fotos llegaron mientras tanto"))
        .arg(landed);
}

} // namespace

std::optional<SessionResumption> SessionResumption::afterCrash(SessionJournal &journal)
{
    const std::optional<RecordedSession> live = journal.live();
    if (!live || live->ending != RecordedSession::Ending::recording)
        return std::nullopt;
    return prepare(*live, journal, After::crash);
}

std::optional<LiveSession> SessionResumption::offer(SessionJournal &journal)
{
    const std::optional<RecordedSession> live = journal.live();
    if (!live || live->ending != RecordedSession::Ending::quit)
        return std::nullopt;
    LiveSession offered;
    offered.clientName = live->clientName;
    offered.watchFolder = live->watchFolder;
    offered.folderId = live->folderId;
    return offered;
}

std::optional<SessionResumption> SessionResumption::continuing(SessionJournal &journal,
                                                               qint64 folderId)
{
    const std::optional<RecordedSession> recorded = journal.session(folderId);
    if (!recorded)
        return std::nullopt;
    journal.setEnding(folderId, RecordedSession::Ending::recording);
    return prepare(*recorded, journal, After::quit);
}

RecordedSession SessionResumption::recordOf(const LiveSession &session, bool paused)
{
    RecordedSession recorded;
    recorded.folderId = session.folderId.value_or(0);
    recorded.slug = session.slug.value_or(QString());
    recorded.clientName = session.clientName;
    recorded.liveURL = session.liveURL.value_or(QString());
    recorded.galleryURL = session.galleryURL.value_or(QString());
    recorded.watchFolder = session.watchFolder.value_or(QUrl());
    recorded.paused = paused;
    return recorded;
}

SessionResumption SessionResumption::prepare(const RecordedSession &recorded,
                                             SessionJournal &journal, After after)
{
    SessionResumption resumption;
    LiveSession &session = resumption.session;
    session.clientName = recorded.clientName;
    session.watchFolder = recorded.watchFolder;
    session.folderId = recorded.folderId;
    session.slug = recorded.slug;
    session.liveURL = recorded.liveURL;
    session.galleryURL = recorded.galleryURL;
    resumption.paused = recorded.paused;

    resumption.knownNames = journal.knownNames(recorded.folderId);
    // Photos the camera wrote while the program was away: sent as new ones, unless the
    // recording was paused, which skips them as it skips any photo.
    const QSet<QString> landed =
        FolderWatcher::listFiles(recorded.watchFolder) - resumption.knownNames;
    if (recorded.paused) {
        journal.addSkippedNames(recorded.folderId, landed);
        resumption.knownNames += landed;
    }

    const RecordedCounts counts = journal.counts(recorded.folderId);
    resumption.counts = {counts.shotsShown, counts.originalsStored, counts.originalsDue};

    QString notice = recorded.paused ? QStringLiteral("Sesión retomada en pausa")
                                     : QStringLiteral("Sesión retomada");
    if (after == After::crash)
        notice += QStringLiteral(" tras un cierre inesperado");
    resumption.notice = notice + landedText(landed.size(), recorded.paused);
    return resumption;
}
