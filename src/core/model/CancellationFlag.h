#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "model/Errors.h"

namespace tarnbridge {

// Set once, from any thread; never cleared. One flag serves one piece of work.
// An atomic is enough: the flag guards no other data.
class CancellationFlag {
public:
    void cancel() noexcept { stopped_.store(true, std::memory_order_relaxed); }
    bool isCancelled() const noexcept { return stopped_.load(std::memory_order_relaxed); }
    void check() const
    {
        if (isCancelled())
            throw CancellationError();
    }

private:
    std::atomic<bool> stopped_{false};
};

// The folder the user is looking at while a scan runs, handed from the GUI thread to the
// scanning thread.
class ScanNavigation {
public:
    void focus(std::string path)
    {
        std::lock_guard lock(mutex_);
        path_ = std::move(path);
    }
    std::optional<std::string> requestedPath() const
    {
        std::lock_guard lock(mutex_);
        return path_;
    }

private:
    mutable std::mutex mutex_;
    std::optional<std::string> path_;
};

} // namespace tarnbridge
