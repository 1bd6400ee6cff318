#pragma once

#include <optional>
#include <string>
#include <vector>

#include "model/ScanResult.h"
#include "storage/JsonValue.h"

namespace tarnbridge {

struct SnapshotRecord {
    std::string id; // uppercase UUID text; names both files
    std::string title;
    double createdAt = 0; // seconds since the Unix epoch
    std::string rootPath;
    std::int64_t bytes = 0;
    std::int64_t fileCount = 0;

    void write(json::Writer& w) const;
    static SnapshotRecord read(const json::Value& value);
    bool operator==(const SnapshotRecord&) const = default;
};

struct SnapshotCatalogIssue {
    std::string path; // the ".meta" file
    std::string message;
};

struct SnapshotCatalog {
    std::vector<SnapshotRecord> records; // newest first
    std::vector<SnapshotCatalogIssue> issues;
};

enum class SnapshotChangeStatus { added, removed, changed };

// "Added", "Removed" or "Changed".
const char* statusText(SnapshotChangeStatus status);

struct SnapshotChange {
    std::string path;
    std::int64_t before = 0;
    std::int64_t after = 0;
    SnapshotChangeStatus status = SnapshotChangeStatus::changed;

    // The size of the change, whichever way it went.
    std::uint64_t magnitude() const
    {
        return after > before ? std::uint64_t(after - before) : std::uint64_t(before - after);
    }
    bool operator==(const SnapshotChange&) const = default;
};

enum class ChangeLevel { everyLevel, topLevelOnly };

// Saved scans in one folder: ID.json holds the scan, ID.meta the small record that lists it.
// A damaged entry is reported, never hidden and never repaired.
class SnapshotStore {
public:
    explicit SnapshotStore(std::string directory) : directory_(std::move(directory)) {}
    const std::string& directory() const { return directory_; }

    SnapshotRecord save(const ScanResult& scan, const std::string& title) const;
    SnapshotCatalog catalog() const;
    ScanResult load(const SnapshotRecord& record) const;
    void remove(const SnapshotRecord& record) const;

    // What grew, shrank, appeared or vanished between two scans of one root; largest change
    // first, ties by path.
    static std::vector<SnapshotChange> compare(const ScanResult& older, const ScanResult& newer, bool logical);

    // The rows a change list shows, in their order: a change of at least `minimumChange`
    // bytes and, for `topLevelOnly`, an item directly inside `root` (no row without a root).
    // Pointers into `changes`, so that millions of rows are filtered without copies.
    static std::vector<const SnapshotChange*> visibleChanges(const std::vector<SnapshotChange>& changes,
                                                             std::int64_t minimumChange, ChangeLevel level,
                                                             const std::optional<std::string>& root);

private:
    std::string directory_;
};

inline constexpr const char* kSnapshotUnreadable = "Saved-scan details could not be read.";
inline constexpr const char* kSnapshotMismatch = "Saved-scan details do not match this entry.";
inline constexpr const char* kSnapshotUnavailable = "The saved scan is unavailable.";
inline constexpr const char* kSnapshotDifferentRoots = "Scan the same root folder to compare these snapshots.";

} // namespace tarnbridge
