#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "model/DiskNode.h"
#include "model/ScanResult.h"

namespace tarnbridge {

// What the user sees of the folder browsed during a running scan. The DiskNodes carry no
// children lists: these records cross threads several times a second.
struct ScanFolderPreview {
    std::string rootPath;
    DiskNode folder;
    std::vector<DiskNode> ancestors; // root first, `folder` last
    std::vector<DiskNode> children;  // as found so far, in walk order
    std::optional<ScanResult> chart; // a bounded tree under `folder`
    bool chartIsLimited = false;
};

// The periodic record of a running scan.
struct ScanProgress {
    std::int64_t files = 0;
    std::int64_t folders = 0; // the root not included
    std::int64_t bytes = 0;   // allocated
    std::string path;         // the entry being walked; the root in the final record
    double duration = 0;
    std::vector<DiskNode> preview; // the root's direct children with running totals
    std::optional<ScanFolderPreview> browsing;
};

using ScanProgressCallback = std::function<void(const ScanProgress&)>;

} // namespace tarnbridge
