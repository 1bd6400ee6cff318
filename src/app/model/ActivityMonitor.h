#pragma once

#include <QObject>
#include <QString>
#include <QTimer>
#include <QUuid>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "model/CancellationFlag.h"
#include "monitor/SystemSampler.h"

namespace tarnbridge::app {

class AppModel;

enum class ProcessOrder { byCPU, byMemory };

// The machine, read every 2 seconds (plus the time of a reading) while the app runs. The wait
// starts only once a reading has arrived, so a slow reading stretches the period and two
// readings never overlap: the sampler belongs to one reading at a time.
class ActivityMonitor : public QObject {
    Q_OBJECT
public:
    explicit ActivityMonitor(AppModel& app);

    // The latest reading (all zero before the first) and the recent ones, oldest first.
    const MonitorSample& sample() const { return sample_; }
    const std::vector<MonitorSample>& history() const { return history_; }
    bool running() const { return running_; }
    // Starts the loop; while it runs, a second call changes nothing.
    void start();
    void stopWork();

    // The pause between a reading's arrival and the next reading.
    std::chrono::milliseconds period() const { return period_; }
    void setPeriod(std::chrono::milliseconds period) { period_ = period; }

    // The local system snapshots of "/", read again in the background.
    const std::vector<std::string>& timeMachine() const { return timeMachine_; }
    const QString& timeMachineStatus() const { return timeMachineStatus_; }
    void refreshTimeMachine();

    // The rows of the process list: in the sample's order (busiest first), or largest memory
    // first with ties in that order; at most kProcessRows.
    static std::vector<ProcessInfoRow> processRows(const MonitorSample& sample, ProcessOrder order);

    static constexpr std::size_t kHistoryLimit = 60;
    static constexpr std::size_t kProcessRows = 40;
    static constexpr std::chrono::milliseconds kDefaultPeriod{2000};

Q_SIGNALS:
    void changed(); // sample and history
    void timeMachineChanged();

private:
    void readNext();
    void take(MonitorSample sample);

    AppModel& app_;
    MonitorSample sample_;
    std::vector<MonitorSample> history_;
    bool running_ = false;
    std::chrono::milliseconds period_ = kDefaultPeriod;
    QTimer pause_;
    std::function<MonitorSample()> reader_;
    QUuid loopGeneration_ = QUuid::createUuid();
    std::shared_ptr<CancellationFlag> cancellation_ = std::make_shared<CancellationFlag>();

    std::vector<std::string> timeMachine_;
    QString timeMachineStatus_;
    QUuid timeMachineGeneration_ = QUuid::createUuid();
};

} // namespace tarnbridge::app
