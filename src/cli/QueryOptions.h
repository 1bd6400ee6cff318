#pragma once

#include <vector>

#include "Cli.h"
#include "query/ScanQuery.h"

// The options every listing shares: where the scan comes from, the filters, the focus folder.
namespace tarnbridge::cli {

std::vector<OptionSpec> filterOptions();

// The ScanQuery the filter options describe. Throws UsageError on a bad value.
ScanQuery queryFrom(const Arguments& args);

// The folder a command looks at: --focus, else the scan's root. It must be a folder of the scan.
NodeId focusOf(const Arguments& args, const ScanResult& scan);

// A fresh scan of PATH, or the saved scan of --from FILE.
ScanResult scanFor(const Arguments& args, Context& context, const char* command);

} // namespace tarnbridge::cli
