// SPDX-License-Identifier: MIT
// preview_benchmark [Google Benchmark options] <folder>
// In-process times of ImageResizer::createPreview for every photo in the folder, and of the
// libjpeg-turbo floor for every JPEG.
#include "imageresizer.h"
#include "previewfloor.h"

#include <QCoreApplication>
#include <QDir>
#include <QUrl>
#include <benchmark/benchmark.h>
#include <cstdio>

namespace {

using Maker = std::optional<QByteArray> (*)(const QString &path);

std::optional<QByteArray> ourPreview(const QString &path) {
    return ImageResizer::createPreview(QUrl::fromLocalFile(path));
}

void measure(benchmark::State &state, Maker make, const QString &path) {
    for (auto _ : state) {
        const std::optional<QByteArray> bytes = make(path);
        if (!bytes) {
            state.SkipWithError("no preview");
            break;
        }
        benchmark::DoNotOptimize(bytes->constData());
    }
}

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    QCoreApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: preview_benchmark [benchmark options] <folder>\n");
        return 2;
    }
    const QDir folder(QString::fromLocal8Bit(argv[1]));
    for (const QFileInfo &photo : folder.entryInfoList(QDir::Files, QDir::Name)) {
        const QString path = photo.absoluteFilePath();
        const std::string name = photo.fileName().toStdString();
        benchmark::RegisterBenchmark(("preview/" + name).c_str(), measure, &ourPreview, path)
            ->Unit(benchmark::kMillisecond);
        if (photo.suffix() == "jpg")
            benchmark::RegisterBenchmark(("floor/" + name).c_str(), measure, &PreviewFloor::run,
                                         path)
                ->Unit(benchmark::kMillisecond);
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
