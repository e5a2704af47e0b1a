// SPDX-License-Identifier: MIT
// A live session through trouble: photos shot one a second while the link goes away for a
// while, or while the camera's transfers stall halfway; what reached the client, how often, and
// how late. The outages run inside a network namespace of its own (run-outage-bench), where the
// benchmark takes its own loopback down, or shapes it to a black hole, while the shoot goes on.
//
//   outage_bench --photo FILE [--count 30] --outage down|blackhole --after 5 --seconds 20
//                --link "rate 20mbit burst 32kb latency 1s"
//   outage_bench --photo FILE [--count 30] --stall 3      each file written half, then the rest
//                                                         3 s later
#include "benchsession.h"
#include "delivery.h"
#include "storedfiles.h"
#include "uploadmanager.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QProcess>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <thread>

namespace {

bool run(const QString &command)
{
    const int status = QProcess::execute(QStringLiteral("sh"), {QStringLiteral("-c"), command});
    if (status != 0)
        std::fprintf(stderr, "failed (%d): %s\n", status, qPrintable(command));
    return status == 0;
}

qint64 percentile(std::vector<qint64> values, double share)
{
    if (values.empty())
        return -1;
    std::sort(values.begin(), values.end());
    const auto at = static_cast<size_t>(share * double(values.size() - 1) + 0.5);
    return values[std::min(at, values.size() - 1)];
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QCommandLineParser options;
    options.addOptions({{QStringLiteral("photo"), QStringLiteral("the photo to shoot"), QStringLiteral("file")},
                        {QStringLiteral("count"), QStringLiteral("photos, one a second"), QStringLiteral("n"), QStringLiteral("30")},
                        {QStringLiteral("outage"), QStringLiteral("down or blackhole"), QStringLiteral("kind")},
                        {QStringLiteral("after"), QStringLiteral("seconds into the shoot"), QStringLiteral("s"), QStringLiteral("5")},
                        {QStringLiteral("seconds"), QStringLiteral("how long it lasts"), QStringLiteral("s"), QStringLiteral("20")},
                        {QStringLiteral("link"), QStringLiteral("tbf settings of the working link"), QStringLiteral("tbf")},
                        {QStringLiteral("stall"), QStringLiteral("seconds each transfer stalls halfway"), QStringLiteral("s"), QStringLiteral("0")}});
    options.process(application);
    const int count = options.value(QStringLiteral("count")).toInt();
    const QString kind = options.value(QStringLiteral("outage"));
    const QString link = options.value(QStringLiteral("link"));
    const qint64 afterMs = options.value(QStringLiteral("after")).toLongLong() * 1000;
    const qint64 lastsMs = options.value(QStringLiteral("seconds")).toLongLong() * 1000;
    const qint64 stallMs = options.value(QStringLiteral("stall")).toLongLong() * 1000;
    const bool outage = kind == QLatin1String("down") || kind == QLatin1String("blackhole");
    QFile source(options.value(QStringLiteral("photo")));
    if (!source.open(QIODevice::ReadOnly) || (!outage && stallMs == 0))
        return 2;
    const QByteArray photo = source.readAll();
    const QString goesAway = kind == QLatin1String("down")
                                 ? QStringLiteral("ip link set lo down")
                                 : QStringLiteral("tc qdisc change dev lo root tbf rate 1kbit burst 32kb latency 1s");
    const QString comesBack = kind == QLatin1String("down")
                                  ? QStringLiteral("ip link set lo up")
                                  : QStringLiteral("tc qdisc change dev lo root tbf ") + link;

    Session session;
    if (!session.open() || !session.start())
        return 1;
    const QString folder = session.folder.path();
    const qint64 startedAt = QDateTime::currentMSecsSinceEpoch();
    // Each photo as the camera's transfer writes it: whole, or its first half and, after the
    // stall, the rest. The last write of each is kept for the latency figure.
    std::vector<std::atomic<qint64>> lastWrite(static_cast<size_t>(count));
    std::atomic<bool> cameraDone = false;
    std::thread camera([&] {
        struct Write {
            qint64 at;
            int photo;
            bool rest;
        };
        std::vector<Write> writes;
        for (int i = 0; i < count; ++i) {
            writes.push_back({startedAt + i * 1000, i, stallMs == 0});
            if (stallMs > 0)
                writes.push_back({startedAt + i * 1000 + stallMs, i, true});
        }
        std::stable_sort(writes.begin(), writes.end(),
                         [](const Write &a, const Write &b) { return a.at < b.at; });
        const qsizetype half = photo.size() / 2;
        for (const Write &write : writes) {
            std::this_thread::sleep_until(
                std::chrono::system_clock::time_point(std::chrono::milliseconds(write.at)));
            QFile file(QStringLiteral("%1/IMG_%2.JPG").arg(folder).arg(write.photo, 4, 10, QLatin1Char('0')));
            const bool whole = stallMs == 0;
            if (!file.open(whole || !write.rest ? QIODevice::WriteOnly : QIODevice::Append))
                continue;
            file.write(whole ? photo : write.rest ? photo.mid(half) : photo.left(half));
            file.close();
            lastWrite[size_t(write.photo)] = QDateTime::currentMSecsSinceEpoch();
        }
        cameraDone = true;
    });

    bool away = true;
    bool back = true;
    qint64 returnedAt = startedAt;
    if (outage) {
        waitUntil([&] { return QDateTime::currentMSecsSinceEpoch() - startedAt >= afterMs; }, int(afterMs) + 1000);
        away = run(goesAway);
        waitUntil([&] { return QDateTime::currentMSecsSinceEpoch() - startedAt >= afterMs + lastsMs; },
                  int(lastsMs) + 1000);
        back = run(comesBack);
        returnedAt = QDateTime::currentMSecsSinceEpoch();
    }
    // The client goes on running while the camera finishes: a join alone would freeze its event
    // loop until the last write, and every photo would look handed over at once.
    waitUntil([&] { return cameraDone.load(); }, count * 1000 + int(stallMs) + 10000);
    camera.join();

    UploadManager *manager = session.model->uploadManager();
    // Until everything is through, or nothing has moved for a minute and a half.
    qint64 lastMove = returnedAt;
    qint64 seen = -1;
    waitUntil([&] {
        const qint64 moved = manager->uploadedCount() + manager->fullResUploaded();
        if (moved != seen) {
            seen = moved;
            lastMove = QDateTime::currentMSecsSinceEpoch();
        }
        return (session.model->deliveries().unfinishedCount() == 0 && manager->uploadedCount() >= count) ||
               QDateTime::currentMSecsSinceEpoch() - lastMove > 90000;
    }, 1800000);

    const qint64 folderId = *session.model->session().folderId;
    const QList<DevService::RegisteredFile> registered = session.service.registeredFiles(folderId);
    const StoredFiles store(session.service);
    int previews = 0;
    int duplicates = 0;
    int originals = 0;
    int duplicateOriginals = 0;
    int finalOriginals = 0;
    std::vector<qint64> sinceReturn;
    std::vector<qint64> sinceLastWrite;
    for (int i = 0; i < count; ++i) {
        const QString name = QStringLiteral("IMG_%1.JPG").arg(i, 4, 10, QLatin1Char('0'));
        const int times = store.registeredCount(folderId, name);
        previews += times > 0 ? 1 : 0;
        duplicates += std::max(0, times - 1);
        const int stored = store.storedCount(name);
        originals += stored > 0 ? 1 : 0;
        duplicateOriginals += std::max(0, stored - 1);
        finalOriginals += store.objectNamed(name) == photo ? 1 : 0;
    }
    for (const DevService::RegisteredFile &file : registered) {
        const qint64 at = QDateTime::fromString(file.registeredAt, Qt::ISODateWithMs).toMSecsSinceEpoch();
        if (outage && at > returnedAt)
            sinceReturn.push_back(at - returnedAt);
        const int index = file.key.section(QLatin1Char('_'), -1).section(QLatin1Char('.'), 0, 0).toInt();
        if (index >= 0 && index < count)
            sinceLastWrite.push_back(at - lastWrite[size_t(index)]);
    }
    if (outage)
        std::printf("outage: %s for %lld s, %lld s into a shoot of %d photos, one a second (%s, %s)\n",
                    qPrintable(kind), lastsMs / 1000, afterMs / 1000, count,
                    away ? "went" : "NOT applied", back ? "came back" : "NOT restored");
    else
        std::printf("%d photos, one a second, each transfer stalling %lld s halfway\n", count,
                    stallMs / 1000);
    std::printf("previews registered: %d/%d, duplicate registrations: %d\n", previews, count, duplicates);
    std::printf("originals stored: %d/%d (equal to the final file: %d), stored more than once: %d\n",
                originals, count, finalOriginals, duplicateOriginals);
    if (outage)
        std::printf("previews registered after the link came back: %zu; from its return to each: "
                    "median %lld ms, p95 %lld ms, last %lld ms\n",
                    sinceReturn.size(), percentile(sinceReturn, 0.5), percentile(sinceReturn, 0.95),
                    sinceReturn.empty() ? -1 : *std::max_element(sinceReturn.begin(), sinceReturn.end()));
    std::printf("from each file's last write to its preview registered: median %lld ms, p95 %lld ms, "
                "max %lld ms\n",
                percentile(sinceLastWrite, 0.5), percentile(sinceLastWrite, 0.95),
                sinceLastWrite.empty() ? -1 : *std::max_element(sinceLastWrite.begin(), sinceLastWrite.end()));
    const QVariant notice = session.model->deliveryNotice();
    std::printf("still waiting at the end: %s\n", notice.isValid() ? qPrintable(notice.toString()) : "nothing");
    return 0;
}
