#include "query/ScanQuery.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "model/Identifiers.h"
#include "model/PathText.h"

namespace tarnbridge {

std::int64_t currentTime()
{
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::string_view rawValue(RankingScope scope)
{
    switch (scope) {
    case RankingScope::current: return "In this folder";
    case RankingScope::files: return "Biggest files anywhere";
    case RankingScope::folders: return "Biggest folders anywhere";
    }
    return {};
}

int comparePaths(const ScanData& scan, NodeId a, NodeId b)
{
    if (a == b)
        return 0;
    // A sealed scan has every path's rank: one integer compare, siblings included.
    if (scan.sealed()) {
        const std::uint32_t ra = scan.pathRank(a), rb = scan.pathRank(b);
        return ra < rb ? -1 : 1;
    }
    if (scan[a].parent == scan[b].parent)
        return PathText::compare(scan.name(a), scan.name(b));
    thread_local std::string left, right;
    left.clear();
    right.clear();
    scan.appendPath(a, left);
    scan.appendPath(b, right);
    return PathText::compare(left, right);
}

namespace {

bool isAscii(std::string_view text)
{
    for (unsigned char c : text)
        if (c >= 0x80)
            return false;
    return true;
}

char lowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? char(c + 32) : c; }

bool asciiContainsIgnoringCase(std::string_view haystack, std::string_view needle)
{
    if (needle.size() > haystack.size())
        return false;
    for (std::size_t i = 0; i + needle.size() <= haystack.size(); ++i) {
        std::size_t k = 0;
        while (k < needle.size() && lowerAscii(haystack[i + k]) == lowerAscii(needle[k]))
            ++k;
        if (k == needle.size())
            return true;
    }
    return false;
}

// Polls a flag every 512 steps, as every long walk does.
struct Poll {
    const CancellationFlag* flag;
    std::uint64_t step = 0;
    void operator()()
    {
        if (flag && (step++ & 511) == 0)
            flag->check();
    }
    void now() const
    {
        if (flag)
            flag->check();
    }
};

} // namespace

bool ScanQuery::nameContains(std::string_view name) const
{
    if (isAscii(text) && isAscii(name))
        return asciiContainsIgnoringCase(name, text);
    // Not cached in the query: one query value may be read by several threads at once.
    return QString::fromUtf8(name.data(), qsizetype(name.size()))
        .contains(QString::fromUtf8(text.data(), qsizetype(text.size())), Qt::CaseInsensitive);
}

bool ScanQuery::matches(const ScanData& scan, NodeId id, std::int64_t now) const
{
    return matches(scan, id, scan[id], now);
}

bool ScanQuery::matches(const ScanData& scan, NodeId id, const NodeRecord& r, std::int64_t now) const
{
    if (r.bytes(measure) < minimumBytes)
        return false;
    // The name lives in another buffer: read it only when a test needs it.
    if (!showHidden || !text.empty() || category) {
        const std::string_view name = scan.name(id);
        if (!showHidden && !name.empty() && name.front() == '.')
            return false;
        if (!text.empty() && !nameContains(name))
            return false;
        if (category && (r.isDirectory() || FileCategory::classify(name) != *category))
            return false;
    }
    if (modifiedBeforeDays == 0)
        return true;
    return double(modifiedBeforeDays) * 86400.0 <= double(now - r.modifiedSeconds);
}

bool ScanQuery::matches(const DiskNode& node, std::int64_t now) const
{
    const std::string_view name = node.name();
    if (!showHidden && !name.empty() && name.front() == '.')
        return false;
    if (!text.empty() && !nameContains(name))
        return false;
    if (node.bytes(measure) < minimumBytes)
        return false;
    if (category && (node.isDirectory || FileCategory::classify(name) != *category))
        return false;
    if (modifiedBeforeDays == 0)
        return true;
    return double(modifiedBeforeDays) * 86400.0 <= double(now - node.modified);
}

void ScanQuery::forEach(const ScanResult& scan, std::string_view focus, bool recursive, std::int64_t now,
                        const std::function<void(NodeId)>& body, const CancellationFlag* cancellation) const
{
    Poll poll{cancellation};
    poll.now();
    const ScanData& d = scan.data();
    std::vector<NodeId> stack;
    const NodeId start = d.find(focus);
    auto pushChildren = [&](NodeId folder) {
        const NodeRecord& r = d[folder];
        for (std::uint32_t i = 0; i < r.childCount; ++i)
            stack.push_back(r.firstChild + i);
    };
    if (start != kNoNode)
        pushChildren(start);
    // The arena is a tree: no record is reached twice and the focus is never below itself, so
    // no visited set is needed.
    while (!stack.empty()) {
        const NodeId id = stack.back();
        stack.pop_back();
        poll();
        if (matches(d, id, now))
            body(id);
        if (recursive)
            pushChildren(id);
    }
    poll.now();
}

std::vector<DiskNode> ScanQuery::items(const ScanResult& scan, std::string_view focus, bool recursive,
                                       std::int64_t now, const CancellationFlag* cancellation) const
{
    std::vector<NodeId> ids;
    forEach(scan, focus, recursive, now, [&](NodeId id) { ids.push_back(id); }, cancellation);
    std::vector<DiskNode> out;
    out.reserve(ids.size());
    for (NodeId id : ids)
        out.push_back(scan->node(id));
    return out;
}

std::vector<std::string> ScanQuery::paths(const ScanResult& scan, std::string_view focus, bool recursive,
                                          const CancellationFlag* cancellation) const
{
    std::vector<std::string> out;
    forEach(scan, focus, recursive, currentTime(), [&](NodeId id) { out.push_back(scan->path(id)); },
            cancellation);
    return out;
}

RankedPage ScanQuery::rankedPage(const ScanResult& scan, std::string_view focus, RankingScope scope,
                                 std::int64_t limit, const CancellationFlag* cancellation) const
{
    Poll poll{cancellation};
    poll.now();
    limit = std::max<std::int64_t>(limit, 0);
    const std::int64_t now = currentTime();
    const ScanData& d = scan.data();
    auto better = [&](NodeId a, NodeId b) {
        const std::int64_t sa = d[a].bytes(measure), sb = d[b].bytes(measure);
        if (sa != sb)
            return sa > sb;
        return comparePaths(d, a, b) < 0;
    };
    // std's heap keeps the greatest under the comparator on top: with `better` as "less",
    // that is the worst row kept, the one a newcomer must beat.
    std::vector<NodeId> heap;
    std::int64_t count = 0;
    // The size of the worst row kept: most records lose to it on size alone, without another
    // look at the heap.
    std::int64_t worstKept = 0;
    // Without name or date tests the filter is one comparison.
    const bool sizeOnly = showHidden && text.empty() && !category && modifiedBeforeDays == 0;
    auto offer = [&](NodeId id, const NodeRecord& r) {
        const bool folder = r.isDirectory();
        if ((scope == RankingScope::files && folder) || (scope == RankingScope::folders && !folder))
            return;
        if (sizeOnly ? r.bytes(measure) < minimumBytes : !matches(d, id, r, now))
            return;
        ++count;
        if (limit < 1)
            return;
        if (std::int64_t(heap.size()) < limit) {
            heap.push_back(id);
            std::push_heap(heap.begin(), heap.end(), better);
        } else if (r.bytes(measure) >= worstKept && better(id, heap.front())) {
            std::pop_heap(heap.begin(), heap.end(), better);
            heap.back() = id;
            std::push_heap(heap.begin(), heap.end(), better);
        } else {
            return;
        }
        if (std::int64_t(heap.size()) == limit)
            worstKept = d[heap.front()].bytes(measure);
    };

    if (scope == RankingScope::current) {
        const NodeId folder = d.empty() ? kNoNode : d.find(focus);
        if (folder != kNoNode) {
            const NodeRecord& r = d[folder];
            for (std::uint32_t i = 0; i < r.childCount; ++i) {
                if ((i + 1) % 512 == 0)
                    poll.now();
                offer(r.firstChild + i, d[r.firstChild + i]);
            }
        }
    } else {
        // Every record but the root, a block of memory at a time.
        for (NodeId id = 1; id < d.size();) {
            poll.now();
            auto run = d.recordsFrom(id);
            run = run.first(std::min<std::size_t>(run.size(), 4096));
            for (const NodeRecord& r : run)
                offer(id++, r);
        }
    }
    poll.now();
    std::sort(heap.begin(), heap.end(), better);
    RankedPage page;
    page.count = count;
    page.rows.reserve(heap.size());
    for (NodeId id : heap)
        page.rows.push_back(d.node(id));
    return page;
}

std::vector<DiskNode> ScanQuery::ranked(const ScanResult& scan, std::string_view focus, RankingScope scope,
                                        const CancellationFlag* cancellation) const
{
    return rankedPage(scan, focus, scope, INT64_MAX, cancellation).rows;
}

std::vector<DiskNode> ScanQuery::items(RankingScope scope, const ScanResult& scan, std::string_view focus,
                                       SizeMeasure measure)
{
    if (scope == RankingScope::current)
        return scan.children(focus, measure);
    const ScanData& d = scan.data();
    std::vector<NodeId> ids;
    for (NodeId id = 1; id < d.size(); ++id)
        if (d[id].isDirectory() == (scope == RankingScope::folders))
            ids.push_back(id);
    sortWithPathTies(
        ids, d, [&](NodeId a, NodeId b) { return d[a].bytes(measure) > d[b].bytes(measure); },
        [](NodeId id) { return id; }, nullptr);
    std::vector<DiskNode> out;
    out.reserve(ids.size());
    for (NodeId id : ids)
        out.push_back(d.node(id));
    return out;
}

} // namespace tarnbridge
