#include <gtest/gtest.h>

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>

#include "model/Errors.h"
#include "scan/DiskScanner.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::TempTree;

namespace {

ScanResult quietScan(const std::string& root)
{
    CancellationFlag flag;
    return DiskScanner::scan(root, flag);
}

ScanResult liveScan(const std::string& root, std::vector<ScanProgress>* progress = nullptr)
{
    CancellationFlag flag;
    ScanNavigation navigation;
    return DiskScanner::scan(root, flag, &navigation, [&](const ScanProgress& p) {
        if (progress)
            progress->push_back(p);
    });
}

// Every node's sizes and counts, by path: what the two roll-ups must agree on.
std::map<std::string, std::vector<std::int64_t>> totals(const ScanResult& scan)
{
    std::map<std::string, std::vector<std::int64_t>> out;
    const ScanData& d = scan.data();
    for (NodeId id = 0; id < d.size(); ++id) {
        const NodeRecord& r = d[id];
        out[d.path(id)] = {r.logicalSize, r.allocatedSize, r.compressedSavings, r.fileCount,
                           r.folderCount, r.childCount};
    }
    return out;
}

} // namespace

TEST(DiskScanner, HardLinksCountOnceOnDiskAndPerPathLogically)
{
    TempTree tree;
    tree.file("a/data", 4096);
    tree.hardLink("a/data", "b/again");
    const ScanResult scan = quietScan(tree.root());
    const auto root = *scan.root();
    const auto first = *scan.node(tree.path("a/data"));
    const auto second = *scan.node(tree.path("b/again"));
    EXPECT_EQ(root.logicalSize, 8192);
    EXPECT_EQ(root.fileCount, 2);
    EXPECT_EQ(root.folderCount, 2);
    // Exactly one of the two paths carries the blocks: whichever the walk met first.
    EXPECT_EQ(first.allocatedSize + second.allocatedSize, root.allocatedSize);
    EXPECT_TRUE(first.allocatedSize == 0 || second.allocatedSize == 0);
    EXPECT_GE(root.allocatedSize, 4096);
    EXPECT_EQ(first.identity.key(), second.identity.key());
    EXPECT_EQ(first.identity.linkCount, 2);
}

TEST(DiskScanner, LinksAreEntriesOfTheirOwnAndNeverFollowed)
{
    TempTree tree;
    tree.file("target/big", 1'000'000);
    tree.symlink(tree.path("target/big"), "to-file");
    tree.symlink(tree.path("target"), "to-folder");
    tree.symlink("/nonexistent/nowhere", "dangling");
    tree.folder("empty");
    const ScanResult scan = quietScan(tree.root());
    const auto toFile = *scan.node(tree.path("to-file"));
    EXPECT_TRUE(toFile.isSymbolicLink);
    EXPECT_FALSE(toFile.isDirectory);
    EXPECT_EQ(toFile.logicalSize, std::int64_t(tree.path("target/big").size()));
    EXPECT_EQ(toFile.fileCount, 1);
    const auto toFolder = *scan.node(tree.path("to-folder"));
    EXPECT_TRUE(toFolder.children.empty());
    EXPECT_FALSE(toFolder.isDirectory);
    EXPECT_TRUE(scan.node(tree.path("dangling"))->isSymbolicLink);
    const auto empty = *scan.node(tree.path("empty"));
    EXPECT_TRUE(empty.isDirectory);
    EXPECT_EQ(empty.logicalSize, 0);
    EXPECT_EQ(empty.allocatedSize, 0);
    EXPECT_EQ(empty.fileCount, 0);
    EXPECT_EQ(empty.folderCount, 0);
    const auto root = *scan.root();
    EXPECT_EQ(root.fileCount, 4);
    EXPECT_EQ(root.folderCount, 2);
    EXPECT_EQ(root.logicalSize, 1'000'000 + toFile.logicalSize + toFolder.logicalSize +
                                    scan.node(tree.path("dangling"))->logicalSize);
    EXPECT_TRUE(scan.issues().empty());
}

TEST(DiskScanner, RootIsResolvedAndChecked)
{
    TempTree tree;
    tree.file("real/file", 10);
    tree.symlink(tree.path("real"), "alias");
    const ScanResult viaLink = quietScan(tree.path("alias"));
    EXPECT_EQ(viaLink.rootPath(), tree.path("real"));
    EXPECT_NE(viaLink.find(tree.path("real/file")), kNoNode);

    tree.folder("nothing");
    const ScanResult empty = quietScan(tree.path("nothing"));
    EXPECT_EQ(empty.nodeCount(), 1u);
    EXPECT_EQ(empty.root()->fileCount, 0);
    EXPECT_EQ(empty.root()->logicalSize, 0);

    try {
        quietScan(tree.path("real/file"));
        FAIL() << "a file was scanned as a root";
    } catch (const TarnbridgeError& e) {
        EXPECT_STREQ(e.what(), "Choose a folder or mounted volume to scan.");
    }
    try {
        quietScan(tree.path("missing"));
        FAIL() << "a missing root was scanned";
    } catch (const std::system_error& e) {
        EXPECT_EQ(e.code().value(), ENOENT);
        EXPECT_EQ(describeError(e), "No such file or directory");
    }
    tree.folder("locked/inner");
    tree.chmod("locked", 0);
    test::WithoutAdminRights user;
    try {
        quietScan(tree.path("locked"));
        FAIL() << "an unreadable root was scanned";
    } catch (const TarnbridgeError& e) {
        EXPECT_STREQ(e.what(),
                     "This folder cannot be read. Choose another folder or check its permissions.");
    }
}

TEST(DiskScanner, UnreadableFoldersAreKeptEmptyAndIssuesStopAt200)
{
    TempTree tree;
    tree.file("ok/file", 100);
    for (int i = 0; i < 201; ++i) {
        tree.file("closed" + std::to_string(i) + "/secret", 50);
        tree.chmod("closed" + std::to_string(i), 0);
    }
    test::WithoutAdminRights user;
    const ScanResult scan = quietScan(tree.root());
    EXPECT_EQ(scan.skippedCount(), 201);
    ASSERT_EQ(scan.issues().size(), 200u);
    for (const auto& issue : scan.issues())
        EXPECT_EQ(issue.message, "Permission denied") << issue.path;
    const auto closed = *scan.node(tree.path("closed7"));
    EXPECT_TRUE(closed.isDirectory);
    EXPECT_TRUE(closed.children.empty());
    EXPECT_EQ(scan.root()->fileCount, 1);
    EXPECT_EQ(scan.root()->folderCount, 202);
}

TEST(DiskScanner, LiveAndQuietRollUpsAgreeEverywhere)
{
    TempTree tree;
    // A few levels with files, links, empty folders and a hard link across folders.
    for (int a = 0; a < 6; ++a)
        for (int b = 0; b < 5; ++b)
            for (int c = 0; c < 4; ++c)
                tree.file("d" + std::to_string(a) + "/e" + std::to_string(b) + "/f" + std::to_string(c),
                          (a * 7 + b * 3 + c) * 1000 + 1);
    tree.folder("d1/empty/deeper");
    tree.hardLink("d0/e0/f1", "d5/link");
    tree.symlink("d0", "d2/up");
    const ScanResult quiet = quietScan(tree.root());
    std::vector<ScanProgress> progress;
    const ScanResult live = liveScan(tree.root(), &progress);
    EXPECT_EQ(totals(quiet), totals(live));
    EXPECT_EQ(quiet.root()->fileCount, 6 * 5 * 4 + 2);
    ASSERT_FALSE(progress.empty());
    // The final record carries the root, the totals and the preview with its running sums.
    const ScanProgress& last = progress.back();
    EXPECT_EQ(last.path, tree.root());
    EXPECT_EQ(last.files, 6 * 5 * 4 + 2);
    EXPECT_EQ(last.folders, 6 + 30 + 2);
    EXPECT_EQ(last.bytes, live.root()->allocatedSize);
    std::int64_t previewLogical = 0;
    for (const auto& top : last.preview)
        previewLogical += top.logicalSize;
    EXPECT_EQ(previewLogical, live.root()->logicalSize);
    ASSERT_TRUE(last.browsing.has_value());
    EXPECT_EQ(last.browsing->folder.path, tree.root());
}

TEST(DiskScanner, ProgressEvery256EntriesAndAlwaysAtTheEnd)
{
    for (auto [entries, expected] : {std::pair{255, 1u}, std::pair{256, 2u}}) {
        TempTree tree;
        for (int i = 0; i < entries; ++i)
            tree.file("f" + std::to_string(i), 1);
        std::vector<ScanProgress> seen;
        CancellationFlag flag;
        const ScanResult scan = DiskScanner::scan(tree.root(), flag, nullptr,
                                                  [&](const ScanProgress& p) { seen.push_back(p); });
        EXPECT_EQ(seen.size(), expected) << entries << " entries";
        EXPECT_EQ(seen.back().files, entries);
        EXPECT_EQ(seen.back().path, tree.root());
        EXPECT_FALSE(seen.back().browsing.has_value());
        EXPECT_EQ(seen.back().preview.size(), std::size_t(entries));
    }
}

TEST(DiskScanner, CancellationGivesNoPartialResult)
{
    TempTree tree;
    for (int i = 0; i < 600; ++i)
        tree.file("many/f" + std::to_string(i), 1);
    CancellationFlag flag;
    int calls = 0;
    EXPECT_THROW(DiskScanner::scan(tree.root(), flag, nullptr,
                                   [&](const ScanProgress&) {
                                       ++calls;
                                       flag.cancel();
                                   }),
                 CancellationError);
    EXPECT_EQ(calls, 1);
    CancellationFlag already;
    already.cancel();
    EXPECT_THROW(DiskScanner::scan(tree.root(), already), CancellationError);
}

TEST(DiskScanner, EntriesThatVanishDuringTheWalkBecomeIssues)
{
    TempTree tree;
    for (int i = 0; i < 400; ++i)
        tree.file("crowd/f" + std::to_string(i), 1);
    CancellationFlag flag;
    bool removed = false;
    // The first progress comes at entry 256, while the folder's listing is already in hand:
    // everything not yet examined disappears under the scanner.
    const ScanResult scan = DiskScanner::scan(tree.root(), flag, nullptr, [&](const ScanProgress&) {
        if (!removed) {
            removed = true;
            std::filesystem::remove_all(tree.path("crowd"));
        }
    });
    ASSERT_TRUE(removed);
    const auto crowd = scan.node(tree.path("crowd"));
    ASSERT_TRUE(crowd.has_value());
    int vanished = 0, folderErrors = 0;
    for (const auto& issue : scan.issues()) {
        if (issue.path == crowd->path) {
            ++folderErrors; // reading on in a removed folder may fail as a whole too
        } else {
            EXPECT_EQ(issue.message, "No such file or directory") << issue.path;
            EXPECT_TRUE(ScanResult::contains(issue.path, crowd->path)) << issue.path;
            ++vanished;
        }
    }
    EXPECT_GT(vanished, 0);
    EXPECT_LE(folderErrors, 1);
    EXPECT_EQ(crowd->fileCount + vanished, 400);
    EXPECT_EQ(scan.skippedCount(), std::int64_t(scan.issues().size()));
}

TEST(DiskScanner, HugeFoldersAndDeepChainsNeedNoRecursion)
{
    TempTree tree;
    const int wide = 100'000;
    const std::string crowd = tree.folder("wide");
    for (int i = 0; i < wide; ++i) {
        const std::string p = crowd + "/entry-with-a-longer-name-" + std::to_string(i);
        const int fd = ::creat(p.c_str(), 0644);
        ASSERT_GE(fd, 0);
        ::close(fd);
    }
    // 1,000 levels, each with a leaf folder beside the chain: coming back up the chain, the
    // walk must reopen folders whose descriptors it gave up on the way down.
    std::string relative = "deep";
    std::filesystem::create_directories(tree.path(relative));
    for (int level = 0; level < 1000; ++level) {
        ASSERT_EQ(::mkdir(tree.path(relative + "/side").c_str(), 0755), 0);
        ::close(::creat(tree.path(relative + "/side/leaf").c_str(), 0644));
        relative += "/d";
        ASSERT_EQ(::mkdir(tree.path(relative).c_str(), 0755), 0) << relative.size();
    }
    const ScanResult scan = quietScan(tree.root());
    EXPECT_TRUE(scan.issues().empty()) << scan.issues().front().path << ": " << scan.issues().front().message;
    EXPECT_EQ(scan.node(crowd)->fileCount, wide);
    EXPECT_NE(scan.find(crowd + "/entry-with-a-longer-name-99999"), kNoNode);
    const auto deep = *scan.node(tree.path("deep"));
    EXPECT_EQ(deep.fileCount, 1000);
    EXPECT_EQ(deep.folderCount, 2000);
    EXPECT_EQ(scan.data().depth(scan.find(tree.path(relative))), 1001u);
    EXPECT_EQ(scan.root()->fileCount, wide + 1000);
}

TEST(DiskScanner, NestedVolumesAreSkippedAndReported)
{
    TempTree tree;
    tree.file("outer/file", 10);
    const std::string mountPoint = tree.folder("outer/mounted");
    if (::mount("tarnbridge-test", mountPoint.c_str(), "tmpfs", 0, "size=1m") != 0)
        GTEST_SKIP() << "cannot mount a tmpfs here: " << std::strerror(errno);
    struct Unmount {
        std::string path;
        ~Unmount() { ::umount2(path.c_str(), MNT_DETACH); }
    } unmount{mountPoint};
    ::close(::creat((mountPoint + "/inside").c_str(), 0644));
    const ScanResult scan = quietScan(tree.root());
    EXPECT_EQ(scan.find(mountPoint), kNoNode);
    EXPECT_EQ(scan.node(tree.path("outer"))->children.size(), 1u);
    EXPECT_EQ(scan.skippedCount(), 1);
    ASSERT_EQ(scan.issues().size(), 1u);
    EXPECT_EQ(scan.issues()[0].path, mountPoint);
    EXPECT_EQ(scan.issues()[0].message, "Nested volume skipped. Scan this volume separately.");
}

TEST(DiskScanner, DirectoryFindsBrowsableFoldersOnly)
{
    TempTree tree;
    tree.file("real/inner/file", 1);
    tree.symlink(tree.path("real"), "alias");
    const ScanResult scan = quietScan(tree.root());
    EXPECT_EQ(scan.directory(tree.path("real/./inner/"))->path, tree.path("real/inner"));
    EXPECT_FALSE(scan.directory(tree.path("alias")).has_value()); // a link to a folder
    EXPECT_FALSE(scan.directory(tree.path("real/inner/file")).has_value());
    EXPECT_FALSE(scan.directory("relative").has_value());
}

// The same rule without mounting anything: /dev usually holds other file systems (/dev/shm,
// /dev/pts), so an ordinary account can check it where it cannot mount a tmpfs.
TEST(DiskScanner, FileSystemsMountedBelowASystemFolderAreSkipped)
{
    struct stat top {};
    ASSERT_EQ(::stat("/dev", &top), 0);
    std::vector<std::string> mounted;
    std::ifstream mounts("/proc/self/mounts");
    std::string device, point, rest;
    while (mounts >> device >> point && std::getline(mounts, rest)) {
        if (point.rfind("/dev/", 0) != 0 || point.find('\\') != std::string::npos)
            continue;
        struct stat here {}, parent {};
        const std::string above = point.substr(0, point.rfind('/'));
        // Only what the walk meets: a mount right on /dev's own file system.
        if (::lstat(point.c_str(), &here) == 0 && S_ISDIR(here.st_mode) && here.st_dev != top.st_dev &&
            ::lstat(above.c_str(), &parent) == 0 && parent.st_dev == top.st_dev &&
            std::find(mounted.begin(), mounted.end(), point) == mounted.end())
            mounted.push_back(point);
    }
    if (mounted.empty())
        GTEST_SKIP() << "no file system is mounted below /dev here";
    const ScanResult scan = quietScan("/dev");
    for (const std::string& point : mounted) {
        EXPECT_EQ(scan.find(point), kNoNode) << point;
        const auto& issues = scan.issues();
        EXPECT_NE(std::find_if(issues.begin(), issues.end(),
                               [&](const ScanIssue& i) { return i.path == point && i.message == DiskScanner::kNestedVolume; }),
                  issues.end())
            << point;
    }
}
