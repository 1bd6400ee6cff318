#pragma once

#include <cstddef>
#include <string>

#include "cleanup/CleanupEntry.h"
#include "model/Errors.h"
#include "model/ScanResult.h"
#include "support/TempTree.h"

// Small helpers the file-touching tests share.
namespace tarnbridge::test {

// A finished scan of `root`, or of a whole temporary tree.
ScanResult scanOf(const std::string& root);
inline ScanResult scanOf(const TempTree& tree) { return scanOf(tree.root()); }

// Reproducible bytes that no two seeds share, so that copies are copies on purpose only.
std::string randomBytes(std::size_t size, unsigned seed);

// `path` staged from `scan` with the current home's policy.
CleanupEntry stage(const ScanResult& scan, const std::string& path);

// Something is at `path` (links are not followed).
bool exists(const std::string& path);

// The whole file as bytes; empty when it cannot be read.
std::string readText(const std::string& path);

// The text of what `check` throws ("cancelled" for a stop), or "" when it passes.
template <class Check>
std::string refusal(Check&& check)
{
    try {
        check();
        return "";
    } catch (const std::exception& error) {
        return describeError(error);
    }
}

} // namespace tarnbridge::test
