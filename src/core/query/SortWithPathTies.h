#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "model/PathText.h"
#include "query/ScanQuery.h"

namespace tarnbridge {

template <class Item, class Before, class IdOf>
void sortWithPathTies(std::vector<Item>& items, const ScanData& scan, Before before, IdOf idOf,
                      const CancellationFlag* cancellation)
{
    std::uint64_t comparisons = 0;
    auto poll = [&] {
        if (cancellation && (++comparisons & 1023) == 0)
            cancellation->check();
    };
    if (scan.sealed()) {
        // Path ranks make the tie-break an integer compare.
        std::sort(items.begin(), items.end(), [&](const Item& a, const Item& b) {
            poll();
            if (before(a, b))
                return true;
            if (before(b, a))
                return false;
            return scan.pathRank(idOf(a)) < scan.pathRank(idOf(b));
        });
        if (cancellation)
            cancellation->check();
        return;
    }
    std::sort(items.begin(), items.end(), [&](const Item& a, const Item& b) {
        poll();
        return before(a, b);
    });
    // Runs of equal values: order them by path, building each path once.
    std::vector<std::pair<std::string, Item>> run;
    for (std::size_t start = 0; start < items.size();) {
        std::size_t end = start + 1;
        while (end < items.size() && !before(items[start], items[end]))
            ++end;
        if (end - start > 1) {
            run.clear();
            for (std::size_t i = start; i < end; ++i)
                run.emplace_back(scan.path(idOf(items[i])), items[i]);
            std::sort(run.begin(), run.end(), [&](const auto& a, const auto& b) {
                poll();
                return PathText::compare(a.first, b.first) < 0;
            });
            for (std::size_t i = start; i < end; ++i)
                items[i] = run[i - start].second;
        }
        start = end;
    }
    if (cancellation)
        cancellation->check();
}

} // namespace tarnbridge
