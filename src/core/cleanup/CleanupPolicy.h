#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnbridge {

// The one place that decides whether a path may ever be moved to the Trash, and in which words
// it is refused. It reads only the path and what the file system says about it now; it never
// moves anything and never fails.
struct CleanupPolicy {
    std::string home; // the user's home folder, links resolved

    // Absent: the path may be staged. Otherwise the sentence to show.
    std::optional<std::string> rejection(std::string_view path) const;

    // The file-flag test alone: immutable or append-only files (only the administrator can undo
    // those) are refused. A path that cannot be read is not refused here.
    static std::optional<std::string> fileProtection(const std::string& path);

    // A folder named "….app" whose bundle identifier says it belongs to the other platform's
    // own system (a volume copied from a Mac).
    static bool isProtectedSystemApp(const std::string& folder);

    std::vector<std::string> protectedPaths() const;
    std::vector<std::string> rootFolders() const;
};

inline constexpr const char* kRefusedLink = "Symbolic links and paths through symbolic links cannot be staged.";
inline constexpr const char* kRefusedAppContents =
    "App contents are protected. Use Applications to uninstall the whole app.";
inline constexpr const char* kRefusedSystemApp = "This system app is protected and cannot be moved to Trash.";
inline constexpr const char* kRefusedProtected =
    "Protected system or account data — Tarnbridge cannot move this to Trash.";
inline constexpr const char* kRefusedRootFolder =
    "This is a protected root folder. Select individual items inside it.";
inline constexpr const char* kRefusedSelf = "Tarnbridge cannot remove itself while running.";
inline constexpr const char* kRefusedSystemFlag = "This file is protected by the system and cannot be moved to Trash.";

} // namespace tarnbridge
