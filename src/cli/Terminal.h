#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "Cli.h"
#include "model/DiskNode.h"
#include "model/ScanResult.h"
#include "scan/ScanProgress.h"

namespace tarnbridge::cli {

enum class Align { left, right };

// Rows printed as aligned columns, under a header line unless every title is empty. Widths count characters, not bytes; names that are not
// UTF-8 show their stray bytes as U+FFFD.
class Table {
public:
    explicit Table(std::vector<std::pair<std::string, Align>> columns);
    void add(std::vector<std::string> cells);
    void print(std::ostream& out, std::string_view indent = "") const;

private:
    std::vector<std::pair<std::string, Align>> columns_;
    std::vector<std::vector<std::string>> rows_;
};

// Shown text for a path or name: valid UTF-8 as it is, stray bytes as U+FFFD.
std::string shown(std::string_view bytes);
std::string withSeparators(std::int64_t value);

// A live "files · folders · bytes · rate · path" line on stderr, redrawn in place. Does
// nothing unless stderr is a terminal.
class ProgressLine {
public:
    explicit ProgressLine(Context& context) : context_(context) {}
    ~ProgressLine() { clear(); }
    void show(const ScanProgress& progress);
    void show(const std::string& text);
    void clear();

private:
    Context& context_;
    bool drawn_ = false;
};

// A path typed on the command line as an absolute, normalised path (relative to the current
// folder when it does not start with "/").
std::string absolutePath(const std::string& path);

// The scan a command works on: a saved scan file (`--from FILE`) or a fresh scan of PATH with
// a progress line.
ScanResult obtainScan(const Arguments& args, Context& context, const std::string& path);

// "Size on disk"/"Logical size" totals and the N largest children of `folder`.
void printSummary(const ScanResult& scan, NodeId folder, SizeMeasure measure, std::size_t top,
                  std::ostream& out);

} // namespace tarnbridge::cli
