// SPDX-License-Identifier: MIT
#pragma once

#include <QSet>
#include <QString>
#include <QUrl>

#include <optional>

class JournalDatabase;

// A live session as the journal keeps it while it records.
struct RecordedSession {
    // How the session's recording ended, as far as the journal knows.
    enum class Ending {
        recording, // it had not: the program went away while it recorded (a crash, a power cut)
        quit,      // the photographer quit the program while it recorded
        stopped,   // the photographer stopped it
        left,      // the photographer started another one instead of taking it up again
    };

    qint64 folderId = 0;
    QString slug;
    QString clientName;
    QString liveURL;
    QString galleryURL;
    QUrl watchFolder;
    bool paused = false;
    Ending ending = Ending::recording;
};

// What a session shows in its counters, as the journal's photos tell it.
struct RecordedCounts {
    qint64 shotsShown = 0;     // previews registered: a RAW and its JPEG are one
    qint64 originalsDue = 0;   // files whose shot's preview is registered
    qint64 originalsStored = 0;
};

// The live session in the journal, so that it outlives the program: its identity on the
// service, its client and folder, the names its folder held when it started, the names a
// pause skipped, whether it is paused, and how it ended. Shares the journal's database.
class SessionJournal {
public:
    explicit SessionJournal(JournalDatabase &database);

    // A session that has just started recording, with the names already in its folder (never
    // to be sent); a session that was live before is left.
    void record(const RecordedSession &session, const QSet<QString> &namesAtStart);
    void setPaused(qint64 folderId, bool paused);
    void setEnding(qint64 folderId, RecordedSession::Ending ending);
    // A name the watcher took while the recording was paused: skipped for good.
    void addSkippedName(qint64 folderId, const QString &name);
    void addSkippedNames(qint64 folderId, const QSet<QString> &names);

    // The session that was recording when the program last went away, or that the
    // photographer quit from; none when there is neither.
    std::optional<RecordedSession> live() const;
    std::optional<RecordedSession> session(qint64 folderId) const;
    // The names never to be handed over again: in the folder at the start, skipped by a
    // pause, or handed over already.
    QSet<QString> knownNames(qint64 folderId) const;
    RecordedCounts counts(qint64 folderId) const;

    // A session that will not be taken up again needs its names no more.
    void forgetFinishedNames();

private:
    std::optional<RecordedSession> first(const QString &condition,
                                         const QVariantList &values) const;

    JournalDatabase &m_database;
};
