#pragma once

#include <QObject>
#include <QString>
#include <QUuid>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "duplicates/DuplicateFinder.h"
#include "model/CancellationFlag.h"

namespace tarnbridge::app {

class AppModel;

// The groups the screen draws: the first `limit` that pass the name filter, in report order, and
// how many pass in all (more than shown offers the next page).
struct DuplicateGroupPage {
    std::vector<const DuplicateGroup*> groups;
    std::size_t passing = 0;
    bool hasMore() const { return passing > groups.size(); }
};

// The search for identical files in the shown scan, and the choice of the copies to keep.
// A search runs on the work pool over its own copy of the scan; a newer search, a cancel or a
// new scan changes the generation token, and whatever the older run still delivers is dropped.
class DuplicateSearch : public QObject {
    Q_OBJECT
public:
    // What a search runs on the worker; tests wrap it to hold the worker where they need it.
    using Finder = std::function<DuplicateReport(const ScanResult& scan, std::int64_t minimumSize,
                                                 const std::optional<std::string>& scope,
                                                 const CancellationFlag& cancellation,
                                                 const DuplicateFinder::DetailProgress& progress)>;

    explicit DuplicateSearch(AppModel& app);
    ~DuplicateSearch() override;

    // Group id -> the path of the copy the user keeps; a group without an entry keeps its first.
    const std::map<std::string, std::string>& duplicateKeepers() const { return keepers_; }
    const std::optional<std::string>& duplicateScopePath() const { return scopePath_; }
    const std::optional<DuplicateReport>& duplicateReport() const { return report_; }
    bool findingDuplicates() const { return finding_; }
    bool afterScan() const { return afterScan_; }
    // One line of status, and the record it was made from.
    const QString& duplicateProgress() const { return progressText_; }
    const std::optional<DuplicateProgress>& duplicateWork() const { return work_; }
    // Decimal megabytes: 1 is 1,000,000 bytes; 0 takes every non-empty file.
    int duplicateMinimumMB() const { return minimumMB_; }
    void setDuplicateMinimumMB(int megabytes);

    // The search waits for the running scan.
    bool waitingForScan() const;
    // The folder the screen names: the running scan's root, else the searched folder, else the
    // shown scan's root.
    std::string location() const;

    void setAfterScan(bool on);
    // A new scan starts: the running search stops, its results go, and `thenFind` says whether
    // a search follows the scan.
    void resetForScan(bool thenFind);
    // Below `scope`, or in the whole shown scan.
    void findDuplicates(const std::optional<std::string>& scope);
    // Only over a whole-disk result; during a whole-disk scan, once it completes.
    void findDuplicatesOnWholeDisk();
    void cancelDuplicates();

    // The copy kept in `group`: the user's choice, else the first file (empty for no file).
    std::string keeper(const DuplicateGroup& group) const;
    void keep(const DuplicateGroup& group, const std::string& path);
    // Stages every copy of `group` except `keeping`, each remembering the kept copy as it was
    // scanned, so that the move is refused once that copy has changed or gone.
    void stageDuplicates(const DuplicateGroup& group, const std::string& keeping);
    // The extras of every group of the report, each keeping its chosen copy.
    void stageAllDuplicates();

    // After a cleanup moved files, the report no longer matches the disk.
    void clearReport();
    void stopWork();

    void setFinder(Finder finder);

    static QString progressLine(const DuplicateProgress& record);
    // The report's groups with a file whose name contains `filter`, in any case; all of them for
    // an empty filter. Empty without a report.
    DuplicateGroupPage visibleGroups(const QString& filter, std::size_t limit) const;
    // What removing every extra copy of the report gives back.
    std::int64_t reclaimableBytes() const;

    static constexpr std::size_t kGroupPageSize = 30;

Q_SIGNALS:
    void changed();         // everything but the two below
    void progressChanged(); // duplicateProgress, duplicateWork

private:
    bool isCurrent(const QUuid& token, const QUuid& scanId) const;
    void applyProgress(const QUuid& token, const QUuid& scanId, const DuplicateProgress& record);
    void deliver(const QUuid& token, const QUuid& scanId, std::optional<DuplicateReport> report,
                 const std::optional<std::string>& error);

    AppModel& app_;
    std::map<std::string, std::string> keepers_;
    std::optional<std::string> scopePath_;
    std::optional<DuplicateReport> report_;
    bool finding_ = false;
    bool afterScan_ = false;
    QString progressText_;
    std::optional<DuplicateProgress> work_;
    int minimumMB_ = 1;
    Finder finder_;

    std::shared_ptr<CancellationFlag> cancellation_ = std::make_shared<CancellationFlag>();
    QUuid generation_ = QUuid::createUuid();
};

} // namespace tarnbridge::app
