#include <gtest/gtest.h>

#include <QFontMetricsF>

#include <cmath>
#include <limits>

#include "visual/ChartText.h"
#include "visual/RectSpatialIndex.h"

using namespace tarnbridge;

TEST(RectSpatialIndex, PointsOnEdgesFindEveryRectangleLatestFirst)
{
    RectSpatialIndex index(64);
    const int left = index.insert(QRectF(0, 0, 100, 50));
    const int right = index.insert(QRectF(100, 0, 100, 50)); // shares the edge x = 100
    const int far = index.insert(QRectF(-300, -300, 10, 10));
    EXPECT_EQ(index.candidates(QPointF(100, 25)), (std::vector<int>{right, left}));
    EXPECT_EQ(index.candidates(QPointF(0, 0)), (std::vector<int>{left}));
    EXPECT_EQ(index.candidates(QPointF(200, 50)), (std::vector<int>{right}));
    EXPECT_TRUE(index.candidates(QPointF(200.01, 50)).empty());
    // Negative coordinates floor towards negative infinity.
    EXPECT_EQ(index.candidates(QPointF(-295, -291)), (std::vector<int>{far}));
    EXPECT_TRUE(index.candidates(QPointF(std::nan(""), 10)).empty());
}

TEST(RectSpatialIndex, TouchingIsNoOverlap)
{
    RectSpatialIndex index(64);
    index.insert(QRectF(0, 0, 100, 50));
    EXPECT_FALSE(index.intersects(QRectF(100, 0, 30, 30)));  // touching on the right
    EXPECT_FALSE(index.intersects(QRectF(0, 50, 30, 30)));   // touching below
    EXPECT_TRUE(index.intersects(QRectF(99.5, 49.5, 30, 30))); // a sliver of overlap
    EXPECT_TRUE(index.intersects(QRectF(10, 10, 1, 1)));      // inside
    EXPECT_FALSE(index.intersects(QRectF(500, 500, 10, 10)));
    EXPECT_FALSE(index.intersects(QRectF(10, 10, 0, 0)));     // empty intersects nothing
}

TEST(RectSpatialIndex, UnusableRectanglesKeepTheirNumberButAreNeverFound)
{
    RectSpatialIndex index(0); // raised to 1
    EXPECT_EQ(index.cellSize(), 1);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    EXPECT_EQ(index.insert(QRectF(5, 5, 0, 0)), 0);
    EXPECT_EQ(index.insert(QRectF(nan, 0, 10, 10)), 1);
    EXPECT_EQ(index.insert(QRectF(0, 0, inf, 10)), 2);
    EXPECT_EQ(index.insert(QRectF(2, 2, 4, 4)), 3);
    EXPECT_EQ(index.candidates(QPointF(5, 5)), (std::vector<int>{3}));
    EXPECT_TRUE(index.candidates(QPointF(1, 1)).empty());
    EXPECT_FALSE(index.intersects(QRectF(0, 0, 1.5, 1.5)));
    EXPECT_EQ(index.rectangles().size(), 4u);
}

TEST(ChartText, FitKeepsBothEndsAroundTheEllipsis)
{
    const QString name = QStringLiteral("a-very-long-file-name.txt");
    const QFontMetricsF metrics(ChartText::font(11, true));
    EXPECT_EQ(ChartText::fit(name, metrics.horizontalAdvance(name), 11), name);

    const double width = metrics.horizontalAdvance(name) * 0.55;
    const QString fitted = ChartText::fit(name, width, 11);
    ASSERT_TRUE(fitted.contains(QStringLiteral("…"))) << fitted.toStdString();
    EXPECT_LE(metrics.horizontalAdvance(fitted), width);
    const qsizetype cut = fitted.indexOf(QStringLiteral("…"));
    const QString head = fitted.left(cut), tail = fitted.mid(cut + 1);
    EXPECT_TRUE(name.startsWith(head));
    EXPECT_TRUE(name.endsWith(tail));
    EXPECT_TRUE(tail.endsWith(QStringLiteral(".txt")));
    // The start takes the odd character, and one more character would not fit.
    EXPECT_TRUE(head.size() == tail.size() || head.size() == tail.size() + 1);
    const qsizetype kept = head.size() + tail.size();
    const QString longer = name.left((kept + 2) / 2) + QStringLiteral("…") + name.right((kept + 1) / 2);
    EXPECT_GT(metrics.horizontalAdvance(longer), width);

    EXPECT_EQ(ChartText::fit(name, metrics.horizontalAdvance(QStringLiteral("…")) - 0.5, 11), QString());
    EXPECT_EQ(ChartText::fit(name, metrics.horizontalAdvance(QStringLiteral("…")), 11), QStringLiteral("…"));
}

TEST(ChartText, NeverSplitsACharacterMadeOfSeveralCodePoints)
{
    // "e" + combining acute, twenty times: every kept piece must hold whole pairs.
    QString name;
    for (int i = 0; i < 20; ++i)
        name += QStringLiteral("e\u0301");
    const QFontMetricsF metrics(ChartText::font(9, true));
    for (double width = 10; width < metrics.horizontalAdvance(name); width += 7) {
        const QString fitted = ChartText::fit(name, width, 9);
        const qsizetype cut = fitted.indexOf(QStringLiteral("…"));
        if (cut < 0)
            continue;
        EXPECT_EQ(cut % 2, 0) << width;
        EXPECT_EQ((fitted.size() - cut - 1) % 2, 0) << width;
        EXPECT_NE(fitted.mid(cut + 1, 1), QStringLiteral("\u0301"));
    }
}
