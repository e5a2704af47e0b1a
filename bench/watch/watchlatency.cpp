// SPDX-License-Identifier: MIT
// How soon the folder watcher hands a photo over, the figures its tests leave alone because a
// loaded machine moves them:
//
// - a photo written at the worst moment for a poller, a tenth of a second after a check: from
//   its last write to its hand-over (one second is the floor the readiness rule sets, the next
//   poll would come at almost two);
// - a finished photo renamed into the folder: from the rename to its hand-over (the
//   notification brings the check forward; polling alone waits for the next poll).
//
// Each is measured with the folder's notifications and with polling alone.
//
//   watch_latency [--rounds 10]
#include "folderwatcher.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <optional>
#include <vector>

namespace {

qint64 now()
{
    return QDateTime::currentMSecsSinceEpoch();
}

bool writeFile(const QString &path, const QByteArray &bytes, std::optional<QDateTime> modified = {})
{
    QFile file(path);
    // Flushed before the time is set: the close would otherwise write, and date, the file anew.
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.flush())
        return false;
    return !modified || file.setFileTime(*modified, QFileDevice::FileModificationTime);
}

bool waitUntil(const std::function<bool()> &condition, int limitMs)
{
    QEventLoop loop;
    QTimer look;
    QObject::connect(&look, &QTimer::timeout, &loop, [&] {
        if (condition())
            loop.quit();
    });
    QTimer::singleShot(limitMs, &loop, &QEventLoop::quit);
    look.start(1);
    if (!condition())
        loop.exec();
    return condition();
}

void report(const char *what, std::vector<qint64> figures)
{
    if (figures.empty()) {
        std::printf("%-52s no figures\n", what);
        return;
    }
    std::sort(figures.begin(), figures.end());
    std::printf("%-52s median %5lld ms, best %5lld ms, worst %5lld ms (%zu rounds)\n", what,
                figures[figures.size() / 2], figures.front(), figures.back(), figures.size());
}

struct Watch {
    QTemporaryDir root;
    QString folder = root.filePath(QStringLiteral("shoot"));
    QHash<QString, qint64> handedAt;
    std::function<void(const QString &)> afterHandOver;
    std::unique_ptr<FolderWatcher> watcher;

    explicit Watch(bool notifications)
    {
        QDir().mkpath(folder);
        watcher = std::make_unique<FolderWatcher>(
            QUrl::fromLocalFile(folder),
            [this](const QUrl &file) {
                handedAt.insert(file.fileName(), now());
                if (afterHandOver)
                    afterHandOver(file.fileName());
            },
            QSet<QString>());
        watcher->setNotificationsEnabled(notifications);
    }
    QString path(const QString &name) const { return folder + QLatin1Char('/') + name; }
};

// A marker renamed in is handed over by the check that finds it; a tenth of a second later
// the fresh photo is written, so the next poll finds it too young.
std::vector<qint64> worstMoment(bool notifications, int rounds)
{
    Watch watch(notifications);
    watch.watcher->start();
    std::vector<qint64> latencies;
    for (int round = 0; round < rounds; ++round) {
        const QString marker = QStringLiteral("MARK_%1.JPG").arg(round);
        const QString fresh = QStringLiteral("IMG_%1.JPG").arg(round);
        qint64 written = 0;
        watch.afterHandOver = [&](const QString &name) {
            if (name != marker)
                return;
            QTimer::singleShot(100, [&] {
                if (writeFile(watch.path(fresh), "fresh"))
                    written = QFileInfo(watch.path(fresh)).lastModified().toMSecsSinceEpoch();
            });
        };
        const QString temporary = watch.path(marker + QStringLiteral(".tmp"));
        if (!writeFile(temporary, "marker", QDateTime::currentDateTime().addSecs(-3600))
            || !QFile::rename(temporary, watch.path(marker))
            || !waitUntil([&] { return watch.handedAt.contains(fresh); }, 10'000) || written == 0)
            break;
        latencies.push_back(watch.handedAt.value(fresh) - written);
    }
    watch.afterHandOver = nullptr;
    return latencies;
}

// Finished long ago, renamed in at a moment unrelated to the polls.
std::vector<qint64> renamedIn(bool notifications, int rounds)
{
    Watch watch(notifications);
    watch.watcher->start();
    std::vector<qint64> latencies;
    for (int round = 0; round < rounds; ++round) {
        waitUntil([] { return false; }, 137 * (round + 1) % 1000);
        const QString name = QStringLiteral("IMG_%1.JPG").arg(round);
        const QString temporary = watch.path(name + QStringLiteral(".tmp"));
        if (!writeFile(temporary, "finished", QDateTime::currentDateTime().addSecs(-3600)))
            break;
        const qint64 renamed = now();
        if (!QFile::rename(temporary, watch.path(name))
            || !waitUntil([&] { return watch.handedAt.contains(name); }, 10'000))
            break;
        latencies.push_back(watch.handedAt.value(name) - renamed);
    }
    return latencies;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption roundsOption(QStringLiteral("rounds"),
                                          QStringLiteral("Rounds of each measurement."),
                                          QStringLiteral("n"), QStringLiteral("10"));
    parser.addOption(roundsOption);
    parser.process(app);
    const int rounds = std::max(1, parser.value(roundsOption).toInt());

    for (const bool notifications : {true, false}) {
        const char *mode = notifications ? "notifications" : "polling alone";
        std::printf("== %s\n", mode);
        report("photo written just after a check: last write to hand-over",
               worstMoment(notifications, rounds));
        report("finished photo renamed in: rename to hand-over", renamedIn(notifications, rounds));
    }
    return 0;
}
