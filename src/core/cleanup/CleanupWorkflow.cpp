#include "cleanup/CleanupWorkflow.h"

#include "model/Errors.h"
#include "model/PathText.h"
#include "platform/AtomicFile.h"
#include "platform/UserFolders.h"

namespace tarnbridge::CleanupWorkflow {

CleanupRunResult run(const std::vector<CleanupEntry>& entries, const std::optional<std::string>& backupParent,
                     const std::optional<ScanResult>& snapshot, const SnapshotStore& snapshotStore,
                     const CancellationFlag& cancellation, const Progress& progress)
{
    CleanupRunResult result;
    auto report = [&](CleanupPhase phase, const std::string& message) {
        if (progress)
            progress({phase, message});
    };
    const std::vector<CleanupEntry> clean = CleanupEntry::normalized(entries);
    if (clean.empty()) {
        result.preparationError = kNoFilesSelected;
        return result;
    }
    try {
        cancellation.check();
        report(CleanupPhase::checking, "Checking files…");
        if (CleanupService::hasRetainedCopyConflict(clean))
            throw TarnbridgeError(kKeptDuplicateSelected);
        for (const CleanupEntry& e : clean) {
            cancellation.check();
            e.validate(CleanupPolicy{platform::currentHome()});
        }
        if (backupParent)
            result.backup = CleanupBackup::create(clean, *backupParent, cancellation, [&](const std::string& text) {
                report(CleanupPhase::backingUp, text);
            });
        cancellation.check();
        if (snapshot) {
            report(CleanupPhase::savingSnapshot, "Saving scan snapshot…");
            const auto root = snapshot->isEmpty() ? std::nullopt : snapshot->root();
            const std::string name = root ? std::string(PathText::name(root->path)) : "Scan";
            result.snapshot = snapshotStore.save(*snapshot, "Before cleanup — " + name);
        }
        // The last point at which a cancel takes effect.
        cancellation.check();
    } catch (const CancellationError&) {
        result.cancelled = true;
        return result;
    } catch (const std::exception& error) {
        result.preparationError = describeError(error);
        return result;
    }
    report(CleanupPhase::movingToTrash, "Moving to Trash…");
    result.outcome = CleanupService::moveToTrash(clean, true);
    return result;
}

std::string snapshotFolder(const std::vector<std::string>& paths, const CleanupPolicy& policy)
{
    std::vector<std::string> movable;
    for (const std::string& path : paths)
        if (!policy.rejection(path))
            movable.push_back(path);
    const std::vector<std::string>& items = movable.empty() ? paths : movable;
    std::string common = parentFolder(items.front());
    for (const std::string& path : items)
        while (common != "/" && !PathText::contains(parentFolder(path), common))
            common = parentFolder(common);
    return common;
}

} // namespace tarnbridge::CleanupWorkflow
