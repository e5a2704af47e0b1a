// SPDX-License-Identifier: MIT
#include "benchsession.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

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

