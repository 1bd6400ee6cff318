#pragma once

#include <cstdint>
#include <vector>

#include "model/CancellationFlag.h"

namespace tarnbridge {

struct LayoutPoint {
    double x = 0;
    double y = 0;
    bool operator==(const LayoutPoint&) const = default;
};

struct LayoutRect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
    double maxX() const { return x + width; }
    double maxY() const { return y + height; }
    bool operator==(const LayoutRect&) const = default;
};

// One input item: the caller's identifier (a NodeId, an index…) and its weight.
struct WeightedItem {
    std::uint64_t id = 0;
    double weight = 0;
};

struct WeightedRect {
    std::uint64_t id = 0;
    LayoutRect rect;
};

// Pure geometry for the charts: no knowledge of files. Every function returns its items in
// order of falling weight (equal weights keep their input order) and never fails: unusable
// input gives an empty result.
namespace StorageLayouts {

struct Bubble {
    std::uint64_t id = 0;
    LayoutPoint center;
    double radius = 0;
};

inline constexpr std::size_t kCircleLimit = 60;

// Squarified treemap: tiles `rect` exactly, one rectangle per positive, finite weight.
std::vector<WeightedRect> treemap(const std::vector<WeightedItem>& items, const LayoutRect& rect);

// Non-overlapping circles scattered on a golden-angle spiral, at least 5 points apart, for the
// 60 heaviest items; all of them or none.
std::vector<Bubble> bubbles(const std::vector<WeightedItem>& items, const LayoutRect& rect);

// The 60 heaviest items packed tightly, scaled to fit the circle (center, radius); area stays
// proportional to weight. Empty when `cancellation` is set while it works.
std::vector<Bubble> circles(const std::vector<WeightedItem>& items, const LayoutPoint& center,
                            double radius, const CancellationFlag* cancellation = nullptr);

} // namespace StorageLayouts
} // namespace tarnbridge
