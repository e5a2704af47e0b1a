// SPDX-License-Identifier: MIT
#pragma once

#include "livesession.h"
#include "uploadmanager.h"

#include <QSet>
#include <QString>

#include <optional>

class SessionJournal;
struct RecordedSession;

// A live session the journal kept, made ready to record again in this run: the record the
// screens show (same client, same links), the names its watcher must never hand over (those
// in the folder at its start, those a pause skipped, those handed over already), its counters
// as they stood, and the line that tells the photographer what happened. When it was paused,
// what landed in its folder meanwhile is skipped, as a pause skips.
struct SessionResumption {
    LiveSession session;
    QSet<QString> knownNames;
    UploadCounts counts;
    bool paused = false;
    QString notice;

    // The session the program went away from while it recorded (a crash, a power cut), taken
    // up at once; none when there is none.
    static std::optional<SessionResumption> afterCrash(SessionJournal &journal);
    // The session the photographer quit from while it recorded, to be offered: its client,
    // folder and folder id. None when there is none.
    static std::optional<LiveSession> offer(SessionJournal &journal);
    // The offered session, taken up because the photographer asked; none when the journal no
    // longer has it.
    static std::optional<SessionResumption> continuing(SessionJournal &journal, qint64 folderId);

    // What the journal keeps of a session that starts recording now.
    static RecordedSession recordOf(const LiveSession &session, bool paused);

private:
    enum class After { crash, quit };
    static SessionResumption prepare(const RecordedSession &recorded, SessionJournal &journal,
                                     After after);
};
