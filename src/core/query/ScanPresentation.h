#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "model/CancellationFlag.h"
#include "model/ScanResult.h"
#include "query/FileCategory.h"

namespace tarnbridge {

// Facts about one record that lists and charts show.
std::int64_t itemCount(const NodeRecord& record);
bool isPackage(const ScanData& scan, NodeId id);
std::string_view kindName(const ScanData& scan, NodeId id);
// The freedesktop icon name for the record ("folder", "video-x-generic", …).
std::string_view chartSymbol(const ScanData& scan, NodeId id);

// Bytes of files by category; a category nothing was added to has no key.
struct FileTypeTotals {
    std::map<FileCategory::Value, std::int64_t> allocated;
    std::map<FileCategory::Value, std::int64_t> logical;

    void add(const NodeRecord& record, FileCategory category);
    const std::map<FileCategory::Value, std::int64_t>& values(SizeMeasure measure) const
    {
        return measure == SizeMeasure::logical ? logical : allocated;
    }
    bool operator==(const FileTypeTotals&) const = default;
};

struct TypeDistribution {
    FileTypeTotals total;
    std::map<std::string, FileTypeTotals> folders; // by direct child folder of the focus
};

// Type totals below `focus`, and per child folder that holds a file anywhere below it.
// A cancelled flag gives an empty result, never partial sums.
TypeDistribution distribution(const ScanResult& scan, std::string_view focus,
                              const CancellationFlag* cancellation = nullptr);

enum class QuickWinKind : std::uint8_t {
    downloads, caches, simulators, media, dependencies, builds, derivedData, virtualMachines,
    android, installers, trash, mail
};

struct QuickWinInfo {
    std::string_view rawValue;
    std::string_view symbol;
    std::string_view explanation;
};
const QuickWinInfo& info(QuickWinKind kind);
const std::vector<QuickWinKind>& allQuickWinKinds();

// A suggestion of well-known clutter: the outermost matches of one kind, biggest first.
struct QuickWin {
    QuickWinKind kind;
    std::vector<DiskNode> nodes;
    std::int64_t bytes() const; // always the allocated measure

    // One result per kind, in kind order, empty ones included.
    static std::vector<QuickWin> discover(const ScanResult& scan);
    // The records none of whose ancestors is among them, in plain path order.
    static std::vector<DiskNode> topmost(const std::vector<DiskNode>& nodes);
};

// What a finished scan shows beside its views, computed once.
struct ScanPresentation {
    FileTypeTotals types;
    std::map<std::string, FileTypeTotals> folderTypes;
    std::vector<QuickWin> quickWins;
    std::int64_t uniqueQuickWinBytes = 0;

    static ScanPresentation make(const ScanResult& scan, const CancellationFlag* cancellation = nullptr);
};

} // namespace tarnbridge
