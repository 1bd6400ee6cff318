#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "model/PathText.h"

#include "model/CancellationFlag.h"
#include "model/Errors.h"
#include "model/ScanResult.h"
#include "support/FakeScan.h"

using namespace tarnbridge;
using tarnbridge::test::fakeScan;

namespace {
std::vector<std::string> paths(const std::vector<DiskNode>& nodes)
{
    std::vector<std::string> out;
    for (const auto& n : nodes)
        out.push_back(n.path);
    return out;
}
} // namespace

TEST(ScanResult, ChildrenBySizeThenPathAndMeasureCanReverseOrder)
{
    const ScanResult scan = fakeScan("/r", {{"b", 100, 4096}, {"a", 100, 4096}, {"c", 5000, 0}});
    using V = std::vector<std::string>;
    EXPECT_EQ(paths(scan.children("/r", SizeMeasure::allocated)), (V{"/r/a", "/r/b", "/r/c"}));
    EXPECT_EQ(paths(scan.children("/r", SizeMeasure::logical)), (V{"/r/c", "/r/a", "/r/b"}));
    EXPECT_TRUE(scan.children("/nowhere", SizeMeasure::logical).empty());
    EXPECT_TRUE(scan.children("/r/a", SizeMeasure::logical).empty());
}

TEST(ScanResult, ChildrenSortTheSameWithAndWithoutPathRanks)
{
    // Ties in size, names that sort differently by bytes and by text order, and a name that
    // is not UTF-8.
    std::vector<tarnbridge::test::FakeEntry> entries;
    const char* names[] = {"b", "a", "B", "é", "e\xcc\x81x", "z\xff", "a0", "a-", "ä", "10", "9"};
    for (int i = 0; i < 11; ++i)
        entries.push_back({names[i], i % 3 == 0 ? 100 : 50, 4096});
    const ScanResult scan = fakeScan("/r", entries);
    const NodeId root = ScanData::rootId;
    ASSERT_FALSE(scan->pathRanksReady());
    const auto byNames = scan.sortedChildren(root, SizeMeasure::logical);
    scan->pathRank(root);
    ASSERT_TRUE(scan->pathRanksReady());
    EXPECT_EQ(scan.sortedChildren(root, SizeMeasure::logical), byNames);
    EXPECT_EQ(scan.data()[byNames.front()].logicalSize, 100);
}

TEST(ScanResult, LookupIsExactKeyMatch)
{
    std::vector<test::FakeEntry> many;
    for (int i = 0; i < 100; ++i) // enough children to use the sorted index
        many.push_back({"big/f" + std::to_string(i), i});
    many.push_back({"x/y/z", 7});
    const ScanResult scan = fakeScan("/r", many);
    EXPECT_NE(scan.find("/r/big/f42"), kNoNode);
    EXPECT_EQ(scan.node("/r/big/f42")->logicalSize, 42);
    EXPECT_EQ(scan.find("/r/big/f100"), kNoNode);
    EXPECT_EQ(scan.find("/r/x/y/"), kNoNode);
    EXPECT_EQ(scan.find("/r//x"), kNoNode);
    EXPECT_EQ(scan.find("/rx"), kNoNode);
    EXPECT_EQ(scan.find("/r"), ScanData::rootId);
    EXPECT_EQ(scan.node("/r/x/y/z")->parent, "/r/x/y");
    EXPECT_FALSE(scan.root()->parent.has_value());
}

TEST(ScanResult, DescendantsLeaveOutTheFolderItself)
{
    const ScanResult scan = fakeScan("/r", {{"a/b/c", 1}, {"a/d", 2}, {"e", 3}});
    auto below = paths(scan.descendants("/r/a"));
    std::sort(below.begin(), below.end());
    EXPECT_EQ(below, (std::vector<std::string>{"/r/a/b", "/r/a/b/c", "/r/a/d"}));
    EXPECT_EQ(scan.descendants("/r").size(), 5u);
    EXPECT_TRUE(scan.descendants("/r/e").empty());
}

TEST(ScanResult, NodesCarryTheirChildrenPaths)
{
    const ScanResult scan = fakeScan("/", {{"a/x", 1}, {"b", 2}});
    const DiskNode root = *scan.root();
    EXPECT_EQ(root.children, (std::vector<std::string>{"/a", "/b"}));
    EXPECT_EQ(scan.node("/a")->children, std::vector<std::string>{"/a/x"});
    EXPECT_EQ(scan.node("/a/x")->name(), "x");
    EXPECT_EQ(root.fileCount, 2);
    EXPECT_EQ(root.folderCount, 1);
}

TEST(ScanResult, FromNodesRefusesBrokenTrees)
{
    auto node = [](std::string path, std::optional<std::string> parent, std::vector<std::string> children) {
        DiskNode n;
        n.path = std::move(path);
        n.parent = std::move(parent);
        n.isDirectory = !children.empty();
        n.children = std::move(children);
        return n;
    };
    auto build = [](std::vector<DiskNode> nodes) {
        return ScanResult::fromNodes(QUuid::createUuid(), "/r", 0, 0, std::move(nodes), {}, 0);
    };
    EXPECT_NO_THROW(build({node("/r", {}, {"/r/a"}), node("/r/a", "/r", {})}));
    struct Case {
        const char* what;
        std::vector<DiskNode> nodes;
        const char* mentions;
    };
    const std::vector<Case> cases{
        {"no root", {node("/q", {}, {})}, "\"/r\""},
        {"child not a node", {node("/r", {}, {"/r/a"})}, "\"/r/a\""},
        {"parent not a node", {node("/r", {}, {}), node("/r/a", "/r/zz", {})}, "\"/r/zz\""},
        {"child naming another parent",
         {node("/r", {}, {"/r/a", "/r/b"}), node("/r/a", "/r", {"/r/a/c"}), node("/r/b", "/r", {}),
          node("/r/a/c", "/r/b", {})},
         "\"/r/a/c\""},
        {"child path not below its folder",
         {node("/r", {}, {"/r/a"}), node("/r/a", "/r", {"/elsewhere/c"}), node("/elsewhere/c", "/r/a", {})},
         "\"/elsewhere/c\""},
        {"node listed by nobody", {node("/r", {}, {}), node("/r/a", "/r", {})}, "\"/r/a\""},
    };
    for (const auto& c : cases) {
        try {
            build(c.nodes);
            ADD_FAILURE() << c.what << ": accepted";
        } catch (const TarnbridgeError& e) {
            EXPECT_NE(std::string(e.what()).find(c.mentions), std::string::npos) << c.what << ": " << e.what();
        }
    }
}

TEST(FileIdentity, KeyIsSignedDeviceAndInode)
{
    FileIdentity id;
    id.device = -5;
    id.inode = 18446744073709551615ull;
    EXPECT_EQ(id.key(), "-5:18446744073709551615");
    FileIdentity other = id;
    EXPECT_EQ(id, other);
    other.changedNanos = 1;
    EXPECT_NE(id, other);
}

TEST(CancellationFlag, StaysCancelled)
{
    CancellationFlag flag;
    EXPECT_NO_THROW(flag.check());
    flag.cancel();
    flag.cancel();
    EXPECT_TRUE(flag.isCancelled());
    EXPECT_THROW(flag.check(), CancellationError);
}

TEST(ScanData, PathRanksFollowThePlainOrderOfWholePaths)
{
    // Names built to catch the cases where sorting folder by folder differs from sorting whole
    // paths: a name that continues another with a character below "/" (".", "-", " "), names
    // in composed and decomposed form, and bytes that are not UTF-8.
    const std::vector<std::string> names{"a", "a.txt", "a-b", "a b", "a0", "A", "b", "\xC3\xA9",
                                         "e\xCC\x81x", "\xFF", "ab"};
    std::mt19937 rng(5);
    for (int round = 0; round < 20; ++round) {
        std::vector<tarnbridge::test::FakeEntry> entries;
        for (int i = 0; i < 60; ++i) {
            std::string path;
            const int depth = 1 + int(rng() % 3);
            for (int d = 0; d < depth; ++d)
                path += (d ? "/" : "") + names[rng() % names.size()];
            entries.push_back({path, 1});
        }
        // Folders and files with one name cannot coexist: keep the first spelling of each.
        std::vector<tarnbridge::test::FakeEntry> unique;
        for (const auto& e : entries) {
            bool clash = false;
            for (const auto& u : unique)
                if (e.path == u.path || u.path.rfind(e.path + "/", 0) == 0 || e.path.rfind(u.path + "/", 0) == 0)
                    clash = true;
            if (!clash)
                unique.push_back(e);
        }
        const ScanResult scan = fakeScan("/r", unique);
        const ScanData& d = scan.data();
        std::vector<NodeId> byRank(d.size()), byPath(d.size());
        for (NodeId id = 0; id < d.size(); ++id)
            byRank[id] = byPath[id] = id;
        std::sort(byRank.begin(), byRank.end(), [&](NodeId a, NodeId b) { return d.pathRank(a) < d.pathRank(b); });
        std::stable_sort(byPath.begin(), byPath.end(),
                         [&](NodeId a, NodeId b) { return PathText::compare(d.path(a), d.path(b)) < 0; });
        for (std::size_t i = 0; i < byPath.size(); ++i)
            ASSERT_EQ(PathText::compare(d.path(byRank[i]), d.path(byPath[i])), 0)
                << "round " << round << " at " << i << ": " << d.path(byRank[i]) << " vs " << d.path(byPath[i]);
    }
}
