// SPDX-License-Identifier: MIT
// End-to-end figures of a live session against devservice on loopback: how long after a
// camera's last write each preview is registered, how long until every original is stored,
// the peak memory of the process, and the CPU the watcher costs while nothing happens.
//
//   session_bench --make-photo FILE [--width W --height H] [--quality Q] [--detail N]
//                                                            writes a camera-like JPEG
//   session_bench --photo FILE [--count 100] [--rate 10]     the latency run
//   session_bench --photo FILE --count N --interval 2-10     photos at random intervals (seconds)
//   session_bench --photo FILE --count 20 --rate 1 --link-mbit 20 [--service-port P]
//                 [--uplink-device ifb0] [--previews-only] [--calibrate 4] [--each]
//                                                            on a link shaped to 20 Mbit/s
//   session_bench --photo FILE --raw-beside RAW --count 20 --rate 1
//                                                            RAW+JPEG pairs: the JPEG, then a
//                                                            copy of RAW of the same name
//   session_bench --make-raw FILE --photo JPEG [--width W]  a DNG of the JPEG's picture, with
//                                                            the JPEG embedded as cameras do,
//                                                            its sensor W pixels across
//   session_bench --make-tiff FILE --width W --height H [--deflate]
//                                                            a 16-bit TIFF of the scene
//   session_bench --files A,B,C --count 5 --rate 1           photos taken in turn from the list
//   session_bench --idle-files 10000 [--seconds 30]          the idle run
#include "apiclient.h"
#include "benchsession.h"
#include "devservicefixture.h"
#include "folderwatcher.h"
#include "imageresizer.h"
#include "mainthreadwatch.h"
#include "photofiles.h"
#include "photogenerator.h"
#include "previewmaker.h"
#include "scopedpreferences.h"
#include "sessionphotos.h"
#include "sessionviewmodel.h"
#include "shootinguplink.h"
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

struct LatencyRunOptions {
    int count = 100;
    int rate = 10;
    std::optional<std::pair<double, double>> interval;
    std::optional<double> linkMbit;
    quint16 servicePort = 0;
    QString uplinkDevice = QStringLiteral("lo");
    int calibrateSeconds = 0; // the link's capacity measured first, through the service's port
    bool eachPhoto = false;   // every photo's latency, not only the distribution
    bool previewsOnly = false; // done once every preview is registered
    QString rawBeside;         // each photo followed at once by this RAW, of the same name
    QStringList photos;        // the photos the camera takes in turn; the first is photoPath
};

int latencyRun(const QString &photoPath, const LatencyRunOptions &options)
{
    const QStringList photos = options.photos.isEmpty() ? QStringList{photoPath} : options.photos;
    const int count = options.count;
    const std::optional<double> linkMbit = options.linkMbit;
    printReferencePreview(photoPath);
    std::optional<double> capacity;
    if (options.calibrateSeconds > 0 && options.servicePort != 0) {
        capacity = ShootingUplink::measureCapacity(options.servicePort, options.uplinkDevice,
                                                   options.calibrateSeconds);
        if (capacity && linkMbit)
            std::printf("the link carries %.3f Mbit/s, %.1f %% of its nominal rate\n",
                        *capacity / 1e6, 100.0 * *capacity / (*linkMbit * 1e6));
    }
    // The camera copies each photo from its file, so that the benchmark's own memory does not
    // grow with the photos'.
    qint64 photoBytes = 0;
    for (const QString &path : photos) {
        if (!QFileInfo(path).isFile())
            return 1;
        photoBytes += QFileInfo(path).size();
    }
    photoBytes /= photos.size();
    const qint64 rawBytes = options.rawBeside.isEmpty() ? 0 : QFileInfo(options.rawBeside).size();
    if (!options.rawBeside.isEmpty() && !QFileInfo(options.rawBeside).isFile())
        return 1;
    const QString rawExtension = QFileInfo(options.rawBeside).suffix().toUpper();
    // Each shot's files: one, or a JPEG and its RAW.
    const int filesPerShot = rawBytes == 0 ? 1 : 2;

    Session session;
    if (!session.open(options.servicePort) || !session.start())
        return 1;

    // The camera: one photo at each moment of the schedule, each written in four pieces.
    std::vector<std::atomic<qint64>> lastWrite(static_cast<size_t>(count));
    const QString folder = session.folder.path();
    const std::vector<qint64> schedule = cameraSchedule(count, options.rate, options.interval);
    std::atomic<bool> cameraDone = false;
    const qint64 startedAt = QDateTime::currentMSecsSinceEpoch();
    std::thread camera([&] {
        for (int i = 0; i < count; ++i) {
            const auto due = std::chrono::milliseconds(startedAt + schedule[size_t(i)]);
            std::this_thread::sleep_until(std::chrono::system_clock::time_point(due));
            const QString name = QStringLiteral("%1/IMG_%2.").arg(folder).arg(i, 4, 10, QLatin1Char('0'));
            const QString &source = photos[i % photos.size()];
            const QString extension = options.photos.isEmpty()
                                          ? QStringLiteral("JPG")
                                          : QFileInfo(source).suffix().toUpper();
            SessionPhotos::copyAsCamera(source, name + extension);
            // The latency of a pair is its first file's.
            lastWrite[size_t(i)] = QDateTime::currentMSecsSinceEpoch();
            if (rawBytes > 0)
                SessionPhotos::copyAsCamera(options.rawBeside, name + rawExtension);
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
    const std::optional<QByteArray> preview =
        ImageResizer::createPreview(QUrl::fromLocalFile(photoPath));
    // From here on the main thread is the program's alone: the benchmark only looks.
    const MainThreadWatch mainThread;
    std::optional<ShootingUplink> shooting;
    if (linkMbit && preview)
        shooting.emplace(options.uplinkDevice, *linkMbit, preview->size());
    if (shooting && capacity)
        shooting->setMeasuredCapacity(*capacity);
    QObject::connect(manager, &UploadManager::uploadedCountChanged, manager, [&] {
        if (shooting)
            shooting->previewRegistered();
    });
    QObject::connect(manager, &UploadManager::fullResUploadedChanged, manager, [&] {
        allStoredAt = QDateTime::currentMSecsSinceEpoch();
        linkBytesAtLast = ShootingUplink::bytesSent(options.uplinkDevice);
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
        return manager->fullResUploaded() >= filesPerShot * count ||
               (options.previewsOnly && manager->uploadedCount() >= count) ||
               (cameraDone && QDateTime::currentMSecsSinceEpoch() - lastMove > 30000);
    }, 3600000);
    camera.join();
    const std::optional<QString> lastError = manager->error();
    if (manager->fullResUploaded() < filesPerShot * count && !options.previewsOnly)
        std::fprintf(stderr, "only %lld of %d originals stored, %lld previews registered; last error: %s\n",
                     manager->fullResUploaded(), filesPerShot * count, manager->uploadedCount(),
                     lastError ? qPrintable(*lastError) : "none");

    std::vector<qint64> latencies;
    for (const DevService::RegisteredFile &file : session.service.registeredFiles(*session.model->session().folderId)) {
        const int index = file.key.section(QLatin1Char('_'), -1).section(QLatin1Char('.'), 0, 0).toInt();
        const qint64 registeredAt = QDateTime::fromString(file.registeredAt, Qt::ISODateWithMs).toMSecsSinceEpoch();
        latencies.push_back(registeredAt - lastWrite[size_t(index)]);
        if (options.eachPhoto)
            std::printf("photo %d: preview registered %lld ms after its last write\n", index,
                        static_cast<long long>(latencies.back()));
    }
    if (latencies.empty())
        return 1;
    std::sort(latencies.begin(), latencies.end());
    const auto at = [&](double q) { return latencies[std::min(latencies.size() - 1, size_t(q * double(latencies.size())))]; };
    if (options.interval)
        std::printf("photos: %d of %.1f MB, %.0f to %.0f s apart\n", count, double(photoBytes) / 1e6,
                    options.interval->first, options.interval->second);
    else
        std::printf("photos: %d of %.1f MB%s at %d per second\n", count, double(photoBytes) / 1e6,
                    photos.size() > 1 ? " on average" : "", options.rate);
    if (rawBytes > 0)
        std::printf("each with its RAW of %.1f MB, written right after it: %lld originals stored, "
                    "%lld photos shown\n",
                    double(rawBytes) / 1e6, manager->fullResUploaded(), manager->uploadedCount());
    if (preview)
        std::printf("each preview: %lld bytes\n", static_cast<long long>(preview->size()));
    std::printf("previews registered: %zu\n", latencies.size());
    std::printf("last write -> preview registered: median %lld ms, p95 %lld ms, max %lld ms\n",
                at(0.5), at(0.95), latencies.back());
    if (shooting)
        std::printf("floor (1 s + preview / link): %.0f ms; median %.3f x floor, p95 %.3f x floor\n",
                    shooting->floorMs(), double(at(0.5)) / shooting->floorMs(),
                    double(at(0.95)) / shooting->floorMs());
    if (shooting)
        shooting->print();
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
    // A shot's originals, on average: the photo, or the photo and its RAW.
    const double originalBytes = double(photoBytes + rawBytes) / filesPerShot;
    const double originalMegabits = originalBytes * double(manager->fullResUploaded()) * 8.0 / 1e6;
    if (allStoredAt > 0)
        std::printf("originals: %lld of %.1f MB from the first preview registered to the last stored, "
                    "%.1f s: %.2f Mbit/s\n",
                    manager->fullResUploaded(), originalBytes / 1e6, originalSeconds,
                    originalMegabits / originalSeconds);
    // While the originals follow each other, from the first stored to the last: the bytes of
    // the originals stored in that time over its length, and how busy the link was meanwhile
    // (everything it carried, previews, headers and acknowledgements included).
    if (manager->fullResUploaded() >= 2) {
        const double seconds = double(allStoredAt - firstStoredAt) / 1000.0;
        const double megabits = originalBytes * double(manager->fullResUploaded() - 1) * 8.0 / 1e6;
        std::printf("originals, first stored to last stored: %lld in %.1f s: %.2f Mbit/s",
                    manager->fullResUploaded() - 1, seconds, megabits / seconds);
        if (linkMbit && linkBytesAtFirst && linkBytesAtLast)
            std::printf(" = %.1f %% of the link; link busy %.1f %% of that time",
                        100.0 * megabits / seconds / *linkMbit,
                        100.0 * double(*linkBytesAtLast - *linkBytesAtFirst) * 8.0 / 1e6 / seconds / *linkMbit);
        std::printf("\n");
    }
    // A clean run authorises each photo twice (preview and original); more means a request met
    // a lost connection and an original was tried again.
    std::printf("authorisations: %lld for %d photos (a clean run needs %d)\n",
                static_cast<long long>(session.service.requests(QStringLiteral("presign")).size()), count,
                (filesPerShot + 1) * count);
    std::printf("last upload error: %s\n", lastError ? qPrintable(*lastError) : "none");
    std::printf("previews made before their photo was handed over: %lld\n",
                manager->previews().reusedCount());
    std::printf("peak memory of the process: %ld MB\n", peakMegabytes());
    std::printf("main thread: longest time away from its event loop %lld ms; %d times over %lld ms\n",
                mainThread.longestGapMs(), mainThread.blockedTimes(), MainThreadWatch::blockedMs);
    return latencies.size() == size_t(count) &&
                   (options.previewsOnly || manager->fullResUploaded() == filesPerShot * count)
               ? 0
               : 1;
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
    const QCommandLineOption qualityOption(QStringLiteral("quality"), QStringLiteral("JPEG quality of the photo"), QStringLiteral("1-100"), QStringLiteral("95"));
    const QCommandLineOption detailOption(QStringLiteral("detail"), QStringLiteral("Texture added at a preview's scale, 0-64"), QStringLiteral("n"), QStringLiteral("0"));
    const QCommandLineOption countOption(QStringLiteral("count"), QStringLiteral("Photos"), QStringLiteral("n"), QStringLiteral("100"));
    const QCommandLineOption rateOption(QStringLiteral("rate"), QStringLiteral("Photos per second"), QStringLiteral("n"), QStringLiteral("10"));
    const QCommandLineOption intervalOption(QStringLiteral("interval"), QStringLiteral("Seconds between photos, at random between two bounds"), QStringLiteral("min-max"));
    const QCommandLineOption linkOption(QStringLiteral("link-mbit"), QStringLiteral("The shaped loopback's rate, for the link's figures"), QStringLiteral("Mbit/s"));
    const QCommandLineOption portOption(QStringLiteral("service-port"), QStringLiteral("devservice's port, for a link shaped one way"), QStringLiteral("port"), QStringLiteral("0"));
    const QCommandLineOption uplinkOption(QStringLiteral("uplink-device"), QStringLiteral("The interface whose sent bytes are the uplink's"), QStringLiteral("name"), QStringLiteral("lo"));
    const QCommandLineOption previewsOnlyOption(QStringLiteral("previews-only"), QStringLiteral("Done once every preview is registered"));
    const QCommandLineOption calibrateOption(QStringLiteral("calibrate"), QStringLiteral("Seconds to measure the link's capacity for first, through the service's port"), QStringLiteral("s"), QStringLiteral("0"));
    const QCommandLineOption eachOption(QStringLiteral("each"), QStringLiteral("Print every photo's latency"));
    const QCommandLineOption secondsOption(QStringLiteral("seconds"), QStringLiteral("Idle seconds"), QStringLiteral("s"), QStringLiteral("30"));
    const QCommandLineOption rawBesideOption(QStringLiteral("raw-beside"), QStringLiteral("A RAW written after each photo, of the same name"), QStringLiteral("file"));
    const QCommandLineOption makeRawOption(QStringLiteral("make-raw"), QStringLiteral("Write a DNG of --photo, embedding it"), QStringLiteral("file"));
    const QCommandLineOption makeTiffOption(QStringLiteral("make-tiff"), QStringLiteral("Write a 16-bit TIFF"), QStringLiteral("file"));
    const QCommandLineOption deflateOption(QStringLiteral("deflate"), QStringLiteral("Deflate the TIFF"));
    const QCommandLineOption filesOption(QStringLiteral("files"), QStringLiteral("Latency run with these photos in turn, comma-separated"), QStringLiteral("files"));
    parser.addOptions({makePhotoOption, photoOption, idleOption, widthOption, heightOption, qualityOption, detailOption, countOption, rateOption, intervalOption, linkOption, portOption, uplinkOption, previewsOnlyOption, calibrateOption, eachOption, secondsOption, rawBesideOption, makeRawOption, makeTiffOption, deflateOption, filesOption});
    parser.process(app);
    const QSize size(parser.value(widthOption).toInt(), parser.value(heightOption).toInt());
    if (parser.isSet(makeRawOption))
        return SessionPhotos::makeDng(parser.value(makeRawOption), parser.value(photoOption),
                                      parser.isSet(widthOption) ? size.width() : 0);
    if (parser.isSet(makeTiffOption))
        return SessionPhotos::makeTiff(parser.value(makeTiffOption), size,
                                       parser.isSet(deflateOption));
    if (parser.isSet(makePhotoOption))
        return SessionPhotos::makeJpeg(parser.value(makePhotoOption), size,
                                       parser.value(qualityOption).toInt(),
                                       parser.value(detailOption).toInt());
    if (parser.isSet(photoOption) || parser.isSet(filesOption)) {
        std::optional<std::pair<double, double>> interval;
        if (parser.isSet(intervalOption)) {
            const QStringList bounds = parser.value(intervalOption).split(QLatin1Char('-'));
            if (bounds.size() != 2)
                parser.showHelp(2);
            interval = std::pair(bounds[0].toDouble(), bounds[1].toDouble());
        }
        LatencyRunOptions options;
        options.count = parser.value(countOption).toInt();
        options.rate = parser.value(rateOption).toInt();
        options.interval = interval;
        if (parser.isSet(linkOption))
            options.linkMbit = parser.value(linkOption).toDouble();
        options.servicePort = parser.value(portOption).toUShort();
        options.uplinkDevice = parser.value(uplinkOption);
        options.previewsOnly = parser.isSet(previewsOnlyOption);
        options.calibrateSeconds = parser.value(calibrateOption).toInt();
        options.eachPhoto = parser.isSet(eachOption);
        options.rawBeside = parser.value(rawBesideOption);
        options.photos = parser.value(filesOption).split(QLatin1Char(','), Qt::SkipEmptyParts);
        return latencyRun(parser.isSet(photoOption) ? parser.value(photoOption)
                                                    : options.photos.value(0),
                          options);
    }
    if (parser.isSet(idleOption))
        return idleRun(parser.value(idleOption).toInt(), parser.value(secondsOption).toInt());
    parser.showHelp(2);
}
