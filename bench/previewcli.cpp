// SPDX-License-Identifier: MIT
// preview_cli [--floor] [--repeat N] <photo> [<preview.jpg>]
// Makes the preview of one photo (or only the libjpeg-turbo floor), N times in this process
// (once by default; N = 0 makes none, for the process's own footprint), and prints one line
// of JSON: the time of each run, the size of the result, and the peak resident memory of the
// process before and after (so one preview's peak is the second figure of a run with N = 1).
#include "imageresizer.h"
#include "previewfloor.h"

#include <QCoreApplication>
#include <QFile>
#include <QStringList>
#include <QUrl>
#include <chrono>
#include <cstdio>
#include <optional>
#include <sys/resource.h>

namespace {

long peakResidentKilobytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

double cpuMilliseconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto ms = [](const timeval &t) {
        return double(t.tv_sec) * 1e3 + double(t.tv_usec) / 1e3;
    };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

} // namespace

int main(int argc, char **argv) {
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    const bool floor = args.removeAll(QStringLiteral("--floor")) > 0;
    int repeat = 1;
    if (const qsizetype at = args.indexOf(QStringLiteral("--repeat"));
        at >= 0 && at + 1 < args.size()) {
        repeat = std::max(0, args.at(at + 1).toInt());
        args.remove(at, 2);
    }
    if (args.isEmpty()) {
        std::fprintf(stderr, "usage: preview_cli [--floor] [--repeat N] <photo> [<preview.jpg>]\n");
        return 2;
    }
    const QString input = args.at(0);
    const long baseline = peakResidentKilobytes();
    QString wall;
    QString cpu;
    std::optional<QByteArray> preview;
    for (int i = 0; i < repeat; ++i) {
        const double cpuBefore = cpuMilliseconds();
        const auto start = std::chrono::steady_clock::now();
        preview = floor ? PreviewFloor::run(input)
                        : ImageResizer::createPreview(QUrl::fromLocalFile(input));
        const std::chrono::duration<double, std::milli> elapsed =
            std::chrono::steady_clock::now() - start;
        wall += (i ? "," : "") + QString::number(elapsed.count(), 'f', 2);
        cpu += (i ? "," : "") + QString::number(cpuMilliseconds() - cpuBefore, 'f', 2);
    }
    if (preview && args.size() > 1) {
        QFile out(args.at(1));
        if (!out.open(QIODevice::WriteOnly) || out.write(*preview) != preview->size())
            return 1;
    }
    std::printf("{\"ok\": %s, \"bytes\": %lld, \"wall_ms\": [%s], \"cpu_ms\": [%s], "
                "\"baseline_rss_kb\": %ld, \"peak_rss_kb\": %ld}\n",
                preview ? "true" : "false", preview ? static_cast<long long>(preview->size()) : 0LL,
                qPrintable(wall), qPrintable(cpu), baseline, peakResidentKilobytes());
    return preview || repeat == 0 ? 0 : 1;
}
