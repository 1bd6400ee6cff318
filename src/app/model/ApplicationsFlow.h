#pragma once

#include <QObject>

namespace tarnbridge::app {

class AppModel;

// The installed applications, their leftovers, and their uninstall through the cleanup review.
class ApplicationsFlow : public QObject {
    Q_OBJECT
public:
    explicit ApplicationsFlow(AppModel& app);
    void stopWork();

Q_SIGNALS:
    void changed();

private:
    AppModel& app_;
};

} // namespace tarnbridge::app
