#include <gtest/gtest.h>

#include "scan/DiskScanner.h"
#include "scan/LiveChartSnapshot.h"
#include "support/FakeScan.h"

using namespace tarnbridge;
using tarnbridge::test::FakeEntry;
using tarnbridge::test::fakeScan;

TEST(LiveChartSnapshot, LimitAndDepthZeroKeepOnlyTheRoot)
{
    const ScanResult scan = fakeScan("/r", {{"a", 1}, {"b", 2}});
    for (auto [limit, depth] : {std::pair{std::size_t(1), 8}, std::pair{std::size_t(100), 0}}) {
        const auto snap = LiveChartSnapshot::make(scan.data(), "/r", limit, depth, 48);
        EXPECT_EQ(snap.scan.nodeCount(), 1u);
        EXPECT_TRUE(snap.limited);
        EXPECT_EQ(snap.scan.root()->logicalSize, 3); // true sizes are kept
        EXPECT_TRUE(snap.scan.root()->children.empty());
    }
    EXPECT_TRUE(LiveChartSnapshot::make(scan.data(), "/r", 0, 8, 48).scan.isEmpty());
    EXPECT_TRUE(LiveChartSnapshot::make(scan.data(), "/missing", 10, 8, 48).scan.isEmpty());
    const auto file = LiveChartSnapshot::make(scan.data(), "/r/a", 10, 8, 48);
    EXPECT_EQ(file.scan.nodeCount(), 1u);
    EXPECT_FALSE(file.limited);
}

TEST(LiveChartSnapshot, FanoutKeepsTheHeaviestAndBreaksTiesByPath)
{
    std::vector<FakeEntry> entries;
    for (int i = 0; i < 100; ++i)
        entries.push_back({"f" + std::to_string(100 + i), i});
    // Two equal weights straddle the cut: the earlier path must win.
    entries.push_back({"tie-b", 51});
    entries.push_back({"tie-a", 51});
    const ScanResult scan = fakeScan("/r", entries);
    const auto snap = LiveChartSnapshot::make(scan.data(), "/r", 2048, 8, 48);
    EXPECT_TRUE(snap.limited);
    const auto children = snap.scan.root()->children;
    ASSERT_EQ(children.size(), 48u);
    EXPECT_EQ(children.front(), "/r/f199");
    // Weights 99..53 are 47 files; the 48th slot goes to a 52 — and so on; check the tie rule
    // separately with a cut exactly at the tie.
    const auto tie = LiveChartSnapshot::make(scan.data(), "/r", 2048, 8, 50);
    const auto kept = tie.scan.root()->children;
    EXPECT_NE(std::find(kept.begin(), kept.end(), "/r/tie-a"), kept.end());
    EXPECT_EQ(std::find(kept.begin(), kept.end(), "/r/tie-b"), kept.end());
    // Sorted heaviest first, ties by path.
    for (std::size_t i = 1; i < kept.size(); ++i) {
        const auto a = tie.scan.node(kept[i - 1])->logicalSize, b = tie.scan.node(kept[i])->logicalSize;
        EXPECT_TRUE(a > b || (a == b && kept[i - 1] < kept[i]));
    }
}

TEST(LiveChartSnapshot, FillsBreadthFirstAndCountsTheRoot)
{
    const ScanResult scan = fakeScan("/r", {{"a/a1/x", 10}, {"a/a2", 5}, {"b/b1", 8}, {"c", 1}});
    const auto snap = LiveChartSnapshot::make(scan.data(), "/r", 4, 8, 48);
    // Root + its three children use the whole limit before any grandchild.
    EXPECT_EQ(snap.scan.nodeCount(), 4u);
    EXPECT_TRUE(snap.limited);
    EXPECT_EQ(snap.scan.node("/r/a")->logicalSize, 15);
    EXPECT_TRUE(snap.scan.node("/r/a")->children.empty());
    const auto all = LiveChartSnapshot::make(scan.data(), "/r", 100, 8, 48);
    EXPECT_FALSE(all.limited);
    EXPECT_EQ(all.scan.nodeCount(), scan.nodeCount());
    const auto shallow = LiveChartSnapshot::make(scan.data(), "/r", 100, 2, 48);
    EXPECT_TRUE(shallow.limited); // a1 holds x at level 3
    EXPECT_NE(shallow.scan.find("/r/a/a1"), kNoNode);
    EXPECT_EQ(shallow.scan.find("/r/a/a1/x"), kNoNode);
}

TEST(FolderPreview, FallsBackToTheRootAndListsAncestors)
{
    const ScanResult scan = fakeScan("/r", {{"a/b/c", 3}, {"a/d", 4}});
    const auto root = DiskScanner::folderPreview(scan.data(), "/r", std::nullopt);
    ASSERT_EQ(root.ancestors.size(), 1u);
    EXPECT_EQ(root.folder.path, "/r");
    EXPECT_EQ(root.children.size(), 1u);
    EXPECT_TRUE(root.folder.children.empty());

    const auto unknown = DiskScanner::folderPreview(scan.data(), "/r", std::string("/nowhere"));
    EXPECT_EQ(unknown.folder.path, "/r");

    const auto deep = DiskScanner::folderPreview(scan.data(), "/r", std::string("/r/a/./b/"));
    EXPECT_EQ(deep.folder.path, "/r/a/b");
    ASSERT_EQ(deep.ancestors.size(), 3u);
    EXPECT_EQ(deep.ancestors[1].path, "/r/a");
    EXPECT_EQ(deep.children.size(), 1u);
    ASSERT_TRUE(deep.chart.has_value());
    EXPECT_EQ(deep.chart->rootPath(), "/r/a/b");

    const auto file = DiskScanner::folderPreview(scan.data(), "/r", std::string("/r/a/d"));
    EXPECT_EQ(file.folder.path, "/r"); // a file is not a folder to browse
}
