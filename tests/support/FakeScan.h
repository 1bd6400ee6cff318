#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "model/ScanResult.h"

namespace tarnbridge::test {

// One entry of a made-up scan. A path ending in "/" is a folder; folders on the way to an
// entry are made implicitly. `allocated` < 0 means "same as size".
struct FakeEntry {
    std::string path; // relative to the root
    std::int64_t size = 0;
    std::int64_t allocated = -1;
    std::int64_t modified = 1'700'000'000;
};

// A finished scan of those entries under `root`, totals rolled up as the scanner does, children
// in the order given.
ScanResult fakeScan(const std::string& root, const std::vector<FakeEntry>& entries);

} // namespace tarnbridge::test
