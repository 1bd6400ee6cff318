#pragma once

#include <QObject>

#include "monitor/SystemSampler.h"

namespace tarnbridge::app {

class AppModel;

// The machine, read every 2 seconds (plus the time of a reading) while the app runs.
class ActivityMonitor : public QObject {
    Q_OBJECT
public:
    explicit ActivityMonitor(AppModel& app);

    const MonitorSample& sample() const { return sample_; }
    void start();
    void stopWork();

Q_SIGNALS:
    void changed();

private:
    AppModel& app_;
    MonitorSample sample_;
};

} // namespace tarnbridge::app
