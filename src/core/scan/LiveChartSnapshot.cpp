#include "scan/LiveChartSnapshot.h"

#include <algorithm>
#include <chrono>
#include <deque>

#include "model/PathText.h"

namespace tarnbridge::LiveChartSnapshot {

namespace {

std::int64_t weight(const NodeRecord& r) { return std::max(r.logicalSize, r.allocatedSize); }

} // namespace

Snapshot make(const ScanData& nodes, std::string_view root, std::size_t limit, int depth,
              std::size_t fanout)
{
    return make(nodes, nodes.empty() ? kNoNode : nodes.find(root), limit, depth, fanout);
}

Snapshot make(const ScanData& nodes, NodeId root, std::size_t limit, int depth, std::size_t fanout)
{
    if (nodes.empty() || root == kNoNode || root >= nodes.size() || limit < 1)
        return {};

    // "Better" = heavier, then earlier path. Siblings share a parent, so names decide ties.
    auto better = [&nodes](NodeId a, NodeId b) {
        const auto wa = weight(nodes[a]), wb = weight(nodes[b]);
        if (wa != wb)
            return wa > wb;
        return PathText::compare(nodes.name(a), nodes.name(b)) < 0;
    };

    auto out = std::make_shared<ScanData>();
    out->id = QUuid::createUuid();
    out->scannedAt = std::chrono::duration<double>(
                         std::chrono::system_clock::now().time_since_epoch())
                         .count();
    out->addRoot(nodes.path(root), nodes[root]);
    bool limited = false;

    struct Entry {
        NodeId source;
        NodeId copy;
        int level;
    };
    std::deque<Entry> queue{{root, ScanData::rootId, 0}};
    std::vector<NodeId> heap;
    while (!queue.empty()) {
        const Entry entry = queue.front();
        queue.pop_front();
        const NodeRecord& node = nodes[entry.source];
        const std::size_t size = out->size();
        const std::size_t remaining = limit > size ? limit - size : 0;
        if (entry.level >= depth || remaining == 0) {
            if (node.childCount > 0)
                limited = true;
            continue;
        }
        const std::size_t capacity = std::min(remaining, fanout);
        // Bounded heap of the best `capacity` children; its top is the worst one kept.
        heap.clear();
        for (std::uint32_t i = 0; i < node.childCount && capacity > 0; ++i) {
            const NodeId child = node.firstChild + i;
            if (heap.size() < capacity) {
                heap.push_back(child);
                std::push_heap(heap.begin(), heap.end(), better);
            } else if (better(child, heap.front())) {
                std::pop_heap(heap.begin(), heap.end(), better);
                heap.back() = child;
                std::push_heap(heap.begin(), heap.end(), better);
            }
        }
        if (heap.size() < node.childCount)
            limited = true;
        std::sort(heap.begin(), heap.end(), better);
        for (NodeId child : heap) {
            const NodeId copy = out->append(entry.copy, nodes[child], nodes.name(child));
            if (nodes[child].isDirectory())
                queue.push_back({child, copy, entry.level + 1});
        }
    }
    out->seal();
    return {ScanResult(std::move(out)), limited};
}

} // namespace tarnbridge::LiveChartSnapshot
