#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "model/ScanResult.h"

namespace tarnbridge {

// Back and forward through the folders browsed. Paths only, so it survives a new scan.
struct FolderNavigationHistory {
    std::optional<std::string> current;
    std::vector<std::string> back;    // most recent last
    std::vector<std::string> forward; // next one last

    static constexpr std::size_t kLimit = 100;

    void reset(std::string path);
    void visit(const std::string& path);
    std::optional<std::string> goBack();
    std::optional<std::string> goForward();
    // A copy with every path carried over by `transform`; paths it drops disappear, and no two
    // neighbours (nor the last entry and `current`) are left equal.
    FolderNavigationHistory resolvingPaths(
        const std::function<std::optional<std::string>(const std::string&)>& transform) const;

    bool operator==(const FolderNavigationHistory&) const = default;
};

} // namespace tarnbridge
