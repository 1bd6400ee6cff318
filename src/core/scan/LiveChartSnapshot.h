#pragma once

#include <cstddef>
#include <string_view>

#include "model/ScanResult.h"

namespace tarnbridge::LiveChartSnapshot {

struct Snapshot {
    ScanResult scan;
    bool limited = false; // something the source holds was left out
};

// Cuts the tree under `root` down to at most `limit` records, `depth` levels and `fanout`
// children per folder, heaviest first, filled breadth first. Kept records keep their true
// sizes; their children lists name only kept children.
Snapshot make(const ScanData& nodes, std::string_view root, std::size_t limit, int depth,
              std::size_t fanout);
Snapshot make(const ScanData& nodes, NodeId root, std::size_t limit, int depth, std::size_t fanout);

} // namespace tarnbridge::LiveChartSnapshot
