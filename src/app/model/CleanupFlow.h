#pragma once

#include <QObject>
#include <QUuid>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/model/BackgroundJob.h"
#include "cleanup/CleanupWorkflow.h"
#include "state/StateFiles.h"

namespace tarnbridge::app {

class AppModel;

// The review in progress.
struct CleanupRequest {
    QUuid id;
    std::vector<CleanupEntry> entries;          // normalized
    std::map<std::string, std::string> blocked; // path -> why the policy refuses it now
    std::optional<QString> uninstallName;       // the app, for a review that comes from an uninstall
};

// The cleanup queue, its review and its run, with restore, and the three state files.
class CleanupFlow : public QObject {
    Q_OBJECT
public:
    explicit CleanupFlow(AppModel& app);
    ~CleanupFlow() override;

    const std::vector<CleanupEntry>& queue() const { return state_.queue; }
    const std::vector<TrashReceipt>& receipts() const { return state_.receipts; }
    const std::vector<BackupReceipt>& backups() const { return state_.backups; }
    std::int64_t queueBytes() const;
    bool cleaning() const { return cleaning_; }
    bool staging() const { return staging_; }
    const std::optional<CleanupRequest>& cleanupRequest() const { return request_; }
    const std::optional<CleanupProgress>& cleanupProgress() const { return progress_; }

    // Staging: a handful of records at once, or a large selection in the background.
    void stage(const std::vector<DiskNode>& nodes, const std::optional<ScanResult>& source, const std::string& reason);
    void stagePaths(const std::vector<std::string>& paths, const std::string& reason);
    void cancelStaging();
    // Entries made elsewhere (duplicates carrying their kept copy): tidied into the queue, saved
    // and reported as staging is. Nothing happens while a cleanup or a staging runs.
    void addToQueue(std::vector<CleanupEntry> entries);
    void removeFromQueue(const std::string& path);
    void removeAll();
    void restore(const TrashReceipt& receipt);

    // The review and the run.
    void requestCleanup();
    void requestTrash(const DiskNode& node);
    void prepareCleanupReview(std::vector<CleanupEntry> entries, std::optional<QString> uninstallName);
    void dismissReview();
    void confirmTrash(const CleanupRequest& request);
    void executeCleanup(const CleanupRequest& request, const std::optional<std::string>& backupParent);
    // The progress card's Cancel: does nothing while files are being moved.
    void cancelCleanup();

    // Reads the three state files at start; one message per file that could not be read.
    std::vector<std::string> loadState();
    // Writes the three files under the state folder's lock, merged with what another program
    // saved since; `queueData` is the queue already encoded off the GUI thread.
    void persistState(const std::optional<std::string>& queueData = std::nullopt);
    void stopWork();

Q_SIGNALS:
    void changed();         // queue, receipts, backups, request, the two work flags
    void progressChanged(); // cleanupProgress

private:
    struct Staged;
    struct UnsavedRun;
    void finishStaging(JobOutcome<Staged> outcome, const std::shared_ptr<CancellationFlag>& flag, const QUuid& scanId,
                       const std::shared_ptr<const std::vector<CleanupEntry>>& previous);
    void finishCleanup(const CleanupRunResult& result, const std::optional<QString>& uninstallName);
    // The guards a confirmation passes: this review, nothing blocked, no other work running.
    bool mayConfirm(const CleanupRequest& request) const;
    std::shared_ptr<CancellationFlag> beginCleaning(const char* message);
    void endCleaning();

    AppModel& app_;
    AppState state_;
    AppState saved_; // what the files held when this model last read or wrote them
    bool cleaning_ = false;
    bool staging_ = false;
    std::optional<CleanupRequest> request_;
    std::optional<CleanupProgress> progress_;
    std::shared_ptr<CancellationFlag> cleanupCancellation_ = std::make_shared<CancellationFlag>();
    std::shared_ptr<CancellationFlag> stagingCancellation_ = std::make_shared<CancellationFlag>();
    // The result of the run in flight, kept until the GUI thread has recorded it.
    std::shared_ptr<UnsavedRun> unsavedRun_;
};

} // namespace tarnbridge::app
