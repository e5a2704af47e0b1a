// SPDX-License-Identifier: MIT
#pragma once

#include <QCoroTask>
#include <QEventLoop>
#include <QTimer>

#include <chrono>
#include <exception>
#include <optional>

// Runs a coroutine to its end in a nested event loop and keeps what it produced: its value or
// the exception it threw (QCoro::waitFor would hang on a throw). A coroutine that does not end
// within the limit stops the test program, since its frame could not be abandoned safely.
template<typename T>
struct TaskOutcome {
    std::optional<T> value;
    std::exception_ptr error;

    // A copy of the error when it is of type E; nothing otherwise.
    template<typename E>
    std::optional<E> errorAs() const
    {
        if (!error)
            return std::nullopt;
        try {
            std::rethrow_exception(error);
        } catch (const E &e) {
            return e;
        } catch (...) {
            return std::nullopt;
        }
    }
};

namespace taskoutcome_detail {
struct Done {};

template<typename T>
QCoro::Task<> capture(QCoro::Task<T> task, TaskOutcome<T> *outcome, bool *finished,
                      QEventLoop *loop)
{
    try {
        outcome->value.emplace(co_await std::move(task));
    } catch (...) {
        outcome->error = std::current_exception();
    }
    *finished = true;
    loop->quit();
}

inline QCoro::Task<> captureVoid(QCoro::Task<> task, TaskOutcome<Done> *outcome, bool *finished,
                                 QEventLoop *loop)
{
    try {
        co_await std::move(task);
        outcome->value.emplace();
    } catch (...) {
        outcome->error = std::current_exception();
    }
    *finished = true;
    loop->quit();
}

template<typename Capture>
void runLoop(Capture start, std::chrono::milliseconds limit)
{
    QEventLoop loop;
    bool finished = false;
    start(&finished, &loop);
    if (finished)
        return;
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, &loop, [] {
        qFatal("awaitOutcome: the coroutine did not finish in time");
    });
    timer.start(limit);
    loop.exec();
}
} // namespace taskoutcome_detail

template<typename T>
TaskOutcome<T> awaitOutcome(QCoro::Task<T> task,
                            std::chrono::milliseconds limit = std::chrono::minutes(3))
{
    TaskOutcome<T> outcome;
    taskoutcome_detail::runLoop(
        [&](bool *finished, QEventLoop *loop) {
            taskoutcome_detail::capture(std::move(task), &outcome, finished, loop);
        },
        limit);
    return outcome;
}

inline TaskOutcome<taskoutcome_detail::Done>
awaitOutcome(QCoro::Task<> task, std::chrono::milliseconds limit = std::chrono::minutes(3))
{
    TaskOutcome<taskoutcome_detail::Done> outcome;
    taskoutcome_detail::runLoop(
        [&](bool *finished, QEventLoop *loop) {
            taskoutcome_detail::captureVoid(std::move(task), &outcome, finished, loop);
        },
        limit);
    return outcome;
}
