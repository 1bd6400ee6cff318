#include "visual/RectSpatialIndex.h"

#include <algorithm>
#include <cmath>

namespace tarnbridge {

RectSpatialIndex::RectSpatialIndex(double cellSize) : cellSize_(cellSize >= 1 ? cellSize : 1) {}

bool RectSpatialIndex::isValid(const QRectF& r)
{
    return !r.isNull() && !r.isEmpty() && std::isfinite(r.left()) && std::isfinite(r.right()) &&
           std::isfinite(r.top()) && std::isfinite(r.bottom());
}

std::int64_t RectSpatialIndex::cellOf(double coordinate) const
{
    return std::int64_t(std::floor(coordinate / cellSize_));
}

int RectSpatialIndex::insert(const QRectF& input)
{
    const QRectF rect = input.normalized();
    const int number = int(rectangles_.size());
    rectangles_.push_back(rect);
    if (!isValid(rect))
        return number;
    for (std::int64_t y = cellOf(rect.top()); y <= cellOf(rect.bottom()); ++y)
        for (std::int64_t x = cellOf(rect.left()); x <= cellOf(rect.right()); ++x)
            cells_[{x, y}].push_back(number);
    return number;
}

std::vector<int> RectSpatialIndex::candidates(const QPointF& p) const
{
    std::vector<int> out;
    if (!std::isfinite(p.x()) || !std::isfinite(p.y()))
        return out;
    const auto cell = cells_.find({cellOf(p.x()), cellOf(p.y())});
    if (cell == cells_.end())
        return out;
    for (int number : cell->second) {
        const QRectF& r = rectangles_[std::size_t(number)];
        if (r.left() <= p.x() && p.x() <= r.right() && r.top() <= p.y() && p.y() <= r.bottom())
            out.push_back(number);
    }
    std::reverse(out.begin(), out.end());
    return out;
}

bool RectSpatialIndex::intersects(const QRectF& input) const
{
    const QRectF rect = input.normalized();
    if (!isValid(rect))
        return false;
    for (std::int64_t y = cellOf(rect.top()); y <= cellOf(rect.bottom()); ++y)
        for (std::int64_t x = cellOf(rect.left()); x <= cellOf(rect.right()); ++x) {
            const auto cell = cells_.find({x, y});
            if (cell == cells_.end())
                continue;
            for (int number : cell->second) {
                const QRectF& r = rectangles_[std::size_t(number)];
                // A real overlap: touching edges share no area.
                if (r.left() < rect.right() && rect.left() < r.right() && r.top() < rect.bottom() &&
                    rect.top() < r.bottom())
                    return true;
            }
        }
    return false;
}

} // namespace tarnbridge
