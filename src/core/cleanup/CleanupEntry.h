#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "cleanup/CleanupPolicy.h"
#include "model/CancellationFlag.h"
#include "model/DiskNode.h"
#include "model/ScanResult.h"
#include "storage/JsonValue.h"

namespace tarnbridge {

using IdentityMap = std::unordered_map<std::string, FileIdentity>;

// One item of the cleanup queue: the record as the scan saw it plus the identity of every item
// below it, so that a later move can prove it moves exactly what the user reviewed.
struct CleanupEntry {
    DiskNode node;
    IdentityMap identities;
    double stagedAt = 0; // seconds since the Unix epoch
    std::string reason;
    IdentityMap retainedCopies; // files that must still exist, unchanged (a kept duplicate)

    const std::string& id() const { return node.path; }

    // Stages `node` from a finished scan. Throws TarnbridgeError with the refusal.
    static CleanupEntry stage(const DiskNode& node, const ScanResult& scan, std::string reason,
                              const CleanupPolicy& policy);

    // Checks the item against the disk as it is now; changes nothing. Throws TarnbridgeError
    // or std::system_error.
    void validate(const CleanupPolicy& policy) const;

    // Drops entries covered by another entry's folder, handing their retained copies on.
    // Shortest path first.
    static std::vector<CleanupEntry> normalized(const std::vector<CleanupEntry>& entries);

    void write(json::Writer& w) const;
    static CleanupEntry read(const json::Value& value);
};

struct CleanupBatch {
    std::vector<CleanupEntry> entries;
    std::vector<std::string> errors; // at most 8
    std::int64_t skipped = 0;

    // Stages each path; one bad path does not stop the others. Throws only CancellationError.
    static CleanupBatch prepare(const std::vector<std::string>& paths, const ScanResult& scan,
                                const std::string& reason, const CancellationFlag& cancellation);
};

inline constexpr const char* kLinksCannotBeStaged = "Links and cloud placeholders cannot be staged.";
inline constexpr const char* kNotFullyScanned =
    "This item was not fully scanned. Resolve access errors and scan again before cleanup.";
inline constexpr const char* kNotInCurrentScan = "This item is not part of the current scan.";
inline constexpr const char* kCloudOnlyInside =
    "This folder contains cloud-only files. Download them before cleanup.";
inline constexpr const char* kProtectedAppInside =
    "This folder contains a protected system app and cannot be moved to Trash.";
inline constexpr const char* kRetainedCopyChanged =
    "The duplicate copy marked to keep has changed or disappeared. Find duplicates again before cleanup.";
inline constexpr const char* kNoLongerInScan = "Item is no longer in this scan.";

} // namespace tarnbridge
