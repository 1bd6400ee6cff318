#pragma once

#include <string>
#include <vector>

#include "model/CancellationFlag.h"
#include "model/DiskNode.h"
#include "model/ScanResult.h"

// Records of a scan as CSV for a spreadsheet: every text cell quoted, and cells a spreadsheet
// would run as a formula defused with a leading apostrophe.
namespace tarnbridge::CSVExport {

inline constexpr const char* kHeader = "path,name,bytes,allocated,files,kind,modified\r\n";

std::string encode(const std::vector<DiskNode>& nodes);

// Streams the rows of `paths` (those the scan knows, in the given order) to a hidden temporary
// beside `destination`, then renames it over the destination: an existing file is replaced only
// by a complete new one.
void write(const std::vector<std::string>& paths, const ScanResult& scan, const std::string& destination,
           const CancellationFlag& cancellation = CancellationFlag());

// The same for records of `scan` given by id, in the given order.
void write(const std::vector<NodeId>& ids, const ScanResult& scan, const std::string& destination,
           const CancellationFlag& cancellation = CancellationFlag());

// One cell of text, defused and quoted.
std::string protectedText(std::string_view value);

} // namespace tarnbridge::CSVExport
