#pragma once

#include <QObject>

#include <string>
#include <vector>

namespace tarnbridge::app {

class AppModel;

// The cleanup queue, its review and its run, with restore and the state files.
class CleanupFlow : public QObject {
    Q_OBJECT
public:
    explicit CleanupFlow(AppModel& app);

    bool cleaning() const { return cleaning_; }
    bool staging() const { return staging_; }
    // Stops a running staging (a new scan starts).
    void cancelStaging();
    // Reads the three state files; one message per file that could not be read.
    std::vector<std::string> loadState();
    void stopWork();

Q_SIGNALS:
    void changed();

private:
    AppModel& app_;
    bool cleaning_ = false;
    bool staging_ = false;
};

} // namespace tarnbridge::app
