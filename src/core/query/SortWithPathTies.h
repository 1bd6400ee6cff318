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
// path rank, in as few bits as their ranges need: a handful of linear passes of a byte each
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
    // Each value is read once (for rows of ids that is a record far away in memory), as an
    // unsigned number in the same order, beside its path rank.
    struct Flat {
        std::uint64_t key;
        std::uint32_t rank;
        std::uint32_t index;
    };
    std::unique_ptr<Flat[]> flat(new Flat[n]), spare(new Flat[n]);
    std::uint64_t least = UINT64_MAX, most = 0;
    std::uint32_t topRank = 0;
    for (std::size_t i = 0; i < n; ++i) {
        poll(i);
        const std::uint64_t value = std::uint64_t(std::int64_t(valueOf(items[i]))) ^ (std::uint64_t(1) << 63);
        const std::uint32_t rank = scan.pathRank(idOf(items[i]));
        flat[i] = {value, rank, std::uint32_t(i)};
        least = std::min(least, value);
        most = std::max(most, value);
        topRank = std::max(topRank, rank);
    }
    const unsigned rankBits = unsigned(std::bit_width(topRank));
    const std::uint64_t span = n ? most - least : 0;
    const unsigned valueBits = unsigned(std::bit_width(span));
    if (valueBits + rankBits > 64) {
        // Values spread over more than 2^40 or so: rare enough for comparisons to do.
        comparisonSort();
        return;
    }
    // Stable passes, least significant digit first. One key holds the value's offset in its
    // range, then the rank, so ties go by path. All counts come from the pass that makes the
    // keys; a digit that is the same everywhere costs no pass.
    constexpr unsigned bits = 8;
    constexpr std::size_t radix = std::size_t(1) << bits;
    const unsigned digits = (valueBits + rankBits + bits - 1) / bits;
    std::vector<std::array<std::uint32_t, radix>> counts(digits, std::array<std::uint32_t, radix>{});
    for (std::size_t i = 0; i < n; ++i) {
        poll(i);
        const std::uint64_t offset = ascending ? flat[i].key - least : most - flat[i].key;
        flat[i].key = offset << rankBits | flat[i].rank;
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
