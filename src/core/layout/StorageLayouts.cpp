#include "layout/StorageLayouts.h"

#include <algorithm>
#include <array>
#include <span>
#include <cmath>
#include <limits>

namespace tarnbridge::StorageLayouts {

namespace {

enum class FiniteOnly : bool { no, yes };

std::vector<WeightedItem> usable(const std::vector<WeightedItem>& items, FiniteOnly finite)
{
    std::vector<WeightedItem> out;
    out.reserve(items.size());
    for (const auto& item : items) {
        if (!(item.weight > 0)) // also drops NaN
            continue;
        if (finite == FiniteOnly::yes && !std::isfinite(item.weight))
            continue;
        out.push_back(item);
    }
    std::stable_sort(out.begin(), out.end(),
                     [](const WeightedItem& a, const WeightedItem& b) { return a.weight > b.weight; });
    return out;
}

struct Row {
    std::vector<std::size_t> members;
    double sum = 0;
    double smallest = std::numeric_limits<double>::infinity();
    double largest = 0;
};

double worst(double sum, double smallest, double largest, double side)
{
    if (!(smallest > 0) || !(side > 0))
        return std::numeric_limits<double>::infinity();
    const double side2 = side * side, sum2 = sum * sum;
    return std::max(side2 * largest / sum2, sum2 / (side2 * smallest));
}

} // namespace

std::vector<WeightedRect> treemap(const std::vector<WeightedItem>& items, const LayoutRect& rect)
{
    const auto sorted = usable(items, FiniteOnly::yes);
    if (sorted.empty() || !(rect.width > 0) || !(rect.height > 0))
        return {};
    const double largestWeight = sorted.front().weight;
    double total = 0;
    for (const auto& item : sorted)
        total += item.weight / largestWeight;
    std::vector<double> areas(sorted.size());
    for (std::size_t i = 0; i < sorted.size(); ++i)
        areas[i] = (sorted[i].weight / largestWeight) / total * rect.width * rect.height;

    std::vector<WeightedRect> out;
    out.reserve(sorted.size());
    LayoutRect remaining = rect;
    Row row;

    auto place = [&] {
        const double rowArea = row.sum;
        if (remaining.height <= remaining.width) {
            const double columnWidth = std::min(rowArea / remaining.height, remaining.width);
            double y = remaining.y;
            for (std::size_t k = 0; k < row.members.size(); ++k) {
                const std::size_t i = row.members[k];
                const bool last = k + 1 == row.members.size();
                const double height = last ? remaining.maxY() - y : areas[i] / columnWidth;
                out.push_back({sorted[i].id, {remaining.x, y, columnWidth, std::max(height, 0.0)}});
                y += height;
            }
            remaining.x += columnWidth;
            remaining.width = std::max(remaining.width - columnWidth, 0.0);
        } else {
            const double stripHeight = std::min(rowArea / remaining.width, remaining.height);
            double x = remaining.x;
            for (std::size_t k = 0; k < row.members.size(); ++k) {
                const std::size_t i = row.members[k];
                const bool last = k + 1 == row.members.size();
                const double width = last ? remaining.maxX() - x : areas[i] / stripHeight;
                out.push_back({sorted[i].id, {x, remaining.y, std::max(width, 0.0), stripHeight}});
                x += width;
            }
            remaining.y += stripHeight;
            remaining.height = std::max(remaining.height - stripHeight, 0.0);
        }
        row = Row{};
    };

    for (std::size_t i = 0; i < sorted.size(); ++i) {
        const double side = std::min(remaining.width, remaining.height);
        const double area = areas[i];
        if (!row.members.empty()) {
            const double with = worst(row.sum + area, std::min(row.smallest, area),
                                      std::max(row.largest, area), side);
            const double without = worst(row.sum, row.smallest, row.largest, side);
            if (with > without)
                place();
        }
        row.members.push_back(i);
        row.sum += area;
        row.smallest = std::min(row.smallest, area);
        row.largest = std::max(row.largest, area);
    }
    if (!row.members.empty())
        place();
    return out;
}

std::vector<Bubble> bubbles(const std::vector<WeightedItem>& items, const LayoutRect& rect)
{
    auto sorted = usable(items, FiniteOnly::no);
    if (sorted.empty() || !(rect.width > 0) || !(rect.height > 0))
        return {};
    if (sorted.size() > kCircleLimit)
        sorted.resize(kCircleLimit);
    const double largestWeight = sorted.front().weight;
    const double centerX = rect.x + rect.width / 2, centerY = rect.y + rect.height / 2;
    const double reach = std::hypot(rect.width, rect.height) * 0.5;
    double scale = 0.24 * std::min(rect.width, rect.height);
    std::vector<Bubble> placed;
    for (int attempt = 0; attempt < 18; ++attempt, scale *= 0.86) {
        placed.clear();
        bool complete = true;
        for (const auto& item : sorted) {
            const double radius = scale * std::sqrt(item.weight / largestWeight);
            bool found = false;
            for (int k = 0; k < 4000 && !found; ++k) {
                const double angle = k * 2.399963229728653;
                const double distance = std::sqrt(k / 4000.0) * reach;
                const double x = centerX + std::cos(angle) * distance;
                const double y = centerY + std::sin(angle) * distance;
                if (x - radius < rect.x || x + radius > rect.maxX() || y - radius < rect.y ||
                    y + radius > rect.maxY())
                    continue;
                bool clear = true;
                for (const auto& other : placed) {
                    if (!(radius + other.radius + 5.0 <=
                          std::hypot(x - other.center.x, y - other.center.y))) {
                        clear = false;
                        break;
                    }
                }
                if (clear) {
                    placed.push_back({item.id, {x, y}, radius});
                    found = true;
                }
            }
            if (!found) {
                complete = false;
                break;
            }
        }
        if (complete)
            return placed;
    }
    return {};
}

std::vector<Bubble> circles(const std::vector<WeightedItem>& items, const LayoutPoint& center,
                            double radius, const CancellationFlag* cancellation)
{
    auto sorted = usable(items, FiniteOnly::yes);
    if (sorted.empty() || !(radius > 0))
        return {};
    if (sorted.size() > kCircleLimit)
        sorted.resize(kCircleLimit);
    constexpr double gap = 0.025;
    const double largestWeight = sorted.front().weight;
    struct Unit {
        double x, y, r;
    };
    // At most kCircleLimit circles: a fixed array, no reallocation.
    std::array<Unit, kCircleLimit> slots{};
    std::size_t count = 0;
    auto place = [&](double x, double y, double r) { slots[count++] = {x, y, r}; };
    const auto placed = [&] { return std::span<const Unit>(slots.data(), count); };
    for (const auto& item : sorted) {
        if (cancellation && cancellation->isCancelled())
            return {};
        const double r = std::sqrt(item.weight / largestWeight);
        if (count == 0) {
            place(0, 0, r);
            continue;
        }
        if (count == 1) {
            place(r + slots[0].r + gap, 0, r);
            continue;
        }
        bool haveBest = false;
        double bestX = 0, bestY = 0, bestExtent = std::numeric_limits<double>::infinity();
        for (std::size_t ia = 0; ia < count; ++ia) {
            for (std::size_t ib = ia + 1; ib < count; ++ib) {
                const Unit& a = slots[ia];
                const Unit& b = slots[ib];
                const double dx = b.x - a.x, dy = b.y - a.y;
                const double d = std::hypot(dx, dy);
                const double ra = r + a.r + gap, rb = r + b.r + gap;
                if (!(d > 0) || d > ra + rb || std::fabs(ra - rb) > d)
                    continue;
                const double t = (d * d + ra * ra - rb * rb) / (2 * d);
                const double h = std::sqrt(std::max(ra * ra - t * t, 0.0));
                const double footX = a.x + dx * t / d, footY = a.y + dy * t / d;
                for (const double sign : {-1.0, 1.0}) {
                    const double s = h * sign;
                    const double cx = footX - dy * s / d, cy = footY + dx * s / d;
                    bool valid = true;
                    for (const Unit& c : placed()) {
                        const double need = std::max(r + c.r + gap - 0.00001, 0.0);
                        const double ddx = cx - c.x, ddy = cy - c.y;
                        if (need * need > ddx * ddx + ddy * ddy) {
                            valid = false;
                            break;
                        }
                    }
                    if (!valid)
                        continue;
                    const double extent = r + std::hypot(cx, cy);
                    if (extent < bestExtent) {
                        bestExtent = extent;
                        bestX = cx;
                        bestY = cy;
                        haveBest = true;
                    }
                }
            }
        }
        if (!haveBest) {
            double right = -std::numeric_limits<double>::infinity();
            for (const Unit& c : placed())
                right = std::max(right, c.x + c.r);
            bestX = r + right + gap;
            bestY = 0;
        }
        place(bestX, bestY, r);
    }

    double minX = std::numeric_limits<double>::infinity(), maxX = -minX, minY = minX, maxY = -minX;
    for (const Unit& c : placed()) {
        minX = std::min(minX, c.x - c.r);
        maxX = std::max(maxX, c.x + c.r);
        minY = std::min(minY, c.y - c.r);
        maxY = std::max(maxY, c.y + c.r);
    }
    const double cx = (minX + maxX) / 2, cy = (minY + maxY) / 2;
    double enclosing = 0;
    for (const Unit& c : placed())
        enclosing = std::max(enclosing, c.r + std::hypot(c.x - cx, c.y - cy));
    const double scale = radius / enclosing;
    std::vector<Bubble> out;
    out.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const Unit& c = slots[i];
        out.push_back({sorted[i].id,
                       {center.x + scale * (c.x - cx), center.y + scale * (c.y - cy)},
                       scale * c.r});
    }
    return out;
}

} // namespace tarnbridge::StorageLayouts
