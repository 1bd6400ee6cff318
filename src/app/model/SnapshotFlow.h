#pragma once

#include <QObject>

namespace tarnbridge::app {

class AppModel;

// Saved scans: the catalog, saving, comparing and opening them.
class SnapshotFlow : public QObject {
    Q_OBJECT
public:
    explicit SnapshotFlow(AppModel& app);

    bool busy() const { return busy_; }
    // Other work takes over: late snapshot results are dropped and the busy state ends.
    void supersede();
    // A new scan is shown: the last comparison no longer applies.
    void clearComparison();
    // Reads the catalog of the store; throws when it cannot be read.
    void readSnapshotCatalog();
    // The catalog again, its failure shown as an error (after a cleanup saved a snapshot).
    void refreshSnapshots();
    void stopWork();

Q_SIGNALS:
    void changed();

private:
    AppModel& app_;
    bool busy_ = false;
};

} // namespace tarnbridge::app
