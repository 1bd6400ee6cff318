#pragma once

#include <QString>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/CancellationFlag.h"
#include "model/ScanResult.h"
#include "query/FileCategory.h"

namespace tarnbridge {

// Seconds since the Unix epoch, as the scan's dates are.
std::int64_t currentTime();

// The columns a listing can be ordered by. The two sizes are fixed columns, whatever the
// query measures.
enum class ScanSortField : std::uint8_t { name, allocatedSize, logicalSize, itemCount, kindName, modified };
enum class SortOrder : std::uint8_t { descending, ascending };

// Which records a bounded ranking considers.
enum class RankingScope : std::uint8_t { current, files, folders };
std::string_view rawValue(RankingScope scope); // "In this folder", …

// The best items of a ranking, best first, and how many items passed the query in all.
struct RankedPage {
    std::vector<DiskNode> rows;
    std::int64_t count = 0;
};

// The one filter of every list, table and age summary. Walks work on the scan's arena and
// make a DiskNode only for what they return; every long walk polls `cancellation` every 512
// items and throws CancellationError.
struct ScanQuery {
    std::string text; // a substring the name must contain; case-insensitive, locale-aware
    bool showHidden = true;
    std::int64_t minimumBytes = 0;
    std::optional<FileCategory> category;
    std::int64_t modifiedBeforeDays = 0;
    SizeMeasure measure = SizeMeasure::allocated;

    bool operator==(const ScanQuery& other) const
    {
        return text == other.text && showHidden == other.showHidden &&
               minimumBytes == other.minimumBytes && category == other.category &&
               modifiedBeforeDays == other.modifiedBeforeDays && measure == other.measure;
    }

    bool matches(const DiskNode& node, std::int64_t now) const;
    bool matches(const ScanData& scan, NodeId id, std::int64_t now) const;
    bool matches(const ScanData& scan, NodeId id, const NodeRecord& record, std::int64_t now) const;

    // Every passing record below `focus` (itself never), depth first, last child first; a
    // folder that fails still has its contents searched.
    void forEach(const ScanResult& scan, std::string_view focus, bool recursive, std::int64_t now,
                 const std::function<void(NodeId)>& body, const CancellationFlag* cancellation = nullptr) const;
    // What a recursive forEach below `start` visits, in id order instead: for callers that sum
    // or sort what they get, whose visiting order does not show. One pass over the arena when
    // `start` holds much of it.
    template <class Body>
    void forEachBelowInIdOrder(const ScanResult& scan, NodeId start, std::int64_t now,
                               const CancellationFlag* cancellation, Body&& body) const
    {
        if (cancellation)
            cancellation->check();
        const ScanData& d = scan.data();
        forEachBelow(scan, start, cancellation, [&](NodeId id, const NodeRecord& r) {
            if (matches(d, id, r, now))
                body(id, r);
        });
    }
    std::vector<DiskNode> items(const ScanResult& scan, std::string_view focus, bool recursive,
                                std::int64_t now, const CancellationFlag* cancellation = nullptr) const;
    std::vector<std::string> paths(const ScanResult& scan, std::string_view focus, bool recursive,
                                   const CancellationFlag* cancellation = nullptr) const;

    // The `limit` biggest passing items of the scope (ties by path), with a bounded heap: no
    // copy or sort of all records.
    RankedPage rankedPage(const ScanResult& scan, std::string_view focus, RankingScope scope,
                          std::int64_t limit, const CancellationFlag* cancellation = nullptr) const;
    std::vector<DiskNode> ranked(const ScanResult& scan, std::string_view focus, RankingScope scope,
                                 const CancellationFlag* cancellation = nullptr) const;

    // The passing records below `focus`, ordered by one column; ties always in ascending path
    // order. Names compare as a file manager does ("file2" before "file10", any case).
    std::vector<NodeId> sortedIds(const ScanResult& scan, std::string_view focus, bool recursive,
                                  ScanSortField field, SortOrder order,
                                  const CancellationFlag* cancellation = nullptr) const;
    std::vector<std::string> sortedPaths(const ScanResult& scan, std::string_view focus, bool recursive,
                                         ScanSortField field, SortOrder order,
                                         const CancellationFlag* cancellation = nullptr) const;

    // Everything of a scope, unfiltered, biggest first (ties by path).
    static std::vector<DiskNode> items(RankingScope scope, const ScanResult& scan, std::string_view focus,
                                       SizeMeasure measure);

private:
    bool nameContains(std::string_view name) const;
};

// Plain path order (PathText::compare) between two records of one scan. Siblings compare by
// name; others by their whole paths, built only then.
int comparePaths(const ScanData& scan, NodeId a, NodeId b);

// Sorts `items` by `before` (a strict order on their values), ties in plain path order: by
// the scan's path ranks once it is sealed, else by paths built once per tied item. `idOf`
// gives an item's NodeId. Polls `cancellation` every 1024 comparisons.
template <class Item, class Before, class IdOf>
void sortWithPathTies(std::vector<Item>& items, const ScanData& scan, Before before, IdOf idOf,
                      const CancellationFlag* cancellation);

} // namespace tarnbridge

#include "query/SortWithPathTies.h"
#include "query/SubtreeWalk.h"
