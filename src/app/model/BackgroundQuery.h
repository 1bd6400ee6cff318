#pragma once

#include <QTimer>

#include <functional>
#include <memory>
#include <optional>

#include "app/model/BackgroundJob.h"

namespace tarnbridge::app {

// One view's query over a scan, keyed by what it depends on. Each new key restarts a 70 ms
// timer, so that typing or moving through a list starts no work; only the last key's work
// runs. Its value is taken only while that key is still the current one, and a query
// cancelled while computing never delivers. Until `readyKey` equals the key, views show the
// previous value dimmed, never as current.
template <class Key, class Value>
class BackgroundQuery {
public:
    using Work = std::function<Value(const CancellationFlag&)>;
    static constexpr int kDebounceMs = 70;

    // `owner` lives on the GUI thread and outlives the work; `pool` runs it; `ready` is called
    // on the GUI thread when a new value is taken.
    BackgroundQuery(QObject* owner, QThreadPool& pool, std::function<void()> ready)
        : owner_(owner), pool_(pool), ready_(std::move(ready)), timer_(new QTimer(owner))
    {
        timer_->setSingleShot(true);
        timer_->setInterval(kDebounceMs);
        QObject::connect(timer_, &QTimer::timeout, owner, [this] { start(); });
    }
    BackgroundQuery(const BackgroundQuery&) = delete;
    BackgroundQuery& operator=(const BackgroundQuery&) = delete;
    ~BackgroundQuery() { cancel(); }

    // Asks for the value of `key`. The same key as the current one changes nothing.
    void request(const Key& key, Work work)
    {
        if (key_ && *key_ == key)
            return;
        cancel();
        key_ = key;
        work_ = std::move(work);
        timer_->start();
    }

    // Stops the pending or running work; its value will not be taken.
    void cancel()
    {
        timer_->stop();
        if (running_)
            running_->cancel();
        running_.reset();
    }

    // Forgets key and value, as when the scan they came from goes.
    void reset()
    {
        cancel();
        key_.reset();
        readyKey_.reset();
        value_.reset();
    }

    const std::optional<Key>& key() const { return key_; }
    const std::optional<Key>& readyKey() const { return readyKey_; }
    const std::optional<Value>& value() const { return value_; }
    // A value for another key is shown, or none yet.
    bool isPending() const { return key_ && readyKey_ != key_; }
    // How many times work was started: debouncing keeps this at one for a burst of keys.
    int startedCount() const { return started_; }

private:
    void start()
    {
        if (!key_ || !work_)
            return;
        auto flag = std::make_shared<CancellationFlag>();
        running_ = flag;
        ++started_;
        const Key key = *key_;
        BackgroundJob::run<Value>(pool_, owner_, flag, work_, [this, flag, key](JobOutcome<Value> outcome) {
            // A failure, a cancellation or a newer key leaves the previous value in place.
            if (flag->isCancelled() || running_ != flag || !key_ || !(*key_ == key) || !outcome.value)
                return;
            running_.reset();
            value_ = std::move(outcome.value);
            readyKey_ = key;
            if (ready_)
                ready_();
        });
    }

    QObject* owner_;
    QThreadPool& pool_;
    std::function<void()> ready_;
    QTimer* timer_;
    Work work_;
    std::optional<Key> key_;
    std::optional<Key> readyKey_;
    std::optional<Value> value_;
    std::shared_ptr<CancellationFlag> running_;
    int started_ = 0;
};

} // namespace tarnbridge::app
