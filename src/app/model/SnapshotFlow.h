#pragma once

#include <QObject>
#include <QString>
#include <QUuid>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/CancellationFlag.h"
#include "snapshots/SnapshotStore.h"

namespace tarnbridge::app {

class AppModel;

// One choice of the change list's minimum: its label and the bytes it stands for.
struct MinimumChangeChoice {
    QString label;
    std::int64_t bytes = 0;
};

// The rows of the change list that the screen draws: the first `limit` that pass its filter,
// and how many pass in all (more than shown offers the next page).
struct ChangePage {
    std::vector<const SnapshotChange*> rows;
    std::size_t passing = 0;
    bool hasMore() const { return passing > rows.size(); }
};

// Saved scans: the catalog, saving, comparing and opening them. One piece of work runs at a
// time; each takes a generation token, and a result whose token is no longer current is
// dropped without a trace.
class SnapshotFlow : public QObject {
    Q_OBJECT
public:
    explicit SnapshotFlow(AppModel& app);

    const std::vector<SnapshotRecord>& snapshots() const { return snapshots_; }
    const std::vector<SnapshotCatalogIssue>& snapshotIssues() const { return issues_; }
    const std::vector<SnapshotChange>& changes() const { return changes_; }
    const std::optional<QString>& comparisonTitle() const { return comparisonTitle_; }
    const std::optional<std::string>& comparisonRoot() const { return comparisonRoot_; }
    const std::optional<SnapshotRecord>& beforeSnapshot() const { return beforeSnapshot_; }
    bool busy() const { return busy_; }
    const QString& status() const { return status_; }

    // Other work takes over: late snapshot results are dropped and the busy state ends.
    void supersede();
    // A new scan is shown: the last comparison no longer applies.
    void clearComparison();
    // Reads the catalog of the store; throws when it cannot be read.
    void readSnapshotCatalog();
    // The catalog again, its failure shown as an error (after a cleanup saved a snapshot).
    void refreshSnapshots();
    void stopWork();

    void saveSnapshot();
    void compareSnapshot(const SnapshotRecord& record);
    void compareSavedSnapshots(const SnapshotRecord& record);
    void openSnapshot(const SnapshotRecord& record);
    // Opens a scan file (ours, or an ncdu or gdu export, gzip or not) as a saved scan: it can
    // be explored and compared, not staged. Without `path`, asks the file dialog for one.
    void openScanFile(std::optional<std::string> path = std::nullopt);
    void deleteSnapshot(const SnapshotRecord& record);

    // The row actions "Use as Before" and "Compare with Before".
    void useAsBefore(const SnapshotRecord& record);
    void compareWithBefore(const SnapshotRecord& record);

    // The change list as the screen filters and pages it (`limit` rows at most).
    ChangePage visibleChanges(std::int64_t minimumChange, ChangeLevel level, std::size_t limit) const;
    static const std::vector<MinimumChangeChoice>& minimumChangeChoices();
    // "1 saved scan is unavailable", "2 saved scans are unavailable".
    static QString unavailableHeading(std::size_t count);

    static constexpr std::size_t kChangePageSize = 300;

Q_SIGNALS:
    void changed();

private:
    template <class T>
    using Work = std::function<T(const SnapshotStore&, const CancellationFlag&)>;
    template <class T>
    using Apply = std::function<void(T)>;

    std::optional<QUuid> beginSnapshot(const QString& status);
    // Runs `work` off the GUI thread and applies its value only while `token` is current.
    template <class T>
    void launch(const QUuid& token, Work<T> work, Apply<T> apply);
    void openSaved(const QString& status, const QString& notice,
                   std::function<ScanResult(const SnapshotStore&)> load);
    void fail(const QString& message);
    void setComparison(std::vector<SnapshotChange> changes, QString title, std::string root);

    AppModel& app_;
    std::vector<SnapshotRecord> snapshots_;
    std::vector<SnapshotCatalogIssue> issues_;
    std::vector<SnapshotChange> changes_;
    std::optional<QString> comparisonTitle_;
    std::optional<std::string> comparisonRoot_;
    std::optional<SnapshotRecord> beforeSnapshot_;
    bool busy_ = false;
    QString status_;
    QUuid generation_ = QUuid::createUuid();
    std::shared_ptr<CancellationFlag> cancellation_ = std::make_shared<CancellationFlag>();
};

} // namespace tarnbridge::app
