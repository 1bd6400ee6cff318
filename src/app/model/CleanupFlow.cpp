#include "app/model/CleanupFlow.h"

#include <QLocale>

#include <algorithm>
#include <mutex>
#include <utility>

#include "app/model/AppModel.h"
#include "app/model/ApplicationsFlow.h"
#include "app/model/DuplicateSearch.h"
#include "app/model/Notices.h"
#include "app/model/Preferences.h"
#include "app/model/ScanSession.h"
#include "app/model/SnapshotFlow.h"
#include "model/Errors.h"
#include "model/PathText.h"
#include "platform/UserFolders.h"

namespace tarnbridge::app {

namespace {

const QString kNothingMoved = QStringLiteral("Nothing was moved to Trash.");
const std::string kSaveFailed = "Could not save cleanup state: ";

QString lines(const std::vector<std::string>& items)
{
    QString out;
    for (const std::string& item : items)
        out += (out.isEmpty() ? QString() : QStringLiteral("\n")) + displayText(item);
    return out;
}

// A fresh policy for each use: the answer depends on the disk as it is now.
CleanupPolicy currentPolicy()
{
    return CleanupPolicy{platform::currentHome()};
}

std::vector<CleanupEntry> joined(const std::vector<CleanupEntry>& queue, const std::vector<CleanupEntry>& added)
{
    std::vector<CleanupEntry> all;
    all.reserve(queue.size() + added.size());
    all.insert(all.end(), queue.begin(), queue.end());
    all.insert(all.end(), added.begin(), added.end());
    return CleanupEntry::normalized(all);
}

bool samePaths(const std::vector<CleanupEntry>& a, const std::vector<CleanupEntry>& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const CleanupEntry& x, const CleanupEntry& y) { return x.node.path == y.node.path; });
}

} // namespace

struct CleanupFlow::Staged {
    CleanupBatch batch;
    std::vector<CleanupEntry> queue;
    std::string queueData; // `queue` encoded on the worker: a large queue costs the GUI thread nothing
};

// Filled by the worker, emptied by the GUI thread when it records the run. Whatever is still
// here when the flow goes (the app closed during a run) is saved then, so no receipt is lost.
struct CleanupFlow::UnsavedRun {
    std::mutex mutex;
    std::optional<CleanupRunResult> result;

    void keep(const CleanupRunResult& run)
    {
        const std::lock_guard lock(mutex);
        result = run;
    }
    std::optional<CleanupRunResult> take()
    {
        const std::lock_guard lock(mutex);
        return std::exchange(result, std::nullopt);
    }
};

CleanupFlow::CleanupFlow(AppModel& app) : QObject(&app), app_(app), unsavedRun_(std::make_shared<UnsavedRun>()) {}

CleanupFlow::~CleanupFlow()
{
    // The owner has waited for its pools: a run that finished since never reached the GUI thread.
    if (const auto result = unsavedRun_->take()) {
        state_.record(*result);
        try {
            StateFiles(app_.stateDirectory()).saveMerged(saved_, state_);
        } catch (const std::exception&) {
            // Nobody is left to tell; the items' Trash info still lets a file manager restore them.
        }
    }
}

std::int64_t CleanupFlow::queueBytes() const
{
    std::int64_t total = 0;
    for (const CleanupEntry& entry : state_.queue)
        total += entry.node.allocatedSize;
    return total;
}

void CleanupFlow::stage(const std::vector<DiskNode>& nodes, const std::optional<ScanResult>& source,
                        const std::string& reason)
{
    if (cleaning_ || staging_)
        return;
    std::optional<ScanResult> scan = source;
    if (!scan) {
        if (!app_.canClean())
            return;
        scan = app_.session().scan();
        if (!scan)
            return;
    }
    const CleanupPolicy policy = currentPolicy();
    std::vector<CleanupEntry> entries;
    std::vector<std::string> failures;
    for (const DiskNode& node : nodes) {
        try {
            entries.push_back(CleanupEntry::stage(node, *scan, reason, policy));
        } catch (const std::exception& error) {
            failures.push_back(std::string(node.name()) + ": " + describeError(error));
        }
    }
    addToQueue(std::move(entries));
    if (!failures.empty())
        app_.notices().setError(lines(failures));
}

void CleanupFlow::addToQueue(std::vector<CleanupEntry> entries)
{
    if (cleaning_ || staging_ || entries.empty())
        return;
    const std::vector<CleanupEntry> previous = state_.queue;
    state_.queue = joined(previous, entries);
    Q_EMIT changed();
    persistState();
    app_.notices().reportAddedToCleanup(entries, previous);
}

void CleanupFlow::stagePaths(const std::vector<std::string>& paths, const std::string& reason)
{
    if (!app_.canClean() || paths.empty())
        return;
    const ScanResult scan = *app_.session().scan();
    const auto previous = std::make_shared<const std::vector<CleanupEntry>>(state_.queue);
    staging_ = true;
    stagingCancellation_ = std::make_shared<CancellationFlag>();
    const auto flag = stagingCancellation_;
    Q_EMIT changed();
    BackgroundJob::run<Staged>(
        app_.workPool(), this, flag,
        [paths, scan, reason, previous](const CancellationFlag& cancellation) {
            Staged staged;
            staged.batch = CleanupBatch::prepare(paths, scan, reason, cancellation);
            staged.queue = joined(*previous, staged.batch.entries);
            cancellation.check();
            staged.queueData = encodeQueue(staged.queue);
            return staged;
        },
        [this, flag, scanId = scan.id(), previous](JobOutcome<Staged> outcome) {
            finishStaging(std::move(outcome), flag, scanId, previous);
        });
}

void CleanupFlow::finishStaging(JobOutcome<Staged> outcome, const std::shared_ptr<CancellationFlag>& flag,
                                const QUuid& scanId, const std::shared_ptr<const std::vector<CleanupEntry>>& previous)
{
    staging_ = false;
    Notices& notices = app_.notices();
    if (outcome.cancelled || flag->isCancelled()) {
        notices.setNotice(QStringLiteral("Staging cancelled."));
    } else if (outcome.error) {
        notices.setError(displayText(*outcome.error));
    } else {
        // Entries prove themselves against the scan they came from; any other scan voids them.
        const auto& scan = app_.session().scan();
        if (!scan || scan->id() != scanId || app_.session().isHistorical() || app_.scanning() ||
            app_.snapshotBusy()) {
            notices.setNotice(QStringLiteral("Scan changed — stage these files again."));
        } else {
            Staged& staged = *outcome.value;
            // A save merged in another program's queue meanwhile: add to that instead, and the
            // bytes made on the worker no longer fit it.
            if (samePaths(state_.queue, *previous)) {
                state_.queue = std::move(staged.queue);
                persistState(std::move(staged.queueData));
            } else {
                state_.queue = joined(state_.queue, staged.batch.entries);
                persistState();
            }
            notices.reportAddedToCleanup(staged.batch.entries, *previous);
            if (!staged.batch.errors.empty())
                notices.setError(lines(staged.batch.errors));
        }
    }
    Q_EMIT changed();
}

void CleanupFlow::cancelStaging()
{
    stagingCancellation_->cancel();
}

void CleanupFlow::removeFromQueue(const std::string& path)
{
    if (staging_ || cleaning_)
        return;
    if (std::erase_if(state_.queue, [&](const CleanupEntry& entry) { return entry.node.path == path; }) == 0)
        return;
    Q_EMIT changed();
    persistState();
}

void CleanupFlow::removeAll()
{
    if (staging_ || cleaning_)
        return;
    state_.queue.clear();
    Q_EMIT changed();
    persistState();
}

void CleanupFlow::restore(const TrashReceipt& receipt)
{
    BackgroundJob::run<bool>(
        app_.workPool(), this, std::make_shared<CancellationFlag>(),
        [receipt](const CancellationFlag&) {
            CleanupService::restore(receipt);
            return true;
        },
        [this, id = receipt.id, name = displayText(PathText::name(receipt.originalPath))](JobOutcome<bool> outcome) {
            if (!outcome.value) {
                if (outcome.error)
                    app_.notices().setError(displayText(*outcome.error));
                return;
            }
            std::erase_if(state_.receipts, [&](const TrashReceipt& r) { return r.id == id; });
            Q_EMIT changed();
            persistState();
            app_.notices().setNotice(QStringLiteral("Restored ") + name + QStringLiteral(". Rescan to update storage."));
        });
}

void CleanupFlow::requestCleanup()
{
    if (!state_.queue.empty())
        prepareCleanupReview(state_.queue, std::nullopt);
}

void CleanupFlow::requestTrash(const DiskNode& node)
{
    const auto& scan = app_.session().scan();
    if (!app_.canClean() || !scan)
        return;
    std::optional<CleanupEntry> entry;
    try {
        entry = CleanupEntry::stage(node, *scan, "Move to Trash", currentPolicy());
    } catch (const std::exception& error) {
        app_.notices().setError(displayText(describeError(error)));
        return;
    }
    // The copies the queue keeps must stay out of this move too.
    for (const CleanupEntry& queued : state_.queue)
        entry->retainedCopies.insert(queued.retainedCopies.begin(), queued.retainedCopies.end());
    prepareCleanupReview({std::move(*entry)}, std::nullopt);
}

std::shared_ptr<CancellationFlag> CleanupFlow::beginCleaning(const char* message)
{
    cleaning_ = true;
    cleanupCancellation_ = std::make_shared<CancellationFlag>();
    progress_ = CleanupProgress{CleanupPhase::checking, message};
    Q_EMIT changed();
    Q_EMIT progressChanged();
    return cleanupCancellation_;
}

void CleanupFlow::endCleaning()
{
    cleaning_ = false;
    progress_.reset();
    Q_EMIT changed();
    Q_EMIT progressChanged();
}

void CleanupFlow::prepareCleanupReview(std::vector<CleanupEntry> entries, std::optional<QString> uninstallName)
{
    if (cleaning_ || staging_ || app_.scanning() || app_.snapshotBusy() || request_)
        return;
    const auto flag = beginCleaning("Preparing review…");
    BackgroundJob::run<CleanupRequest>(
        app_.workPool(), this, flag,
        [entries = std::move(entries), uninstallName](const CancellationFlag& cancellation) {
            CleanupRequest request{QUuid::createUuid(), CleanupEntry::normalized(entries), {}, uninstallName};
            // Only the policy is asked here; the deep checks run once the user has decided.
            const CleanupPolicy policy = currentPolicy();
            for (const CleanupEntry& entry : request.entries) {
                cancellation.check();
                if (auto refusal = policy.rejection(entry.node.path))
                    request.blocked.emplace(entry.node.path, std::move(*refusal));
            }
            return request;
        },
        [this, flag](JobOutcome<CleanupRequest> outcome) {
            if (outcome.value && !flag->isCancelled())
                request_ = std::move(outcome.value);
            else if (outcome.error)
                app_.notices().setError(displayText(*outcome.error));
            endCleaning();
        });
}

void CleanupFlow::dismissReview()
{
    if (request_) {
        request_.reset();
        Q_EMIT changed();
    }
}

bool CleanupFlow::mayConfirm(const CleanupRequest& request) const
{
    return request_ && request_->id == request.id && request.blocked.empty() && !cleaning_ && !staging_ &&
           !app_.scanning() && !app_.snapshotBusy();
}

void CleanupFlow::confirmTrash(const CleanupRequest& request)
{
    if (!mayConfirm(request))
        return;
    Preferences& preferences = app_.preferences();
    if (!preferences.backupBeforeCleanup()) {
        executeCleanup(request, std::nullopt);
        return;
    }
    // The panel may run an event loop that replaces the review: keep this one.
    const CleanupRequest confirmed = request;
    const auto& choose = app_.services().chooseFolder;
    if (!choose)
        return;
    const auto folder = choose(FolderRequest{QStringLiteral("Choose a backup folder"),
                                             QStringLiteral("Back up & Move to Trash"),
                                             QStringLiteral("Files will be copied here, verified, then moved to Trash."),
                                             preferences.lastBackupParent()});
    if (!folder)
        return;
    preferences.setLastBackupParent(displayText(*folder));
    executeCleanup(confirmed, *folder);
}

void CleanupFlow::executeCleanup(const CleanupRequest& request, const std::optional<std::string>& backupParent)
{
    if (!mayConfirm(request))
        return;
    Preferences& preferences = app_.preferences();
    if (preferences.backupBeforeCleanup() && !backupParent)
        return;
    // `request` may be the review itself, which goes now.
    std::vector<CleanupEntry> entries = request.entries;
    std::optional<QString> uninstallName = request.uninstallName;
    request_.reset();
    Notices& notices = app_.notices();
    notices.clearToast();
    notices.setNotice(std::nullopt);
    const auto flag = beginCleaning("Checking files…");
    app_.setSection(AppSection::cleanup);
    std::optional<ScanResult> snapshot;
    if (preferences.snapshotsEnabled())
        snapshot = app_.session().scan();

    // Progress of this run counts only while it is still the run on screen.
    auto progress = [this, flag](const CleanupProgress& value) {
        BackgroundJob::post(this, [this, flag, value] {
            if (cleaning_ && cleanupCancellation_ == flag) {
                progress_ = value;
                Q_EMIT progressChanged();
            }
        });
    };
    BackgroundJob::run<CleanupRunResult>(
        app_.workPool(), this, flag,
        [entries = std::move(entries), backupParent, snapshot, store = app_.store(), progress,
         unsaved = unsavedRun_](const CancellationFlag& cancellation) {
            CleanupRunResult result = CleanupWorkflow::run(entries, backupParent, snapshot, store, cancellation, progress);
            unsaved->keep(result);
            return result;
        },
        // No generation test: whatever a run moved must reach the receipts.
        [this, uninstallName = std::move(uninstallName)](JobOutcome<CleanupRunResult> outcome) {
            unsavedRun_->take();
            if (outcome.value) {
                finishCleanup(*outcome.value, uninstallName);
            } else {
                endCleaning();
                if (outcome.error)
                    app_.notices().setError(displayText(*outcome.error));
            }
        });
}

void CleanupFlow::finishCleanup(const CleanupRunResult& result, const std::optional<QString>& uninstallName)
{
    state_.record(result);
    endCleaning();
    persistState();
    if (result.snapshot)
        app_.snapshots().refreshSnapshots();

    const CleanupOutcome& outcome = result.outcome;
    qint64 moved = qint64(outcome.receipts.size());
    for (const auto& [path, message] : outcome.errors)
        if (message == kMovedWithoutLocation)
            ++moved;
    Notices& notices = app_.notices();
    if (moved > 0) {
        // The scan no longer matches the disk.
        app_.session().markHistorical();
        app_.duplicates().clearReport();
        const QString title =
            uninstallName ? *uninstallName + QStringLiteral(" moved to Trash") : QStringLiteral("Moved to Trash");
        notices.showToast(title,
                          QLocale().toString(moved) + (moved == 1 ? QStringLiteral(" item") : QStringLiteral(" items")) +
                              QStringLiteral(" — Restore is available in Cleanup."),
                          ToastAction::cleanup, QStringLiteral("View Cleanup"));
        if (uninstallName)
            app_.applications().afterUninstall();
    }
    if (result.cancelled)
        notices.showToast(QStringLiteral("Cleanup cancelled"), kNothingMoved, std::nullopt, QStringLiteral("Cleanup now"));
    if (result.preparationError) {
        notices.setError(displayText(*result.preparationError) + QStringLiteral("\n") + kNothingMoved);
    } else if (!outcome.errors.empty()) {
        std::vector<std::string> failures;
        for (const auto& [path, message] : outcome.errors)
            failures.push_back(std::string(PathText::name(path)) + ": " + message);
        notices.setError(lines(failures));
    }
}

void CleanupFlow::cancelCleanup()
{
    // Once files are moving, stopping halfway would only leave a muddle.
    if (progress_ && progress_->phase == CleanupPhase::movingToTrash)
        return;
    cleanupCancellation_->cancel();
}

std::vector<std::string> CleanupFlow::loadState()
{
    StateFiles::Loaded loaded = StateFiles(app_.stateDirectory()).load();
    state_ = loaded.state;
    saved_ = std::move(loaded.state);
    Q_EMIT changed();
    return std::move(loaded.messages);
}

void CleanupFlow::persistState(const std::optional<std::string>& queueData)
{
    try {
        // The ready-made bytes are written only when the merge leaves this side's queue as it is.
        AppState written = StateFiles(app_.stateDirectory()).saveMerged(saved_, state_, queueData);
        saved_ = written;
        state_ = std::move(written);
    } catch (const std::exception& error) {
        // Memory keeps what it has; the next save tries again from the same base.
        std::string message = describeError(error);
        if (message.rfind(kSaveFailed, 0) != 0)
            message = kSaveFailed + message;
        app_.notices().setError(displayText(message));
        return;
    }
    Q_EMIT changed();
}

void CleanupFlow::stopWork()
{
    cleanupCancellation_->cancel();
    stagingCancellation_->cancel();
}

} // namespace tarnbridge::app
