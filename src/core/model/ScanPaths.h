#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tarnbridge {

// The ways one folder can be spelled on a system: a data-volume root mounted elsewhere, and
// root folders that are links into a private prefix.
struct ScanPathsProfile {
    std::string dataRoot;             // empty: the system has none
    std::vector<std::string> aliases; // in the order their spellings are listed
    std::string privatePrefix;        // where the aliases really live
};

namespace ScanPaths {

// The firmlinked data volume and /private links of macOS, for scans made there.
const ScanPathsProfile& macOSProfile();

// Merged /usr: /bin, /sbin, /lib, /lib32, /lib64 and /libx32 where they are links into /usr.
// Read once from the running system.
const ScanPathsProfile& linuxProfile();

// Every spelling of `path`, by text alone; the normalised path first. Empty for a relative path
// or one holding a NUL.
std::vector<std::string> candidates(std::string_view path,
                                    const ScanPathsProfile& profile = linuxProfile());

// "/a/./b/../c" -> "/a/c"; ".." above the root stays at the root.
std::string normalize(std::string_view absolutePath);

} // namespace ScanPaths
} // namespace tarnbridge
