#include "app/model/ActivityMonitor.h"

#include <algorithm>
#include <utility>

#include "app/model/AppModel.h"
#include "app/model/BackgroundJob.h"

namespace tarnbridge::app {

ActivityMonitor::ActivityMonitor(AppModel& app) : QObject(&app), app_(app), pause_(this)
{
    pause_.setSingleShot(true);
    // A coarse timer may fire up to 5% early; the pause is a lower bound.
    pause_.setTimerType(Qt::PreciseTimer);
    connect(&pause_, &QTimer::timeout, this, &ActivityMonitor::readNext);
}

void ActivityMonitor::start()
{
    if (running_)
        return;
    running_ = true;
    // A fresh source for each run: a reading of a stopped run may still be on its way, and
    // a sampler serves one reading at a time.
    reader_ = app_.services().makeSampler();
    loopGeneration_ = QUuid::createUuid();
    cancellation_ = std::make_shared<CancellationFlag>();
    readNext();
}

void ActivityMonitor::stopWork()
{
    running_ = false;
    pause_.stop();
    cancellation_->cancel();
    loopGeneration_ = QUuid::createUuid();
    timeMachineGeneration_ = QUuid::createUuid();
}

void ActivityMonitor::readNext()
{
    if (!running_)
        return;
    const QUuid token = loopGeneration_;
    BackgroundJob::run<MonitorSample>(
        app_.monitorPool(), this, cancellation_,
        [reader = reader_](const CancellationFlag& flag) {
            flag.check();
            return reader();
        },
        [this, token](JobOutcome<MonitorSample> outcome) {
            if (token != loopGeneration_ || !running_)
                return;
            if (outcome.value)
                take(std::move(*outcome.value));
            // A reading that failed as a whole is skipped; the loop goes on.
            pause_.start(period_);
        });
}

void ActivityMonitor::take(MonitorSample sample)
{
    history_.push_back(sample);
    if (history_.size() > kHistoryLimit)
        history_.erase(history_.begin(), history_.end() - std::ptrdiff_t(kHistoryLimit));
    sample_ = std::move(sample);
    Q_EMIT changed();
}

void ActivityMonitor::refreshTimeMachine()
{
    timeMachineStatus_ = QStringLiteral("Reading local snapshots…");
    Q_EMIT timeMachineChanged();
    // Only the newest request may land: an older listing can finish after a newer one.
    const QUuid token = QUuid::createUuid();
    timeMachineGeneration_ = token;
    BackgroundJob::run<std::vector<std::string>>(
        app_.workPool(), this, std::make_shared<CancellationFlag>(),
        [list = app_.services().systemSnapshots](const CancellationFlag&) { return list("/"); },
        [this, token](JobOutcome<std::vector<std::string>> outcome) {
            if (token != timeMachineGeneration_ || outcome.cancelled)
                return;
            if (outcome.value) {
                timeMachine_ = std::move(*outcome.value);
                timeMachineStatus_ = timeMachine_.empty()
                                         ? QStringLiteral("No local system snapshots found.")
                                         : QStringLiteral("The system manages these separately from your files.");
            } else {
                timeMachine_.clear();
                timeMachineStatus_ = QString::fromStdString(outcome.error.value_or(std::string()));
            }
            Q_EMIT timeMachineChanged();
        });
}

std::vector<ProcessInfoRow> ActivityMonitor::processRows(const MonitorSample& sample, ProcessOrder order)
{
    const std::vector<ProcessInfoRow>& all = sample.processes;
    const std::size_t shown = std::min(all.size(), kProcessRows);
    if (order == ProcessOrder::byCPU)
        return {all.begin(), all.begin() + std::ptrdiff_t(shown)};
    // Sort positions, not rows, so that only the shown rows are copied.
    std::vector<std::size_t> positions(all.size());
    for (std::size_t i = 0; i < positions.size(); ++i)
        positions[i] = i;
    std::stable_sort(positions.begin(), positions.end(),
                     [&](std::size_t a, std::size_t b) { return all[a].memory > all[b].memory; });
    std::vector<ProcessInfoRow> rows;
    rows.reserve(shown);
    for (std::size_t i = 0; i < shown; ++i)
        rows.push_back(all[positions[i]]);
    return rows;
}

} // namespace tarnbridge::app
