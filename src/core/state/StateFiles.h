#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cleanup/CleanupBackup.h"
#include "cleanup/CleanupService.h"
#include "cleanup/CleanupWorkflow.h"
#include "snapshots/SnapshotStore.h"

namespace tarnbridge {

// The cleanup queue and its history; receipts and backups newest first.
struct AppState {
    std::vector<CleanupEntry> queue;
    std::vector<TrashReceipt> receipts;
    std::vector<BackupReceipt> backups;

    // Takes in what a cleanup run made: its backup and receipts go first, and every queue entry
    // that moved leaves the queue, with the entries below a moved folder. Entries that failed,
    // or moved without a receipt, stay.
    void record(const CleanupRunResult& result);
};

// The state that keeps both what this program changed since it read `base` and what another
// program saved since (`theirs`). Receipts and backups are told apart by id, queue entries by
// path; an item that either side removed stays removed, and nothing either side added is lost.
AppState mergedState(const AppState& base, const AppState& mine, const AppState& theirs);

inline constexpr const char* kStateDamagedAdvice =
    "Move the damaged file aside and try again; nothing was changed.";

// The three JSON files of the state folder ("cleanup.json", "receipts.json", "backups.json")
// and the snapshot folder beside them.
class StateFiles {
public:
    explicit StateFiles(std::string directory) : directory_(std::move(directory)) {}
    const std::string& directory() const { return directory_; }
    SnapshotStore snapshots() const;

    struct Loaded {
        AppState state;
        // One line per file that could not be read ("Trash history: …"); that part stays empty.
        std::vector<std::string> messages;
    };
    // A missing file is no failure. The snapshot catalog is read by whoever lists snapshots,
    // not here: most callers never need it.
    Loaded load() const;

    // Writes the three files, each atomically. Throws TarnbridgeError
    // "Could not save cleanup state: …" at the first failure.
    void save(const AppState& state) const;
    void save(const AppState& state, const std::string& queueData) const;

    // The saved state for a change: a damaged file throws TarnbridgeError (its load messages,
    // then kStateDamagedAdvice), so that nothing it held is written over.
    AppState loadIntact() const;

    // Under the folder's lock: reads the saved state as loadIntact does, applies `change` and
    // writes the result, which it returns.
    AppState update(const std::function<void(AppState&)>& change) const;

    // Under the folder's lock: writes `mine` merged with what was saved since `base` was read,
    // and returns what it wrote. A file that cannot be read counts as empty and is written over,
    // as the app's start has already said. `queueData`, this side's queue already encoded, is
    // written as it is when the merge leaves that queue unchanged (the usual case).
    AppState saveMerged(const AppState& base, const AppState& mine,
                        const std::optional<std::string>& queueData = std::nullopt) const;

    // Holds an exclusive lock on the state folder while a read-change-write runs, so that two
    // programs sharing the folder do not overwrite each other's changes.
    class Lock {
    public:
        explicit Lock(const StateFiles& files);
        ~Lock();
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        int fd_ = -1;
    };

private:
    std::string directory_;
};

std::string encodeQueue(const std::vector<CleanupEntry>& queue);
std::string encodeReceipts(const std::vector<TrashReceipt>& receipts);
std::string encodeBackups(const std::vector<BackupReceipt>& backups);
std::vector<CleanupEntry> decodeQueue(std::string_view json);
std::vector<TrashReceipt> decodeReceipts(std::string_view json);
std::vector<BackupReceipt> decodeBackups(std::string_view json);

} // namespace tarnbridge
