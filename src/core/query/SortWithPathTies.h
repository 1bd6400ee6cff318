#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <utility>
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


// Sorts `items` by an integer (`valueOf`), ascending or descending, ties in plain path order.
// On a sealed scan this is a radix sort of (value, path rank) pairs: a handful of linear passes
// instead of a million comparisons. New memory is first touched inside loops that look at the
// flag every 64K items, since faulting in tens of megabytes can outlast a stop's wait.
template <class Item, class ValueOf, class IdOf>
void sortByNumberWithPathTies(std::vector<Item>& items, const ScanData& scan, bool ascending, ValueOf valueOf,
                              IdOf idOf, const CancellationFlag* cancellation)
{
    if (!scan.sealed() || items.size() >= (std::size_t(1) << 32)) {
        sortWithPathTies(
            items, scan,
            [&](const Item& a, const Item& b) {
                return ascending ? valueOf(a) < valueOf(b) : valueOf(a) > valueOf(b);
            },
            idOf, cancellation);
        return;
    }
    struct Flat {
        std::uint64_t key;
        std::uint32_t rank;
        std::uint32_t index;
    };
    const std::size_t n = items.size();
    auto poll = [cancellation](std::size_t i) {
        if (cancellation && (i & 0xFFFF) == 0)
            cancellation->check();
    };
    std::unique_ptr<Flat[]> flat(new Flat[n]), spare(new Flat[n]);
    for (std::size_t i = 0; i < n; ++i) {
        poll(i);
        const std::uint64_t biased = std::uint64_t(std::int64_t(valueOf(items[i]))) ^ (std::uint64_t(1) << 63);
        flat[i] = {ascending ? biased : ~biased, scan.pathRank(idOf(items[i])), std::uint32_t(i)};
    }
    // Stable byte passes, least significant first: the rank's four bytes, then the key's
    // eight. All counts come from one read; a byte that is the same everywhere costs no pass.
    auto digit = [](const Flat& row, unsigned d) {
        return d < 4 ? std::size_t((row.rank >> (8 * d)) & 0xFF) : std::size_t((row.key >> (8 * (d - 4))) & 0xFF);
    };
    std::vector<std::array<std::size_t, 256>> counts(12, std::array<std::size_t, 256>{});
    for (std::size_t i = 0; i < n; ++i) {
        poll(i);
        for (unsigned d = 0; d < 12; ++d)
            ++counts[d][digit(flat[i], d)];
    }
    for (unsigned d = 0; d < 12; ++d) {
        auto& count = counts[d];
        if (std::any_of(count.begin(), count.end(), [&](std::size_t c) { return c == n; }))
            continue;
        std::size_t offset = 0;
        for (std::size_t& c : count)
            offset += std::exchange(c, offset);
        for (std::size_t i = 0; i < n; ++i) {
            poll(i);
            spare[count[digit(flat[i], d)]++] = flat[i];
        }
        flat.swap(spare);
    }
    std::vector<Item> sorted;
    sorted.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        poll(i);
        sorted.push_back(std::move(items[flat[i].index]));
    }
    items.swap(sorted);
    if (cancellation)
        cancellation->check();
}

} // namespace tarnbridge
