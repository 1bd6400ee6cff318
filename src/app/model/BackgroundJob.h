#pragma once

#include <QMetaObject>
#include <QObject>
#include <QThreadPool>

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "model/CancellationFlag.h"
#include "model/Errors.h"

namespace tarnbridge::app {

// How a background job ended, as it reaches the GUI thread. Exactly one of the three holds.
template <class T>
struct JobOutcome {
    std::optional<T> value;
    std::optional<std::string> error; // the sentence to show
    bool cancelled = false;
};

// Long work off the GUI thread: the work runs on a pool with its own CancellationFlag, and its
// outcome comes back as a queued call on the receiver's thread. No exception crosses threads.
// Callers test their generation token first thing in `deliver`: the flag stops work early, the
// token drops what is already on its way. The receiver must outlive the work: AppModel cancels
// and waits for its pools before its parts go.
namespace BackgroundJob {

// Calls `call` on `receiver`'s thread, later; dropped if the receiver is deleted first.
void post(QObject* receiver, std::function<void()> call);

template <class T>
void run(QThreadPool& pool, QObject* receiver, std::shared_ptr<CancellationFlag> flag,
         std::function<T(const CancellationFlag&)> work, std::function<void(JobOutcome<T>)> deliver)
{
    pool.start([flag = std::move(flag), work = std::move(work), deliver = std::move(deliver), receiver]() mutable {
        JobOutcome<T> outcome;
        try {
            outcome.value.emplace(work(*flag));
        } catch (const CancellationError&) {
            outcome.cancelled = true;
        } catch (const std::exception& error) {
            outcome.error = describeError(error);
        } catch (...) {
            outcome.error = "An unexpected error stopped this task.";
        }
        post(receiver, [deliver = std::move(deliver), outcome = std::move(outcome)]() mutable {
            deliver(std::move(outcome));
        });
    });
}

} // namespace BackgroundJob

} // namespace tarnbridge::app
