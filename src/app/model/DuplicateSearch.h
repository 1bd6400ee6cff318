#pragma once

#include <QObject>

#include <optional>
#include <string>

namespace tarnbridge::app {

class AppModel;

// The search for identical files in the shown scan, and the choice of the copies to keep.
class DuplicateSearch : public QObject {
    Q_OBJECT
public:
    explicit DuplicateSearch(AppModel& app);

    bool afterScan() const { return afterScan_; }
    void setAfterScan(bool on);
    // A new scan starts: the running search stops, its results go, and `thenFind` says whether
    // a search follows the scan.
    void resetForScan(bool thenFind);
    void findDuplicates(const std::optional<std::string>& scope);
    // After a cleanup moved files, the report no longer matches the disk.
    void clearReport();
    void stopWork();

Q_SIGNALS:
    void changed();

private:
    AppModel& app_;
    bool afterScan_ = false;
};

} // namespace tarnbridge::app
