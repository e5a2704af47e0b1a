// SPDX-License-Identifier: MIT
// A live session through a network outage: photos shot one a second while the link goes away
// for a while, and what reached the client once it came back. Runs inside a network namespace
// of its own (run-outage-bench), where it takes its own loopback down, or shapes it to a black
// hole, while the shoot goes on.
//
//   outage_bench --photo FILE [--count 30] --outage down|blackhole --after 5 --seconds 20
//                --link "rate 20mbit burst 32kb latency 1s"
#include "benchsession.h"
#include "deliveryqueue.h"
#include "storedfiles.h"
#include "uploadmanager.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QProcess>

#include <algorithm>
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
                        {QStringLiteral("link"), QStringLiteral("tbf settings of the working link"), QStringLiteral("tbf")}});
    options.process(application);
    const int count = options.value(QStringLiteral("count")).toInt();
    const QString kind = options.value(QStringLiteral("outage"));
    const QString link = options.value(QStringLiteral("link"));
    const qint64 afterMs = options.value(QStringLiteral("after")).toLongLong() * 1000;
    const qint64 lastsMs = options.value(QStringLiteral("seconds")).toLongLong() * 1000;
    QFile source(options.value(QStringLiteral("photo")));
    if (!source.open(QIODevice::ReadOnly) || (kind != QLatin1String("down") && kind != QLatin1String("blackhole")))
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
    std::thread camera([&] {
        for (int i = 0; i < count; ++i) {
            std::this_thread::sleep_until(std::chrono::system_clock::time_point(
                std::chrono::milliseconds(startedAt + i * 1000)));
            QFile file(QStringLiteral("%1/IMG_%2.JPG").arg(folder).arg(i, 4, 10, QLatin1Char('0')));
            if (file.open(QIODevice::WriteOnly))
                file.write(photo);
        }
    });

    waitUntil([&] { return QDateTime::currentMSecsSinceEpoch() - startedAt >= afterMs; }, int(afterMs) + 1000);
    const bool away = run(goesAway);
    waitUntil([&] { return QDateTime::currentMSecsSinceEpoch() - startedAt >= afterMs + lastsMs; },
              int(lastsMs) + 1000);
    const bool back = run(comesBack);
    const qint64 returnedAt = QDateTime::currentMSecsSinceEpoch();
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
    std::vector<qint64> sinceReturn;
    for (int i = 0; i < count; ++i) {
        const QString name = QStringLiteral("IMG_%1.JPG").arg(i, 4, 10, QLatin1Char('0'));
        const int times = store.registeredCount(folderId, name);
        previews += times > 0 ? 1 : 0;
        duplicates += std::max(0, times - 1);
        const int stored = store.storedCount(name);
        originals += stored > 0 ? 1 : 0;
        duplicateOriginals += std::max(0, stored - 1);
    }
    for (const DevService::RegisteredFile &file : registered) {
        const qint64 at = QDateTime::fromString(file.registeredAt, Qt::ISODateWithMs).toMSecsSinceEpoch();
        if (at > returnedAt)
            sinceReturn.push_back(at - returnedAt);
    }
    std::printf("outage: %s for %lld s, %lld s into a shoot of %d photos, one a second (%s, %s)\n",
                qPrintable(kind), lastsMs / 1000, afterMs / 1000, count, away ? "went" : "NOT applied",
                back ? "came back" : "NOT restored");
    std::printf("previews registered: %d/%d, duplicate registrations: %d\n", previews, count, duplicates);
    std::printf("originals stored: %d/%d, stored more than once: %d\n", originals, count, duplicateOriginals);
    std::printf("previews registered after the link came back: %zu; from its return to each: "
                "median %lld ms, p95 %lld ms, last %lld ms\n",
                sinceReturn.size(), percentile(sinceReturn, 0.5), percentile(sinceReturn, 0.95),
                sinceReturn.empty() ? -1 : *std::max_element(sinceReturn.begin(), sinceReturn.end()));
    const QVariant notice = session.model->deliveryNotice();
    std::printf("still waiting at the end: %s\n", notice.isValid() ? qPrintable(notice.toString()) : "nothing");
    return 0;
}
