#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/ProcFs.h"

namespace tarnbridge {

// The capacity of one mounted volume.
struct VolumeInfo {
    std::string path; // the mount point, or the path that was asked about
    std::string name; // the file-system label, else the last path component; "System Disk" for "/"
    std::int64_t total = 0;
    std::int64_t free = 0;               // what this account may still write
    std::int64_t importantAvailable = 0; // Linux has no purgeable space: the same as `free`

    const std::string& id() const { return path; }
    std::int64_t used() const { return std::max<std::int64_t>(0, total - free); }
    double fraction() const { return total < 1 ? 0.0 : double(used()) / double(total); }

    // The volume holding `path`, with `path` as given; none if it cannot be measured.
    static std::optional<VolumeInfo> read(const std::string& path,
                                          const platform::SystemPaths& system = {});
    // The volumes that hold user data, in mount order. Kernel and image file systems, stacked
    // mounts hidden by a later one, file mounts and volumes that cannot be measured are left out.
    static std::vector<VolumeInfo> mounted(const platform::SystemPaths& system = {});
};

} // namespace tarnbridge
