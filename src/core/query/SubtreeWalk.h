#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "model/CancellationFlag.h"
#include "model/ScanResult.h"

namespace tarnbridge {

// The number `forEachBelow` gives a file that lies directly in the top folder.
constexpr std::uint32_t kDirectChild = 0xFFFFFFFFu;

// Calls each(id, record, slot) for every record below `top` (itself left out), where `slot`
// numbers the child folder of `top` that holds the record (the folder itself included), in
// the order of `folders`, or is kDirectChild for a direct child that is no folder. Polls
// `cancellation` and throws when it is set.
template <class Each>
void forEachBelow(const ScanResult& scan, NodeId top, const CancellationFlag* cancellation,
                  std::vector<NodeId>& folders, Each&& each)
{
    const ScanData& d = scan.data();
    const NodeRecord& t = d[top];
    const std::uint64_t below = std::uint64_t(t.fileCount) + t.folderCount;
    const std::uint64_t after = d.size() - top - 1;
    auto slotOfChild = [&](NodeId child, const NodeRecord& r) {
        if (!r.isDirectory())
            return kDirectChild;
        folders.push_back(child);
        return std::uint32_t(folders.size() - 1);
    };
    if (below * 8 >= after) {
        // Most of the arena: one pass in id order. A parent's id is lower than its children's,
        // so each folder's slot is known before its children come; only folders' slots are
        // written and read.
        constexpr std::uint32_t outside = kDirectChild - 1;
        std::unique_ptr<std::uint32_t[]> slots(new std::uint32_t[d.size()]);
        for (NodeId id = top + 1; id < d.size();) {
            if (cancellation)
                cancellation->check();
            // Up to 4096 records at a time, straight from memory.
            auto run = d.recordsFrom(id);
            run = run.first(std::min<std::size_t>(run.size(), 4096));
            for (const NodeRecord& r : run) {
                std::uint32_t slot;
                if (r.parent == top)
                    slot = slotOfChild(id, r);
                else
                    slot = r.parent < top ? outside : slots[r.parent];
                if (r.isDirectory())
                    slots[id] = slot;
                if (slot != outside)
                    each(id, r, slot);
                ++id;
            }
        }
        return;
    }
    // A small part of a large scan: walk just that subtree.
    std::uint64_t step = 0;
    for (std::uint32_t i = 0; i < t.childCount; ++i) {
        const NodeId child = t.firstChild + i;
        const NodeRecord& r = d[child];
        const std::uint32_t slot = slotOfChild(child, r);
        each(child, r, slot);
        if (slot == kDirectChild)
            continue;
        scan.forEachDescendant(child, [&](NodeId id) {
            if (cancellation && (++step & 4095) == 0)
                cancellation->check();
            each(id, d[id], slot);
        });
    }
}

// The same for a walk that needs no slots.
template <class Each>
void forEachBelow(const ScanResult& scan, NodeId top, const CancellationFlag* cancellation, Each&& each)
{
    std::vector<NodeId> folders;
    forEachBelow(scan, top, cancellation, folders,
                 [&](NodeId id, const NodeRecord& r, std::uint32_t) { each(id, r); });
}

} // namespace tarnbridge
