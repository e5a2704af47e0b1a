// SPDX-License-Identifier: MIT
#pragma once

#include "attemptfailure.h"

#include <QCoroTask>

#include <optional>

// What a service call came to: its value, or why it failed, sorted by what waiting can do. For
// the coroutines that cannot wait on a call inside a handler (a generator yields its failure).
template<typename T>
struct Attempted {
    std::optional<T> value;
    AttemptFailure failure;

    explicit operator bool() const { return value.has_value(); }
};

struct Done {};

template<typename T>
QCoro::Task<Attempted<T>> attempted(QCoro::Task<T> call)
{
    try {
        T value = co_await std::move(call);
        co_return Attempted<T>{std::move(value), {}};
    } catch (const std::exception &error) {
        co_return Attempted<T>{std::nullopt, AttemptFailure::of(error)};
    }
}

inline QCoro::Task<Attempted<Done>> attempted(QCoro::Task<> call)
{
    try {
        co_await std::move(call);
        co_return Attempted<Done>{Done{}, {}};
    } catch (const std::exception &error) {
        co_return Attempted<Done>{std::nullopt, AttemptFailure::of(error)};
    }
}
