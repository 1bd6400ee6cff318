#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "cleanup/CleanupBackup.h"
#include "cleanup/CleanupPolicy.h"
#include "cleanup/CleanupService.h"
#include "snapshots/SnapshotStore.h"

namespace tarnbridge {

enum class CleanupPhase { checking, backingUp, savingSnapshot, movingToTrash };

struct CleanupProgress {
    CleanupPhase phase;
    std::string message;
};

struct CleanupRunResult {
    CleanupOutcome outcome;
    std::optional<BackupReceipt> backup;
    std::optional<SnapshotRecord> snapshot;
    std::optional<std::string> preparationError;
    bool cancelled = false;
};

// The single route from a confirmed review to files in the Trash: check, back up, save a
// snapshot, move, in that order, so an earlier failure leaves every file where it was.
namespace CleanupWorkflow {

using Progress = std::function<void(const CleanupProgress&)>;

// Never throws: every way out is described by the result.
CleanupRunResult run(const std::vector<CleanupEntry>& entries, const std::optional<std::string>& backupParent,
                     const std::optional<ScanResult>& snapshot, const SnapshotStore& snapshotStore,
                     const CancellationFlag& cancellation, const Progress& progress = {});

// The folder whose scan is saved as the snapshot of a cleanup of `paths` (absolute, not empty):
// the deepest folder that holds every item the policy lets move. Refused items do not widen it,
// or one item under /etc would make it the whole disk.
std::string snapshotFolder(const std::vector<std::string>& paths, const CleanupPolicy& policy);

} // namespace CleanupWorkflow

inline constexpr const char* kNoFilesSelected = "No files selected.";
inline constexpr const char* kKeptDuplicateSelected = "A duplicate marked to keep is selected for cleanup. Remove it first.";

} // namespace tarnbridge
