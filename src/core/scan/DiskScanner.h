#pragma once

#include <optional>
#include <string>

#include "model/CancellationFlag.h"
#include "model/ScanResult.h"
#include "scan/ScanProgress.h"

namespace tarnbridge::DiskScanner {

// Walks the tree under `root` once, metadata only, on the calling thread. With `navigation`
// every folder's totals are kept current as the walk goes and progress carries a preview of
// the folder browsed; without it totals are rolled up once at the end. Throws
// CancellationError when `cancellation` is set (nothing partial is returned), TarnbridgeError
// or std::system_error when the root cannot be scanned.
ScanResult scan(const std::string& root, const CancellationFlag& cancellation,
                ScanNavigation* navigation = nullptr, const ScanProgressCallback& progress = {});

// The preview of `requested` (or of the root) in a scan being built.
ScanFolderPreview folderPreview(const ScanData& nodes, const std::string& root,
                                const std::optional<std::string>& requested);

// Texts of the scanner's refusals.
inline constexpr const char* kNotAFolder = "Choose a folder or mounted volume to scan.";
inline constexpr const char* kUnreadableRoot =
    "This folder cannot be read. Choose another folder or check its permissions.";
inline constexpr const char* kCannotEnumerate = "Unable to enumerate this folder.";
inline constexpr const char* kNestedVolume = "Nested volume skipped. Scan this volume separately.";
inline constexpr std::size_t kIssueLimit = 200;

} // namespace tarnbridge::DiskScanner
