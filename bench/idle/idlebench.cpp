// SPDX-License-Identifier: MIT
// What the whole program costs while nobody looks at it: the real application (tray icon,
// hidden panel, controller, watcher) in each state, measured from /proc over a quiet stretch:
// CPU as a share of one core, and wake-ups (context switches of all its threads) a second.
// The program runs in this process against devservice on loopback; a tray must be there so
// the panel can be hidden (run-idle-bench starts Xvfb and trayer).
//
//   idle_bench [--seconds 20] [--photos 10000]
#include "apiclient.h"
#include "devservicefixture.h"
#include "quillmereliveapp.h"
#include "scopedpreferences.h"
#include "sessionviewmodel.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QCoroTask>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <QTimer>
#include <QWindow>

#include <cstdio>

namespace {

struct Sample {
    double cpuSeconds = 0;
    qint64 switches = 0;
};

// Every thread's run time (schedstat, in nanoseconds) and context switches, summed.
Sample sample() {
    Sample total;
    const QDir tasks(QStringLiteral("/proc/self/task"));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile schedstat(tasks.filePath(task + QStringLiteral("/schedstat")));
        if (schedstat.open(QIODevice::ReadOnly))
            total.cpuSeconds += schedstat.readAll().split(' ').value(0).toDouble() / 1e9;
        QFile status(tasks.filePath(task + QStringLiteral("/status")));
        if (!status.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray &line : status.readAll().split('\n'))
            if (line.startsWith("voluntary_ctxt_switches") ||
                line.startsWith("nonvoluntary_ctxt_switches"))
                total.switches += line.split(':').value(1).trimmed().toLongLong();
    }
    return total;
}

void runFor(int milliseconds) {
    QEventLoop loop;
    QTimer::singleShot(milliseconds, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

bool panelShown() {
    for (const QWindow *window : QGuiApplication::topLevelWindows())
        if (window->isVisible() && window->title().contains(QLatin1String("Quillmere")))
            return true;
    return false;
}

void measure(const char *state, int seconds) {
    runFor(3000); // whatever the change set going settles first
    const Sample before = sample();
    QElapsedTimer clock;
    clock.start();
    runFor(seconds * 1000);
    const Sample after = sample();
    const double elapsed = double(clock.nsecsElapsed()) / 1e9;
    std::printf("%-34s %6.3f %% of a core   %6.2f wake-ups/s%s\n", state,
                100.0 * (after.cpuSeconds - before.cpuSeconds) / elapsed,
                double(after.switches - before.switches) / elapsed,
                panelShown() ? "   (panel shown!)" : "");
    std::fflush(stdout);
}

bool fill(const QString &folder, int photos) {
    for (int i = 0; i < photos; ++i) {
        QFile file(QDir(folder).filePath(QStringLiteral("IMG_%1.JPG").arg(i, 5, 10, QLatin1Char('0'))));
        if (!file.open(QIODevice::WriteOnly) || file.write("\xFF\xD8\xFF\xD9", 4) != 4)
            return false;
    }
    return true;
}

} // namespace

int main(int argc, char *argv[]) {
    QApplication application(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption secondsOption(QStringLiteral("seconds"),
                                           QStringLiteral("Length of each measurement"),
                                           QStringLiteral("s"), QStringLiteral("20"));
    const QCommandLineOption photosOption(QStringLiteral("photos"),
                                          QStringLiteral("Photos in the crowded folder"),
                                          QStringLiteral("n"), QStringLiteral("10000"));
    parser.addOptions({secondsOption, photosOption});
    parser.process(application);
    const int seconds = parser.value(secondsOption).toInt();

    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        std::fprintf(stderr, "idle_bench: no tray, so the panel would be a window: run it with "
                             "run-idle-bench, or beside a tray\n");
        return 1;
    }
    ScopedPreferences preferences;
    DevService service;
    QTemporaryDir empty, crowded;
    if (!service.start() || !empty.isValid() || !crowded.isValid() ||
        !fill(crowded.path(), parser.value(photosOption).toInt())) {
        std::fprintf(stderr, "idle_bench: %s\n", qPrintable(service.errorString()));
        return 1;
    }
    APIClient::redirectShared(service.baseURL(), service.storageHost());

    QuillmereLiveApp live;
    if (!live.start())
        return 1;
    SessionViewModel &model = live.viewModel();
    QString folder = empty.path();
    model.setFolderChooser([&folder](const QString &) { return std::optional(QUrl::fromLocalFile(folder)); });

    std::printf("idle program, panel hidden, %d s a state\n", seconds);
    measure("signed out", seconds);
    model.setEmail(DevService::demoEmail());
    model.setPassword(DevService::demoPassword());
    QCoro::waitFor(model.loginTask());
    measure("setup", seconds);

    const auto record = [&](const QString &watched, const QByteArray &label) {
        folder = watched;
        model.setClientName(QStringLiteral("Ana"));
        model.pickFolder();
        QCoro::waitFor(model.startSessionTask());
        if (model.state() != AppState::recording)
            return false;
        measure(("recording" + label).constData(), seconds);
        model.setIsPaused(true);
        measure(("paused" + label).constData(), seconds);
        model.setIsPaused(false);
        QCoro::waitFor(model.stopSessionTask());
        measure(("finished" + label).constData(), seconds);
        model.newSession();
        return true;
    };
    if (!record(empty.path(), QByteArray()) ||
        !record(crowded.path(), ", " + parser.value(photosOption).toUtf8() + " photos in folder"))
        return 1;
    return 0;
}
