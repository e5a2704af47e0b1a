// SPDX-License-Identifier: MIT
// End-to-end figures of a live session against devservice on loopback: how long after a
// camera's last write each preview is registered, how long until every original is stored,
// the peak memory of the process, and the CPU the watcher costs while nothing happens.
//
//   session_bench --make-photo FILE [--width W --height H]   writes a camera-like JPEG
//   session_bench --photo FILE [--count 100] [--rate 10]     the latency run
//   session_bench --photo FILE --count N --interval 2-10     photos at random intervals (seconds)
//   session_bench --photo FILE --count 20 --rate 1 --link-mbit 20   on a shaped loopback of 20 Mbit/s
//   session_bench --idle-files 10000 [--seconds 30]          the idle run
#include "apiclient.h"
#include "benchsession.h"
#include "devservicefixture.h"
#include "folderwatcher.h"
#include "imageresizer.h"
#include "photofiles.h"
#include "photogenerator.h"
#include "previewmaker.h"
#include "scopedpreferences.h"
#include "sessionviewmodel.h"
#include "uploadmanager.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <optional>
#include <random>
#include <limits>
#include <cstdio>
#include <sys/resource.h>
#include <thread>

namespace {

// Bytes sent so far through this network namespace's loopback, headers and acknowledgements
// included: what the shaped link carried. Nothing where the system does not say.
std::optional<qint64> loopbackBytesSent()
{
    QFile devices(QStringLiteral("/proc/net/dev"));
    if (!devices.open(QIODevice::ReadOnly))
        return std::nullopt;
    for (const QByteArray &line : devices.readAll().split('\n')) {
        const QList<QByteArray> fields = QByteArray(line).replace(':', ' ').simplified().split(' ');
        // lo: receive bytes, packets, errs, drop, fifo, frame, compressed, multicast; then sent bytes
        if (fields.size() > 9 && fields[0] == "lo")
            return fields[9].toLongLong();
    }
    return std::nullopt;
}

double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

long peakMegabytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

int makePhoto(const QString &path, int width, int height)
{
    const QImage image = PhotoGenerator(QSize(width, height), 2026).image8();
    const QByteArray jpeg = PhotoFiles::encodeJpeg(image, 95);
    if (!PhotoFiles::writeFile(path, jpeg))
        return 1;
    std::printf("wrote %s: %dx%d, %.1f MB\n", qPrintable(path), width, height, double(jpeg.size()) / 1e6);
    return 0;
}

// The machine's speed right now: these virtual cores share their physical ones with other
// guests, and the same decode can take half as long again from one minute to the next.
void printReferencePreview(const QString &photoPath)
{
    qint64 fastest = std::numeric_limits<qint64>::max();
    for (int turn = 0; turn < 3; ++turn) {
        QElapsedTimer clock;
        clock.start();
        if (!ImageResizer::createPreview(QUrl::fromLocalFile(photoPath)))
            return;
        fastest = std::min(fastest, clock.elapsed());
    }
    std::printf("one preview of this photo, alone on the machine: %lld ms\n", fastest);
}

// When the camera writes each photo, in milliseconds from the start: evenly at `rate` a second,
// or at random intervals between the two bounds (the same ones at every run).
std::vector<qint64> cameraSchedule(int count, int rate, std::optional<std::pair<double, double>> interval)
{
    std::vector<qint64> due;
    std::mt19937 random(2026);
    double at = 0;
    for (int i = 0; i < count; ++i) {
        due.push_back(static_cast<qint64>(at));
        at += interval ? std::uniform_real_distribution<double>(interval->first, interval->second)(random) * 1000.0
                       : 1000.0 / rate;
    }
    return due;
}

int latencyRun(const QString &photoPath, int count, int rate,
               std::optional<std::pair<double, double>> interval, std::optional<double> linkMbit)
{
    printReferencePreview(photoPath);
    QFile source(photoPath);
    if (!source.open(QIODevice::ReadOnly))
        return 1;
    const QByteArray photo = source.readAll();
    source.close();

    Session session;
    if (!session.open() || !session.start())
        return 1;

    // The camera: one photo at each moment of the schedule, each written in four pieces.
    std::vector<std::atomic<qint64>> lastWrite(static_cast<size_t>(count));
    const QString folder = session.folder.path();
    const std::vector<qint64> schedule = cameraSchedule(count, rate, interval);
    std::atomic<bool> cameraDone = false;
    const qint64 startedAt = QDateTime::currentMSecsSinceEpoch();
    std::thread camera([&] {
        for (int i = 0; i < count; ++i) {
            const auto due = std::chrono::milliseconds(startedAt + schedule[size_t(i)]);
            std::this_thread::sleep_until(std::chrono::system_clock::time_point(due));
            QFile file(QStringLiteral("%1/IMG_%2.JPG").arg(folder).arg(i, 4, 10, QLatin1Char('0')));
            if (!file.open(QIODevice::WriteOnly))
                continue;
            const qsizetype piece = photo.size() / 4 + 1;
            for (qsizetype at = 0; at < photo.size(); at += piece)
                file.write(photo.constData() + at, std::min(piece, photo.size() - at));
            file.close();
            lastWrite[size_t(i)] = QDateTime::currentMSecsSinceEpoch();
        }
        cameraDone = true;
    });

    // Done when every original is stored, or, if some photo failed on its way, once the last
    // photo has been written and nothing has moved for half a minute.
    UploadManager *manager = session.model->uploadManager();
    qint64 allStoredAt = 0;
    qint64 firstStoredAt = 0;
    std::optional<qint64> linkBytesAtFirst;
    std::optional<qint64> linkBytesAtLast;
    qint64 lastMove = QDateTime::currentMSecsSinceEpoch();
    qint64 seen = -1;
    QObject::connect(manager, &UploadManager::fullResUploadedChanged, manager, [&] {
        allStoredAt = QDateTime::currentMSecsSinceEpoch();
        linkBytesAtLast = loopbackBytesSent();
        if (manager->fullResUploaded() == 1) {
            firstStoredAt = allStoredAt;
            linkBytesAtFirst = linkBytesAtLast;
        }
    });
    waitUntil([&] {
        const qint64 moved = manager->uploadedCount() + manager->fullResUploaded();
        if (moved != seen) {
            seen = moved;
            lastMove = QDateTime::currentMSecsSinceEpoch();
        }
        return manager->fullResUploaded() >= count ||
               (cameraDone && QDateTime::currentMSecsSinceEpoch() - lastMove > 30000);
    }, 3600000);
    camera.join();
    const std::optional<QString> lastError = manager->error();
    if (manager->fullResUploaded() < count)
        std::fprintf(stderr, "only %lld of %d originals stored, %lld previews registered; last error: %s\n",
                     manager->fullResUploaded(), count, manager->uploadedCount(),
                     lastError ? qPrintable(*lastError) : "none");

    std::vector<qint64> latencies;
    for (const DevService::RegisteredFile &file : session.service.registeredFiles(*session.model->session().folderId)) {
        const int index = file.key.section(QLatin1Char('_'), -1).section(QLatin1Char('.'), 0, 0).toInt();
        const qint64 registeredAt = QDateTime::fromString(file.registeredAt, Qt::ISODateWithMs).toMSecsSinceEpoch();
        latencies.push_back(registeredAt - lastWrite[size_t(index)]);
    }
    if (latencies.empty())
        return 1;
    std::sort(latencies.begin(), latencies.end());
    const auto at = [&](double q) { return latencies[std::min(latencies.size() - 1, size_t(q * double(latencies.size())))]; };
    if (interval)
        std::printf("photos: %d of %.1f MB, %.0f to %.0f s apart\n", count, double(photo.size()) / 1e6,
                    interval->first, interval->second);
    else
        std::printf("photos: %d of %.1f MB at %d per second\n", count, double(photo.size()) / 1e6, rate);
    std::printf("previews registered: %zu\n", latencies.size());
    std::printf("last write -> preview registered: median %lld ms, p95 %lld ms, max %lld ms\n",
                at(0.5), at(0.95), latencies.back());
    if (allStoredAt > 0)
        std::printf("first write -> last original stored: %.1f s\n", double(allStoredAt - startedAt) / 1000.0);
    // The originals go one after the other from the first preview on: the first original starts
    // as soon as its preview is registered, and the link is theirs whenever no preview needs it.
    const qint64 firstRegistered = [&] {
        qint64 first = std::numeric_limits<qint64>::max();
        for (const DevService::RegisteredFile &file : session.service.registeredFiles(*session.model->session().folderId))
            first = std::min(first, QDateTime::fromString(file.registeredAt, Qt::ISODateWithMs).toMSecsSinceEpoch());
        return first;
    }();
    const double originalSeconds = double(allStoredAt - firstRegistered) / 1000.0;
    const double originalMegabits = double(photo.size()) * double(manager->fullResUploaded()) * 8.0 / 1e6;
    if (allStoredAt > 0)
        std::printf("originals: %lld of %.1f MB from the first preview registered to the last stored, "
                    "%.1f s: %.2f Mbit/s\n",
                    manager->fullResUploaded(), double(photo.size()) / 1e6, originalSeconds,
                    originalMegabits / originalSeconds);
    // While the originals follow each other, from the first stored to the last: the bytes of
    // the originals stored in that time over its length, and how busy the link was meanwhile
    // (everything it carried, previews, headers and acknowledgements included).
    if (manager->fullResUploaded() >= 2) {
        const double seconds = double(allStoredAt - firstStoredAt) / 1000.0;
        const double megabits = double(photo.size()) * double(manager->fullResUploaded() - 1) * 8.0 / 1e6;
        std::printf("originals, first stored to last stored: %lld in %.1f s: %.2f Mbit/s",
                    manager->fullResUploaded() - 1, seconds, megabits / seconds);
        if (linkMbit && linkBytesAtFirst && linkBytesAtLast)
            std::printf(" = %.1f %% of the link; link busy %.1f %% of that time",
                        100.0 * megabits / seconds / *linkMbit,
                        100.0 * double(*linkBytesAtLast - *linkBytesAtFirst) * 8.0 / 1e6 / seconds / *linkMbit);
        std::printf("\n");
    }
    if (const std::optional<QByteArray> preview = ImageResizer::createPreview(QUrl::fromLocalFile(photoPath)))
        std::printf("each preview: %.2f MB\n", double(preview->size()) / 1e6);
    // A clean run authorises each photo twice (preview and original); more means a request met
    // a lost connection and an original was tried again.
    std::printf("authorisations: %lld for %d photos (a clean run needs %d)\n",
                static_cast<long long>(session.service.requests(QStringLiteral("presign")).size()), count,
                2 * count);
    std::printf("last upload error: %s\n", lastError ? qPrintable(*lastError) : "none");
    std::printf("previews made before their photo was handed over: %lld\n",
                manager->previews().reusedCount());
    std::printf("peak memory of the process: %ld MB\n", peakMegabytes());
    return latencies.size() == size_t(count) && manager->fullResUploaded() == count ? 0 : 1;
}

int idleRun(int files, int seconds)
{
    Session session;
    const QByteArray tiny = PhotoFiles::encodeJpeg(PhotoGenerator(QSize(64, 48), 1).image8(), 80);
    for (int i = 0; i < files; ++i)
        PhotoFiles::writeFile(session.folder.filePath(QStringLiteral("OLD_%1.JPG").arg(i, 5, 10, QLatin1Char('0'))), tiny);
    if (!session.open() || !session.start())
        return 1;
    waitUntil([] { return false; }, 2000); // let start-up settle
    const double before = cpuSeconds();
    QElapsedTimer clock;
    clock.start();
    waitUntil([] { return false; }, seconds * 1000);
    const double used = cpuSeconds() - before;
    std::printf("idle with %d photos in the folder: %.2f %% of one core over %.0f s\n", files,
                100.0 * used / (double(clock.elapsed()) / 1000.0), double(clock.elapsed()) / 1000.0);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption makePhotoOption(QStringLiteral("make-photo"), QStringLiteral("Write a photo"), QStringLiteral("file"));
    const QCommandLineOption photoOption(QStringLiteral("photo"), QStringLiteral("Latency run with this photo"), QStringLiteral("file"));
    const QCommandLineOption idleOption(QStringLiteral("idle-files"), QStringLiteral("Idle run with this many photos"), QStringLiteral("n"));
    const QCommandLineOption widthOption(QStringLiteral("width"), QStringLiteral("Width"), QStringLiteral("px"), QStringLiteral("6000"));
    const QCommandLineOption heightOption(QStringLiteral("height"), QStringLiteral("Height"), QStringLiteral("px"), QStringLiteral("4000"));
    const QCommandLineOption countOption(QStringLiteral("count"), QStringLiteral("Photos"), QStringLiteral("n"), QStringLiteral("100"));
    const QCommandLineOption rateOption(QStringLiteral("rate"), QStringLiteral("Photos per second"), QStringLiteral("n"), QStringLiteral("10"));
    const QCommandLineOption intervalOption(QStringLiteral("interval"), QStringLiteral("Seconds between photos, at random between two bounds"), QStringLiteral("min-max"));
    const QCommandLineOption linkOption(QStringLiteral("link-mbit"), QStringLiteral("The shaped loopback's rate, for the link's figures"), QStringLiteral("Mbit/s"));
    const QCommandLineOption secondsOption(QStringLiteral("seconds"), QStringLiteral("Idle seconds"), QStringLiteral("s"), QStringLiteral("30"));
    parser.addOptions({makePhotoOption, photoOption, idleOption, widthOption, heightOption, countOption, rateOption, intervalOption, linkOption, secondsOption});
    parser.process(app);
    if (parser.isSet(makePhotoOption))
        return makePhoto(parser.value(makePhotoOption), parser.value(widthOption).toInt(), parser.value(heightOption).toInt());
    if (parser.isSet(photoOption)) {
        std::optional<std::pair<double, double>> interval;
        if (parser.isSet(intervalOption)) {
            const QStringList bounds = parser.value(intervalOption).split(QLatin1Char('-'));
            if (bounds.size() != 2)
                parser.showHelp(2);
            interval = std::pair(bounds[0].toDouble(), bounds[1].toDouble());
        }
        std::optional<double> linkMbit;
        if (parser.isSet(linkOption))
            linkMbit = parser.value(linkOption).toDouble();
        return latencyRun(parser.value(photoOption), parser.value(countOption).toInt(),
                          parser.value(rateOption).toInt(), interval, linkMbit);
    }
    if (parser.isSet(idleOption))
        return idleRun(parser.value(idleOption).toInt(), parser.value(secondsOption).toInt());
    parser.showHelp(2);
}
