#pragma once

#include <map>
#include <string>
#include <vector>

#include "cleanup/CleanupEntry.h"

namespace tarnbridge {

// The proof that lets a moved item be put back: where it was, where it went, and what it was.
struct TrashReceipt {
    std::string id; // uppercase UUID text
    std::string originalPath;
    std::string trashPath;
    double date = 0; // seconds since the Unix epoch
    std::int64_t bytes = 0;
    FileIdentity identity;

    void write(json::Writer& w) const;
    static TrashReceipt read(const json::Value& value);
    bool operator==(const TrashReceipt&) const = default;
};

struct CleanupOutcome {
    std::vector<TrashReceipt> receipts;
    std::map<std::string, std::string> errors; // by path: not moved, or moved without a receipt
};

// The only code that moves a user's file, and only ever into the Trash.
namespace CleanupService {

// Validates everything first (one failure moves nothing when `requireAllValid`), then validates
// and moves each entry on its own. Never throws: every problem is in the outcome.
CleanupOutcome moveToTrash(const std::vector<CleanupEntry>& entries, bool requireAllValid);

// Puts a trashed item back, only when it is provably the same item and its place is free.
void restore(const TrashReceipt& receipt);

// A file some entry must keep is itself staged, or lies in a staged folder.
bool hasRetainedCopyConflict(const std::vector<CleanupEntry>& entries);

} // namespace CleanupService

inline constexpr const char* kConflictNothingMoved =
    "A duplicate copy marked to keep is also in Cleanup. Remove it or its containing folder first; no files were moved.";
inline constexpr const char* kConflictThisItem =
    "The copy marked to keep is also in Cleanup. Remove it or its containing folder from the queue first.";
inline constexpr const char* kMovedWithoutLocation =
    "Moved to Trash. The system did not provide the restore location; use your file manager's Restore command.";
inline constexpr const char* kRestoreOccupied =
    "An item already exists at the original location. Restore from your file manager to choose another destination.";
inline constexpr const char* kRestoreChanged = "The item in Trash has changed. Restore it using your file manager.";
inline constexpr const char* kRestoreParentMissing =
    "The original parent folder is missing or moved. Restore using your file manager.";

} // namespace tarnbridge
