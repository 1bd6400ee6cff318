#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "layout/StorageLayouts.h"

using namespace tarnbridge;
using namespace tarnbridge::StorageLayouts;

namespace {

std::vector<WeightedItem> randomItems(std::mt19937_64& rng, std::size_t count)
{
    std::lognormal_distribution<double> size(10, 3);
    std::vector<WeightedItem> items;
    for (std::size_t i = 0; i < count; ++i)
        items.push_back({i, std::floor(size(rng)) + 1});
    return items;
}

double area(const LayoutRect& r) { return r.width * r.height; }

bool overlaps(const LayoutRect& a, const LayoutRect& b)
{
    const double eps = 1e-6;
    return a.x + eps < b.maxX() && b.x + eps < a.maxX() && a.y + eps < b.maxY() && b.y + eps < a.maxY();
}

} // namespace

TEST(Treemap, DropsUnusableWeightsAndDegenerateRectangles)
{
    const double nan = std::nan(""), inf = std::numeric_limits<double>::infinity();
    const std::vector<WeightedItem> items{{1, 0}, {2, -4}, {3, nan}, {4, inf}, {5, 10}};
    const auto rects = treemap(items, {0, 0, 100, 50});
    ASSERT_EQ(rects.size(), 1u);
    EXPECT_EQ(rects[0].id, 5u);
    EXPECT_EQ(rects[0].rect, (LayoutRect{0, 0, 100, 50})); // one item fills it exactly
    EXPECT_TRUE(treemap(items, {0, 0, 0, 50}).empty());
    EXPECT_TRUE(treemap(items, {0, 0, 50, -1}).empty());
    EXPECT_TRUE(treemap({}, {0, 0, 50, 50}).empty());
}

TEST(Treemap, RowsGrowOnTiesAndASquareGetsAColumn)
{
    // Equal weights tie on the aspect test, so both join one row; in a square the row is a
    // column at the left edge, filled top down in input order.
    const auto rects = treemap({{7, 3}, {8, 3}}, {0, 0, 100, 100});
    ASSERT_EQ(rects.size(), 2u);
    EXPECT_EQ(rects[0].id, 7u);
    EXPECT_EQ(rects[0].rect, (LayoutRect{0, 0, 100, 50}));
    EXPECT_EQ(rects[1].id, 8u);
    EXPECT_EQ(rects[1].rect, (LayoutRect{0, 50, 100, 50}));
    // A wide rectangle takes a column, a tall one a strip along the top.
    const auto wide = treemap({{1, 1}, {2, 1}, {3, 2}}, {0, 0, 400, 100});
    EXPECT_EQ(wide[0].id, 3u);
    EXPECT_EQ(wide[0].rect, (LayoutRect{0, 0, 200, 100}));
    const auto tall = treemap({{1, 1}, {2, 1}, {3, 2}}, {0, 0, 100, 400});
    EXPECT_EQ(tall[0].rect, (LayoutRect{0, 0, 100, 200}));
}

TEST(Treemap, TilesTheRectangleExactlyForRandomInputs)
{
    std::mt19937_64 rng(42);
    for (int round = 0; round < 40; ++round) {
        const auto items = randomItems(rng, 1 + rng() % 300);
        const LayoutRect frame{13.5, -7, 400 + double(rng() % 1200), 1 + double(rng() % 900)};
        const auto rects = treemap(items, frame);
        ASSERT_EQ(rects.size(), items.size());
        double total = 0;
        double previousWeight = std::numeric_limits<double>::infinity();
        std::uint64_t previousId = 0;
        for (const auto& r : rects) {
            EXPECT_GE(r.rect.width, 0);
            EXPECT_GE(r.rect.height, 0);
            EXPECT_GE(r.rect.x, frame.x - 1e-9);
            EXPECT_GE(r.rect.y, frame.y - 1e-9);
            EXPECT_LE(r.rect.maxX(), frame.maxX() + 1e-6);
            EXPECT_LE(r.rect.maxY(), frame.maxY() + 1e-6);
            total += area(r.rect);
            const double weight = items[r.id].weight;
            EXPECT_LE(weight, previousWeight); // falling weight
            if (weight == previousWeight) {
                EXPECT_GT(r.id, previousId); // ties keep their input order
            }
            previousWeight = weight;
            previousId = r.id;
        }
        EXPECT_NEAR(total, area(frame), area(frame) * 1e-9);
        for (std::size_t i = 0; i < rects.size(); ++i)
            for (std::size_t j = i + 1; j < rects.size(); ++j)
                ASSERT_FALSE(overlaps(rects[i].rect, rects[j].rect)) << i << " " << j;
    }
}

TEST(Bubbles, KeepTheirGapStayInsideAndLimitToSixty)
{
    std::mt19937_64 rng(7);
    auto items = randomItems(rng, 61);
    items[60].weight = 0.5; // the lightest, the one left out
    std::vector<WeightedItem> finite = items;
    items.push_back({100, std::nan("")});
    items.push_back({101, 0});
    const LayoutRect frame{0, 0, 1600, 1000};
    const auto spread = bubbles(items, frame);
    ASSERT_EQ(spread.size(), 60u);
    for (std::size_t i = 0; i < spread.size(); ++i) {
        const auto& a = spread[i];
        EXPECT_LT(a.id, 60u) << "the lightest, NaN and 0 are left out";
        EXPECT_GE(a.center.x - a.radius, frame.x);
        EXPECT_LE(a.center.x + a.radius, frame.maxX());
        EXPECT_GE(a.center.y - a.radius, frame.y);
        EXPECT_LE(a.center.y + a.radius, frame.maxY());
        for (std::size_t j = i + 1; j < spread.size(); ++j) {
            const auto& b = spread[j];
            EXPECT_GE(std::hypot(a.center.x - b.center.x, a.center.y - b.center.y), a.radius + b.radius + 5.0);
        }
        // Area proportional to weight: r² / w is the same for all.
        EXPECT_NEAR(a.radius * a.radius / finite[a.id].weight,
                    spread[0].radius * spread[0].radius / finite[spread[0].id].weight,
                    1e-9 * spread[0].radius * spread[0].radius / finite[spread[0].id].weight);
    }
    // Far too many for a tiny frame: all or nothing.
    EXPECT_TRUE(bubbles(finite, {0, 0, 12, 12}).empty());
}

TEST(Circles, PackInsideTheGivenCircleWithExactAreas)
{
    const auto one = circles({{4, 9}}, {50, 60}, 30);
    ASSERT_EQ(one.size(), 1u);
    EXPECT_DOUBLE_EQ(one[0].center.x, 50);
    EXPECT_DOUBLE_EQ(one[0].center.y, 60);
    EXPECT_DOUBLE_EQ(one[0].radius, 30);

    const auto two = circles({{1, 4}, {2, 1}}, {0, 0}, 100);
    ASSERT_EQ(two.size(), 2u);
    const double scale = two[0].radius; // the heaviest has unit radius 1
    const double distance = std::hypot(two[0].center.x - two[1].center.x, two[0].center.y - two[1].center.y);
    EXPECT_NEAR(distance - two[0].radius - two[1].radius, 0.025 * scale, 1e-9);
    EXPECT_NEAR(two[1].radius / two[0].radius, 0.5, 1e-12);

    std::mt19937_64 rng(3);
    auto items = randomItems(rng, 75);
    const auto packed = circles(items, {500, 400}, 300);
    ASSERT_EQ(packed.size(), 60u);
    const double unit = packed[0].radius;
    for (std::size_t i = 0; i < packed.size(); ++i) {
        const auto& a = packed[i];
        EXPECT_LE(std::hypot(a.center.x - 500, a.center.y - 400) + a.radius, 300 + 1e-6);
        EXPECT_NEAR(a.radius / unit, std::sqrt(items[a.id].weight / items[packed[0].id].weight), 1e-9);
        for (std::size_t j = i + 1; j < packed.size(); ++j) {
            const auto& b = packed[j];
            const double gap = std::hypot(a.center.x - b.center.x, a.center.y - b.center.y) - a.radius - b.radius;
            EXPECT_GE(gap, 0.025 * unit - 0.0001 * unit) << i << " " << j;
        }
    }
    EXPECT_TRUE(circles(items, {0, 0}, 0).empty());
    CancellationFlag cancelled;
    cancelled.cancel();
    EXPECT_TRUE(circles(items, {0, 0}, 10, &cancelled).empty());
}
