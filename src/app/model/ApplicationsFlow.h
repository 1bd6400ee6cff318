#pragma once

#include <QObject>

namespace tarnbridge::app {

class AppModel;

// The installed applications, their leftovers, and their uninstall through the cleanup review.
class ApplicationsFlow : public QObject {
    Q_OBJECT
public:
    explicit ApplicationsFlow(AppModel& app);
    // After an uninstall moved an app: the report and the selection go, and the inventory is
    // read again.
    void afterUninstall();
    void stopWork();

Q_SIGNALS:
    void changed();

private:
    AppModel& app_;
};

} // namespace tarnbridge::app
