#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <climits>
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
// On a sealed scan this is a radix sort of one number per item that holds the value, then the
// path rank, in as few bits as their ranges need: a handful of linear passes of 11 bits each
// instead of a million comparisons. New memory is first touched inside loops that look at
// the flag every 64K items, since faulting in tens of megabytes can outlast a stop's wait.
template <class Item, class ValueOf, class IdOf>
void sortByNumberWithPathTies(std::vector<Item>& items, const ScanData& scan, bool ascending, ValueOf valueOf,
                              IdOf idOf, const CancellationFlag* cancellation)
{
    auto comparisonSort = [&] {
        sortWithPathTies(
            items, scan,
            [&](const Item& a, const Item& b) {
                return ascending ? valueOf(a) < valueOf(b) : valueOf(a) > valueOf(b);
            },
            idOf, cancellation);
    };
    const std::size_t n = items.size();
    if (!scan.sealed() || n >= (std::size_t(1) << 32)) {
        comparisonSort();
        return;
    }
    auto poll = [cancellation](std::size_t i) {
        if (cancellation && (i & 0xFFFF) == 0)
            cancellation->check();
    };
    std::int64_t least = INT64_MAX, most = INT64_MIN;
    std::uint32_t topRank = 0;
    for (std::size_t i = 0; i < n; ++i) {
        poll(i);
        const std::int64_t v = valueOf(items[i]);
        least = std::min(least, v);
        most = std::max(most, v);
        topRank = std::max(topRank, scan.pathRank(idOf(items[i])));
    }
    const unsigned rankBits = unsigned(std::bit_width(topRank));
    const std::uint64_t span = n ? std::uint64_t(most) - std::uint64_t(least) : 0;
    const unsigned valueBits = unsigned(std::bit_width(span));
    if (valueBits + rankBits > 64) {
        // Values spread over more than 2^40 or so: rare enough for comparisons to do.
        comparisonSort();
        return;
    }
    struct Flat {
        std::uint64_t key;
        std::uint32_t index;
    };
    std::unique_ptr<Flat[]> flat(new Flat[n]), spare(new Flat[n]);
    for (std::size_t i = 0; i < n; ++i) {
        poll(i);
        const std::uint64_t v = std::uint64_t(valueOf(items[i])) - std::uint64_t(least);
        const std::uint64_t value = ascending ? v : span - v;
        flat[i] = {value << rankBits | scan.pathRank(idOf(items[i])), std::uint32_t(i)};
    }
    // Stable passes, least significant digit first. All counts come from one read; a digit that
    // is the same everywhere costs no pass.
    constexpr unsigned bits = 11;
    constexpr std::size_t radix = std::size_t(1) << bits;
    const unsigned digits = (valueBits + rankBits + bits - 1) / bits;
    std::vector<std::array<std::uint32_t, radix>> counts(digits, std::array<std::uint32_t, radix>{});
    for (std::size_t i = 0; i < n; ++i) {
        poll(i);
        for (unsigned d = 0; d < digits; ++d)
            ++counts[d][(flat[i].key >> (bits * d)) & (radix - 1)];
    }
    for (unsigned d = 0; d < digits; ++d) {
        auto& count = counts[d];
        if (std::any_of(count.begin(), count.end(), [&](std::uint32_t c) { return c == n; }))
            continue;
        std::uint32_t offset = 0;
        for (std::uint32_t& c : count)
            offset += std::exchange(c, offset);
        for (std::size_t i = 0; i < n; ++i) {
            poll(i);
            spare[count[(flat[i].key >> (bits * d)) & (radix - 1)]++] = flat[i];
        }
        flat.swap(spare);
    }
    // A gather, not a walk of the permutation's cycles: its reads do not wait on each other.
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
