#pragma once

#include <QPointF>
#include <QRectF>

#include <cstdint>
#include <unordered_map>
#include <vector>

namespace tarnbridge {

// A uniform grid over rectangles: what lies under a point, and whether anything overlaps a
// rectangle. Rectangles are numbered in insertion order; an unusable one (empty, NaN, infinite)
// keeps its number but is never found.
class RectSpatialIndex {
public:
    explicit RectSpatialIndex(double cellSize = 64);

    int insert(const QRectF& rect);
    // Numbers of the rectangles containing the point, edges included, the latest first.
    std::vector<int> candidates(const QPointF& point) const;
    // A real overlap with any stored rectangle; touching edges do not count.
    bool intersects(const QRectF& rect) const;

    double cellSize() const { return cellSize_; }
    const std::vector<QRectF>& rectangles() const { return rectangles_; }

    static bool isValid(const QRectF& rect);

private:
    struct Cell {
        std::int64_t x, y;
        bool operator==(const Cell&) const = default;
    };
    struct CellHash {
        std::size_t operator()(const Cell& c) const
        {
            return std::hash<std::int64_t>()(c.x * 0x9E3779B97F4A7C15ll ^ c.y);
        }
    };
    std::int64_t cellOf(double coordinate) const;

    double cellSize_;
    std::vector<QRectF> rectangles_;
    std::unordered_map<Cell, std::vector<int>, CellHash> cells_;
};

} // namespace tarnbridge
