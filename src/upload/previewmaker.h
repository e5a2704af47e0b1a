// SPDX-License-Identifier: MIT
#pragma once

#include "asyncsemaphore.h"
#include "filestamp.h"

#include <QByteArray>
#include <QCoroTask>
#include <QString>
#include <QUrl>

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <vector>

// Makes the previews of one session on the shared thread pool, never more than two at a time,
// which bounds the memory that decoding full-size photos takes. It can also start on a photo
// before the photo is handed over, as soon as the photo has stopped changing, so that the
// second the readiness rule waits is used for decoding. A preview made early is only used if
// the file has not been touched since it was read; otherwise the photo is decoded afresh, so
// the result is always the preview of the file as it is at hand-over.
//
// Lives on the main thread and is used only there; shared with the preview jobs, which may
// outlive the upload manager that made it.
class PreviewMaker : public std::enable_shared_from_this<PreviewMaker> {
public:
    static constexpr int concurrentDecodes = 2;
    // Early previews waiting to start or to be claimed. A photo whose early preview was
    // dropped is simply decoded when its job asks.
    static constexpr qsizetype earlyLimit = 16;

    PreviewMaker() = default;
    PreviewMaker(const PreviewMaker &) = delete;
    PreviewMaker &operator=(const PreviewMaker &) = delete;
    ~PreviewMaker();

    // Starts on the preview of a photo that looks complete but is not handed over yet.
    void prepare(const QUrl &file);
    // The preview of the file as it is now, or no value when it cannot be made. A fresh decode
    // goes ahead of all early work that has not started.
    QCoro::Task<std::optional<QByteArray>> make(QUrl file);
    // Drops early work that has not started and early previews nobody has claimed.
    void dropEarlyWork();
    // Ends at once, or as soon as no decode is left waiting for its turn, or once as many
    // decodes have finished as were waiting when it was called. Work of lower priority (the
    // originals) waits on it, so that when the photos come faster than the machine can take,
    // the previews the client is waiting for are not the ones that fall behind; the bound keeps
    // a steady stream of new photos from holding that work back for ever.
    QCoro::Task<> caughtUp();

    // For tests and benchmarks: whether an early preview of the file is finished and waiting
    // for its job, how many early previews were used, and the most decodes run at once.
    bool hasEarlyPreview(const QUrl &file) const;
    qint64 reusedCount() const { return m_reusedCount; }
    int peakDecodes() const { return m_peakDecodes; }

private:
    // Coroutines waiting for one moment, each let through once it has come. Its owner has to
    // outlive the waiters, as a Work held by each waiter and the list held by caughtUp() do.
    class WaitList {
    public:
        [[nodiscard]] AsyncSemaphore::Awaiter join();
        void releaseAll();

    private:
        AsyncSemaphore m_permits{0};
        qint64 m_waiting = 0;
    };
    struct Work;
    struct Made {
        std::optional<FileStamp> stamp; // an early preview's file as read; absent if unvouched
        std::optional<QByteArray> preview;
    };
    static Made makeEarly(const QUrl &file);

    void startWaitingWork();
    QCoro::Task<> run(std::shared_ptr<Work> work);
    void limitEarlyWork();
    void releaseCaughtUpWaiters();
    void forgetEarly(const std::shared_ptr<Work> &work);

    std::deque<std::shared_ptr<Work>> m_waiting; // not started yet, oldest first
    std::map<QString, std::shared_ptr<Work>> m_early; // unclaimed early work, by local path
    int m_running = 0;
    int m_peakDecodes = 0;
    qint64 m_reusedCount = 0;
    struct CaughtUpWaiter {
        qint64 finishedDecodes; // let through once this many decodes have finished
        std::shared_ptr<WaitList> waiters;
    };
    std::vector<CaughtUpWaiter> m_caughtUpWaiters; // or once no decode is waiting
    qint64 m_finishedDecodes = 0;
    quint64 m_nextSequence = 0;
};
