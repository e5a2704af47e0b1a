// SPDX-License-Identifier: MIT
// End-to-end figures of a live session against devservice on loopback: how long after a
// camera's last write each preview is registered, how long until every original is stored,
// the peak memory of the process, and the CPU the watcher costs while nothing happens.
//
//   session_bench --make-photo FILE [--width W --height H]   writes a camera-like JPEG
//   session_bench --photo FILE [--count 100] [--rate 10]     the latency run
//   session_bench --idle-files 10000 [--seconds 30]          the idle run
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

// Runs the event loop, sleeping between looks, until the condition holds or the limit passes.
// The looks are 20 ms apart so the waiting itself costs next to nothing in the idle figure.
bool waitUntil(const std::function<bool()> &condition, int limitMs)
{
    if (condition())
        return true;
    QEventLoop loop;
    QElapsedTimer clock;
    clock.start();
    QTimer look;
    QObject::connect(&look, &QTimer::timeout, &loop, [&] {
        if (condition() || clock.elapsed() > limitMs)
            loop.quit();
    });
    look.start(20);
    loop.exec();
    return condition();
}

struct Session {
    DevService service;
    ScopedPreferences preferences;
    QTemporaryDir folder;
    std::unique_ptr<SessionViewModel> model;

    bool open()
    {
        if (!service.start()) {
            std::fprintf(stderr, "devservice: %s\n", qPrintable(service.errorString()));
            return false;
        }
        qputenv("QUILLMERE_SERVICE_URL", service.baseURL().toUtf8());
        qputenv("QUILLMERE_STORAGE_HOST", service.storageHost().toUtf8());
        model = std::make_unique<SessionViewModel>();
        return true;
    }

    bool start()
    {
        model->setEmail(DevService::demoEmail());
        model->setPassword(DevService::demoPassword());
        model->login();
        if (!waitUntil([&] { return model->hasStoredToken() && !model->isAuthenticating(); }, 10000))
            return false;
        model->setClientName(QStringLiteral("Benchmark"));
        const QUrl url = QUrl::fromLocalFile(folder.path());
        model->setFolderChooser([url](const QString &) { return std::optional(url); });
        model->pickFolder();
        model->startSession();
        return waitUntil([&] { return model->state() == AppState::recording; }, 10000);
    }
};

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

int latencyRun(const QString &photoPath, int count, int rate)
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

    // The camera: one photo every 1/rate seconds, each written in four pieces.
    std::vector<std::atomic<qint64>> lastWrite(static_cast<size_t>(count));
    const QString folder = session.folder.path();
    const qint64 startedAt = QDateTime::currentMSecsSinceEpoch();
    std::thread camera([&] {
        for (int i = 0; i < count; ++i) {
            const auto due = std::chrono::milliseconds(startedAt + i * 1000 / rate);
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
    });

    UploadManager *manager = session.model->uploadManager();
    const bool done = waitUntil([&] { return manager->fullResUploaded() >= count; }, 600000);
    const qint64 allStoredAt = QDateTime::currentMSecsSinceEpoch();
    camera.join();
    if (!done) {
        std::fprintf(stderr, "only %lld of %d originals stored\n", manager->fullResUploaded(), count);
        return 1;
    }

    std::vector<qint64> latencies;
    for (const DevService::RegisteredFile &file : session.service.registeredFiles(*session.model->session().folderId)) {
        const int index = file.key.section(QLatin1Char('_'), -1).section(QLatin1Char('.'), 0, 0).toInt();
        const qint64 registeredAt = QDateTime::fromString(file.registeredAt, Qt::ISODateWithMs).toMSecsSinceEpoch();
        latencies.push_back(registeredAt - lastWrite[size_t(index)]);
    }
    std::sort(latencies.begin(), latencies.end());
    const auto at = [&](double q) { return latencies[std::min(latencies.size() - 1, size_t(q * double(latencies.size())))]; };
    std::printf("photos: %d of %.1f MB at %d per second\n", count, double(photo.size()) / 1e6, rate);
    std::printf("previews registered: %zu\n", latencies.size());
    std::printf("last write -> preview registered: median %lld ms, p95 %lld ms, max %lld ms\n",
                at(0.5), at(0.95), latencies.back());
    std::printf("first write -> every original stored: %.1f s\n", double(allStoredAt - startedAt) / 1000.0);
    std::printf("previews made before their photo was handed over: %lld\n",
                manager->previews().reusedCount());
    std::printf("peak memory of the process: %ld MB\n", peakMegabytes());
    return latencies.size() == size_t(count) ? 0 : 1;
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
    const QCommandLineOption secondsOption(QStringLiteral("seconds"), QStringLiteral("Idle seconds"), QStringLiteral("s"), QStringLiteral("30"));
    parser.addOptions({makePhotoOption, photoOption, idleOption, widthOption, heightOption, countOption, rateOption, secondsOption});
    parser.process(app);
    if (parser.isSet(makePhotoOption))
        return makePhoto(parser.value(makePhotoOption), parser.value(widthOption).toInt(), parser.value(heightOption).toInt());
    if (parser.isSet(photoOption))
        return latencyRun(parser.value(photoOption), parser.value(countOption).toInt(), parser.value(rateOption).toInt());
    if (parser.isSet(idleOption))
        return idleRun(parser.value(idleOption).toInt(), parser.value(secondsOption).toInt());
    parser.showHelp(2);
}
