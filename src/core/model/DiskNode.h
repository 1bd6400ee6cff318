#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/FileIdentity.h"

namespace tarnbridge {

// Which of the two sizes every display and ranking uses.
enum class SizeMeasure : std::uint8_t { allocated, logical };

// One file or folder of a scan as a value. Built on demand from the scan's arena; hot loops
// read the arena directly instead. Dates are whole seconds since the Unix epoch.
struct DiskNode {
    std::string path;
    std::optional<std::string> parent;
    bool isDirectory = false;
    bool isSymbolicLink = false;
    bool isCloudPlaceholder = false;
    std::int64_t logicalSize = 0;
    std::int64_t allocatedSize = 0;
    std::int64_t ownLogicalSize = 0;
    std::int64_t ownAllocatedSize = 0;
    std::int64_t compressedSavings = 0;
    std::int64_t fileCount = 0;
    std::int64_t folderCount = 0;
    std::vector<std::string> children;
    std::int64_t created = 0;
    std::int64_t modified = 0;
    std::int64_t accessed = 0;
    FileIdentity identity;

    // A record straight from a stat of the entry: sizes of its own, no children, counts 0/1.
    // `allocatedOverride` replaces the block count of a non-folder (0 for a repeated hard link).
    static DiskNode make(std::string path, std::optional<std::string> parent, const FileStat& stat,
                         std::optional<std::int64_t> allocatedOverride = std::nullopt);

    std::string_view name() const;
    std::string_view pathExtension() const;
    bool isRegularFile() const { return identity.isRegularFile(); }
    std::int64_t bytes(SizeMeasure measure) const
    {
        return measure == SizeMeasure::logical ? logicalSize : allocatedSize;
    }

    bool operator==(const DiskNode&) const = default;
};

// A path that could not be taken into a scan, with the reason.
struct ScanIssue {
    std::string path;
    std::string message;
    std::string id() const { return path + message; }
    bool operator==(const ScanIssue&) const = default;
};

} // namespace tarnbridge
