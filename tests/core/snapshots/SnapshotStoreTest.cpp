#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "model/Errors.h"
#include "snapshots/SnapshotStore.h"
#include "support/FakeScan.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::fakeScan;
using tarnbridge::test::TempTree;

TEST(SnapshotStore, SavesListsLoadsAndDeletes)
{
    TempTree tree;
    const SnapshotStore store(tree.path("state/Snapshots"));
    EXPECT_TRUE(store.catalog().records.empty()); // no folder yet: no issue either
    EXPECT_TRUE(store.catalog().issues.empty());

    const ScanResult scan = fakeScan("/data", {{"a/x.bin", 1000}, {"b/y.bin", 50}});
    const SnapshotRecord first = store.save(scan, "First");
    const SnapshotRecord second = store.save(scan, "Second");
    EXPECT_EQ(first.bytes, scan.root()->allocatedSize);
    EXPECT_EQ(first.fileCount, 2);
    EXPECT_EQ(first.rootPath, "/data");

    const SnapshotCatalog catalog = store.catalog();
    ASSERT_EQ(catalog.records.size(), 2u);
    EXPECT_EQ(catalog.records[0].id, second.id); // newest first
    EXPECT_EQ(catalog.records[1].title, "First");
    EXPECT_NEAR(catalog.records[1].createdAt, first.createdAt, 1e-3);

    const ScanResult back = store.load(first);
    EXPECT_EQ(back.nodeCount(), scan.nodeCount());
    EXPECT_EQ(*back.node("/data/a/x.bin"), *scan.node("/data/a/x.bin"));

    store.remove(first);
    EXPECT_EQ(store.catalog().records.size(), 1u);
    EXPECT_FALSE(std::filesystem::exists(store.directory() + "/" + first.id + ".json"));
    EXPECT_THROW(store.remove(first), std::system_error);

    // A scan without a root record saves zeros.
    const SnapshotRecord empty = store.save(ScanResult(), "Empty");
    EXPECT_EQ(empty.bytes, 0);
    EXPECT_EQ(empty.fileCount, 0);
}

TEST(SnapshotStore, DamagedEntriesAreReportedAndTheOthersStillList)
{
    TempTree tree;
    const std::string dir = tree.path("Snapshots");
    const SnapshotStore store(dir);
    const ScanResult scan = fakeScan("/data", {{"f", 10}});
    const SnapshotRecord good = store.save(scan, "Good");
    const SnapshotRecord broken = store.save(scan, "Broken");
    const SnapshotRecord renamed = store.save(scan, "Renamed");
    const SnapshotRecord folder = store.save(scan, "Folder");
    const SnapshotRecord missing = store.save(scan, "Missing");

    std::ofstream(dir + "/" + broken.id + ".meta") << "{\"id\": ";
    const std::string otherId = "00000000-0000-4000-8000-000000000001";
    std::filesystem::rename(dir + "/" + renamed.id + ".meta", dir + "/" + otherId + ".meta");
    std::filesystem::remove(dir + "/" + folder.id + ".json");
    std::filesystem::create_directory(dir + "/" + folder.id + ".json");
    std::filesystem::remove(dir + "/" + missing.id + ".json");
    std::ofstream(dir + "/notes.txt") << "stray";
    std::ofstream(dir + "/" + otherId.substr(0, 35) + "2.json") << "{}"; // a scan without a record

    const SnapshotCatalog catalog = store.catalog();
    ASSERT_EQ(catalog.records.size(), 1u);
    EXPECT_EQ(catalog.records[0].id, good.id);
    std::map<std::string, std::string> byFile;
    for (const auto& issue : catalog.issues)
        byFile[issue.path] = issue.message;
    ASSERT_EQ(byFile.size(), 4u);
    EXPECT_EQ(byFile[dir + "/" + broken.id + ".meta"], kSnapshotUnreadable);
    EXPECT_EQ(byFile[dir + "/" + otherId + ".meta"], kSnapshotMismatch);
    EXPECT_EQ(byFile[dir + "/" + folder.id + ".meta"], kSnapshotUnavailable);
    EXPECT_EQ(byFile[dir + "/" + missing.id + ".meta"], "No such file or directory");
    // Issues come in the order of the file paths.
    for (std::size_t i = 1; i < catalog.issues.size(); ++i)
        EXPECT_LT(catalog.issues[i - 1].path, catalog.issues[i].path);
}

TEST(SnapshotStore, EqualDatesSortByIdentifier)
{
    TempTree tree;
    const std::string dir = tree.path("S");
    std::filesystem::create_directories(dir);
    for (const char* id : {"B0000000-0000-4000-8000-000000000000", "A0000000-0000-4000-8000-000000000000"}) {
        const SnapshotRecord r{id, "t", 1.7e9, "/r", 0, 0};
        json::Writer w;
        r.write(w);
        std::ofstream(dir + "/" + id + ".meta") << w.text();
        std::ofstream(dir + "/" + id + ".json") << "{}";
    }
    const auto records = SnapshotStore(dir).catalog().records;
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].id[0], 'A');
}

TEST(SnapshotCompare, RowsForEveryDifferenceLargestFirst)
{
    const ScanResult older = fakeScan("/r", {{"same", 10}, {"grew", 10}, {"gone", 30}, {"b/shrank", 50}, {"a/empty-kept", 0}});
    const ScanResult newer =
        fakeScan("/r", {{"same", 10}, {"grew", 40}, {"b/shrank", 20}, {"new-empty", 0}, {"a/empty-kept", 0}});
    const auto changes = SnapshotStore::compare(older, newer, false);
    std::vector<std::string> paths;
    for (const auto& c : changes)
        paths.push_back(c.path);
    // Root: 100 -> 70 (-30); gone -30; b -30; grew +30; shrank -30: all 30, by path.
    const std::vector<std::string> expected{"/r", "/r/b", "/r/b/shrank", "/r/gone", "/r/grew", "/r/new-empty"};
    EXPECT_EQ(paths, expected);
    EXPECT_EQ(changes[3], (SnapshotChange{"/r/gone", 30, 0, SnapshotChangeStatus::removed}));
    EXPECT_EQ(changes[4], (SnapshotChange{"/r/grew", 10, 40, SnapshotChangeStatus::changed}));
    EXPECT_EQ(changes[5], (SnapshotChange{"/r/new-empty", 0, 0, SnapshotChangeStatus::added}));

    EXPECT_TRUE(SnapshotStore::compare(older, older, true).empty());
    // Logical sizes: allocated changed but logical did not.
    const ScanResult a = fakeScan("/r", {{"c", 100, 4096}});
    const ScanResult b = fakeScan("/r", {{"c", 100, 8192}});
    EXPECT_TRUE(SnapshotStore::compare(a, b, true).empty());
    EXPECT_EQ(SnapshotStore::compare(a, b, false).size(), 2u);
    try {
        SnapshotStore::compare(a, fakeScan("/other", {}), false);
        ADD_FAILURE();
    } catch (const TarnbridgeError& e) {
        EXPECT_STREQ(e.what(), kSnapshotDifferentRoots);
    }
}

TEST(SnapshotCompare, TheChangeListFiltersBySizeAndLevelWithoutCopying)
{
    const ScanResult older = fakeScan("/r", {{"big", 10}, {"b/small", 5}, {"b/big", 100}});
    const ScanResult newer = fakeScan("/r", {{"big", 50}, {"b/small", 7}, {"b/big", 100}, {"created", 0}});
    const auto changes = SnapshotStore::compare(older, newer, false);
    auto shown = [&](std::int64_t minimum, ChangeLevel level, std::optional<std::string> root) {
        std::vector<std::string> out;
        for (const SnapshotChange* c : SnapshotStore::visibleChanges(changes, minimum, level, root)) {
            EXPECT_GE(c, changes.data());
            EXPECT_LT(c, changes.data() + changes.size());
            out.push_back(c->path);
        }
        return out;
    };
    using V = std::vector<std::string>;
    EXPECT_EQ(shown(0, ChangeLevel::everyLevel, "/r"), (V{"/r", "/r/big", "/r/b", "/r/b/small", "/r/created"}));
    // At least the minimum, shrinking or growing alike.
    EXPECT_EQ(shown(40, ChangeLevel::everyLevel, "/r"), (V{"/r", "/r/big"}));
    EXPECT_EQ(shown(1, ChangeLevel::topLevelOnly, "/r"), (V{"/r/big", "/r/b"}));
    EXPECT_EQ(shown(0, ChangeLevel::topLevelOnly, "/r"), (V{"/r/big", "/r/b", "/r/created"}));
    EXPECT_TRUE(shown(0, ChangeLevel::topLevelOnly, std::nullopt).empty());
}
