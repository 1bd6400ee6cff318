#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace tarnbridge::test {

// Holds a worker thread at a chosen point until the test lets it go, so that a race between
// the worker and the GUI thread happens in the order the test needs, every time.
class Gate {
public:
    void hold()
    {
        std::unique_lock lock(mutex_);
        reached_ = true;
        changed_.notify_all();
        changed_.wait(lock, [this] { return open_; });
    }
    bool reached() const
    {
        std::lock_guard lock(mutex_);
        return reached_;
    }
    void open()
    {
        std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool reached_ = false;
    bool open_ = false;
};

// What a held worker shares with its test: the gate, whether its own flag was cancelled when
// it went on, and whether it ended. Shared, so that a test that fails early leaves nothing
// dangling; the gate opens when the holder goes.
struct HeldWork {
    struct State {
        Gate gate;
        std::atomic<bool> sawCancel{false};
        std::atomic<bool> done{false};
    };
    std::shared_ptr<State> state = std::make_shared<State>();

    HeldWork() = default;
    HeldWork(const HeldWork&) = delete;
    HeldWork& operator=(const HeldWork&) = delete;
    ~HeldWork() { state->gate.open(); }
};

} // namespace tarnbridge::test
