#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "cleanup/CleanupEntry.h"
#include "model/Errors.h"
#include "platform/UserFolders.h"
#include "scan/DiskScanner.h"
#include "support/Checks.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::scanOf;
using tarnbridge::test::stage;
using tarnbridge::test::refusal;
using tarnbridge::test::FakeHome;
using tarnbridge::test::TempTree;

namespace {
CleanupPolicy policy()
{
    return CleanupPolicy{platform::currentHome()};
}

void waitForNextTick()
{
    // Change times have nanoseconds, but a coarse clock may repeat one: step past it.
    std::this_thread::sleep_for(std::chrono::milliseconds(15));
}

} // namespace

TEST(CleanupEntry, StagingRefusesWhatCannotBeProvenAndRecordsEveryItemBelow)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string work = tree.folder("home/work");
    tree.file("home/work/done/a/one.bin", 100);
    tree.file("home/work/done/two.bin", 200);
    tree.symlink("two.bin", "home/work/done/link");
    tree.symlink("nothing-here", "home/work/dangling");
    tree.file("home/work/locked/inner/deep/x.bin", 10);
    tree.chmod("home/work/locked/inner/deep", 0);

    ScanResult scan;
    {
        test::WithoutAdminRights plainUser;
        scan = scanOf(work);
    }
    ASSERT_FALSE(scan.issues().empty());

    // A folder with an unreadable grandchild cannot be staged; its sibling can.
    EXPECT_EQ(refusal([&] { stage(scan, work + "/locked"); }), kNotFullyScanned);
    const CleanupEntry entry = stage(scan, work + "/done");
    EXPECT_EQ(entry.identities.size(), 5u); // done, a, one.bin, two.bin, link
    EXPECT_TRUE(entry.identities.count(work + "/done/link"));
    EXPECT_EQ(entry.identities.at(work + "/done"), entry.node.identity);
    EXPECT_EQ(entry.reason, "test");

    // A record that no longer matches the scan's.
    DiskNode stale = *scan.node(work + "/done/two.bin");
    stale.identity.changedNanos += 1;
    EXPECT_EQ(refusal([&] { CleanupEntry::stage(stale, scan, "", policy()); }), kNotInCurrentScan);
    DiskNode foreign = stale;
    foreign.path = work + "/nowhere";
    EXPECT_EQ(refusal([&] { CleanupEntry::stage(foreign, scan, "", policy()); }), kNotInCurrentScan);

    // A link is refused by the policy before anything else looks at it.
    EXPECT_EQ(refusal([&] { stage(scan, work + "/done/link"); }), kRefusedLink);
    // A dangling link resolves to nothing, so only the record says what it is.
    EXPECT_EQ(refusal([&] { stage(scan, work + "/dangling"); }), kLinksCannotBeStaged);
}

TEST(CleanupEntry, ValidationCatchesEveryChangeSinceStaging)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string work = tree.folder("home/work");
    struct Case {
        const char* what;
        std::string path;             // staged item
        std::function<void()> change; // done after staging
        std::string expected;         // "" = still valid
    };
    tree.file("home/work/file.bin", 100);
    tree.file("home/work/touched.bin", 100);
    tree.file("home/work/chmodded.bin", 100);
    tree.file("home/work/linked.bin", 100);
    tree.file("home/work/grow/child.bin", 100);
    tree.file("home/work/shrink/child.bin", 100);
    tree.file("home/work/add/child.bin", 100);
    tree.file("home/work/add2/sub/child.bin", 100);
    tree.file("home/work/gone.bin", 100);
    tree.file("home/work/nested/a/b/deep.bin", 100);
    const ScanResult scan = scanOf(work);
    waitForNextTick();

    const std::vector<Case> cases{
        {"untouched", work + "/file.bin", [] {}, ""},
        {"touch", work + "/touched.bin", [&] { tree.setModified("home/work/touched.bin", 1'600'000'000); },
         "touched.bin changed since the scan. Rescan and stage it again."},
        {"chmod", work + "/chmodded.bin", [&] { tree.chmod("home/work/chmodded.bin", 0600); },
         "chmodded.bin changed since the scan. Rescan and stage it again."},
        {"hard link", work + "/linked.bin", [&] { tree.hardLink("home/work/linked.bin", "home/other-name"); },
         "linked.bin changed since the scan. Rescan and stage it again."},
        {"child grown", work + "/grow", [&] { tree.file("home/work/grow/child.bin", 101); },
         "Contents of grow changed since the scan. Rescan before cleanup."},
        {"child lost a byte", work + "/shrink", [&] { ::truncate(tree.path("home/work/shrink/child.bin").c_str(), 99); },
         "Contents of shrink changed since the scan. Rescan before cleanup."},
        // A new direct child changes the folder's own times first.
        {"child added", work + "/add", [&] { tree.file("home/work/add/new.bin", 1); },
         "add changed since the scan. Rescan and stage it again."},
        {"grandchild added", work + "/add2", [&] { tree.file("home/work/add2/sub/new.bin", 1); },
         "Contents of add2 changed since the scan. Rescan before cleanup."},
        {"deep change", work + "/nested", [&] { tree.file("home/work/nested/a/b/deep.bin", 7); },
         "Contents of nested changed since the scan. Rescan before cleanup."},
        {"gone", work + "/gone.bin", [&] { tree.remove("home/work/gone.bin"); }, "No such file or directory"},
    };
    std::vector<CleanupEntry> entries;
    for (const auto& c : cases)
        entries.push_back(stage(scan, c.path));
    for (const auto& c : cases)
        c.change();
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(refusal([&] { entries[i].validate(policy()); }), cases[i].expected) << cases[i].what;
}

TEST(CleanupEntry, KeptDuplicateCopyMustStayAsItWas)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string work = tree.folder("home/work");
    tree.file("home/work/copy1.bin", 100);
    const std::string kept = tree.file("home/work/keep.bin", 100);
    const ScanResult scan = scanOf(work);
    CleanupEntry entry = stage(scan, work + "/copy1.bin");
    entry.retainedCopies[kept] = scan.node(kept)->identity;
    EXPECT_EQ(refusal([&] { entry.validate(policy()); }), "");

    waitForNextTick();
    tree.file("home/work/keep.bin", 100, 'y');
    EXPECT_EQ(refusal([&] { entry.validate(policy()); }), kRetainedCopyChanged);
    // Gone: the system's own words, not the "marked to keep" text.
    tree.remove("home/work/keep.bin");
    EXPECT_EQ(refusal([&] { entry.validate(policy()); }), "No such file or directory");
}

TEST(CleanupEntry, RunningProgramInsideAStagedFolderBlocksItByTheFolderName)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string work = tree.folder("home/work");
    tree.folder("home/work/Tool/bin");
    const std::string program = tree.path("home/work/Tool/bin/sleeper");
    std::filesystem::copy_file("/bin/sleep", program);
    ::chmod(program.c_str(), 0755);

    const ScanResult scan = scanOf(work);
    const CleanupEntry folder = stage(scan, work + "/Tool");
    EXPECT_EQ(refusal([&] { folder.validate(policy()); }), "");

    const pid_t child = ::fork();
    if (child == 0) {
        ::execl(program.c_str(), "sleeper", "30", nullptr);
        ::_exit(127);
    }
    ASSERT_GT(child, 0);
    // Wait until the kernel shows the new program as the process's executable.
    for (int i = 0; i < 200; ++i) {
        char target[4096] = {};
        if (::readlink(("/proc/" + std::to_string(child) + "/exe").c_str(), target, sizeof target - 1) > 0 &&
            std::string(target) == program)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const std::string running = refusal([&] { folder.validate(policy()); });
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    EXPECT_EQ(running, "Quit Tool before moving it to Trash.");
}

TEST(CleanupEntry, NormalizedKeepsOutermostEntriesAndHandsRetainedCopiesUp)
{
    auto entry = [](const std::string& path, std::vector<std::string> kept = {}) {
        CleanupEntry e;
        e.node.path = path;
        for (const auto& k : kept)
            e.retainedCopies[k] = FileIdentity{.inode = std::uint64_t(k.size())};
        return e;
    };
    const auto result = CleanupEntry::normalized({entry("/a/b/c", {"/k/1", "/k/shared"}), entry("/a/b", {"/k/shared"}),
                                                  entry("/a/bc"), entry("/a/b", {"/k/2"})});
    ASSERT_EQ(result.size(), 2u);
    EXPECT_EQ(result[0].node.path, "/a/b");
    EXPECT_EQ(result[1].node.path, "/a/bc");
    // The first /a/b stays; the second collapses into it and the deeper one hands on its copies.
    EXPECT_EQ(result[0].retainedCopies.size(), 3u);
    EXPECT_TRUE(result[0].retainedCopies.count("/k/1"));
    EXPECT_TRUE(result[0].retainedCopies.count("/k/2"));
    EXPECT_TRUE(result[1].retainedCopies.empty());

    // Length is counted in characters: "/é" (3 bytes) is shorter than "/abc".
    const auto byCharacters = CleanupEntry::normalized({entry("/abc"), entry("/\xC3\xA9")});
    EXPECT_EQ(byCharacters[0].node.path, "/\xC3\xA9");
    EXPECT_EQ(CleanupEntry::normalized({entry("/"), entry("/x/y")}).size(), 1u);
}

TEST(CleanupEntry, BatchKeepsGoodItemsAndAtMostEightMessages)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string work = tree.folder("home/work");
    tree.file("home/work/good.bin", 10);
    const ScanResult scan = scanOf(work);
    std::vector<std::string> paths;
    for (int i = 0; i < 20; ++i)
        paths.push_back(work + "/missing-" + std::to_string(i));
    paths.insert(paths.begin() + 5, work + "/good.bin");
    CancellationFlag flag;
    const CleanupBatch batch = CleanupBatch::prepare(paths, scan, "why", flag);
    EXPECT_EQ(batch.skipped, 20);
    ASSERT_EQ(batch.errors.size(), 8u);
    EXPECT_EQ(batch.errors[0], "missing-0: Item is no longer in this scan.");
    ASSERT_EQ(batch.entries.size(), 1u);
    EXPECT_EQ(batch.entries[0].reason, "why");

    flag.cancel();
    EXPECT_THROW(CleanupBatch::prepare(paths, scan, "", flag), CancellationError);
    EXPECT_TRUE(CleanupBatch::prepare({}, scan, "", CancellationFlag()).entries.empty());
}

TEST(CleanupEntry, JsonFormRoundTripsAndRequiresAllFiveKeys)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string work = tree.folder("home/work");
    tree.file("home/work/dir/caf\xC3\xA9 \"quoted\"/x.bin", 10);
    tree.file("home/work/dir/raw\xFF\xFE.bin", 10);
    const ScanResult scan = scanOf(work);
    CleanupEntry entry = stage(scan, work + "/dir");
    entry.retainedCopies["/k/\x80kept"] = FileIdentity{.device = -5, .inode = ~0ull, .size = 3, .mode = 0100644};

    json::Writer w;
    entry.write(w);
    const CleanupEntry back = CleanupEntry::read(json::parse(w.text()));
    EXPECT_EQ(back.node, entry.node);
    EXPECT_EQ(back.identities, entry.identities);
    EXPECT_EQ(back.retainedCopies, entry.retainedCopies);
    EXPECT_EQ(back.reason, entry.reason);
    EXPECT_NEAR(back.stagedAt, entry.stagedAt, 1e-3);

    for (const char* key : {"node", "identities", "stagedAt", "reason", "retainedCopies"}) {
        const std::string text = w.text();
        // Rename the key in the text: each of the five appears once, at the top level.
        const std::string needle = std::string("\"") + key + "\":";
        ASSERT_NE(text.find(needle), std::string::npos);
        std::string broken = text;
        broken.replace(text.find(needle), needle.size(), std::string("\"x") + key + "\":");
        EXPECT_EQ(refusal([&] { CleanupEntry::read(json::parse(broken)); }),
                  std::string("The key \"") + key + "\" is missing.");
    }
}

TEST(CleanupEntry, ProtectedThingsInsideAFolderBlockIt)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string work = tree.folder("home/work");
    tree.fileWithText("home/work/Apps/Safari.app/Contents/Info.plist",
                      "<plist><dict><key>CFBundleIdentifier</key><string>com.apple.Safari</string></dict></plist>");
    tree.fileWithText("home/work/Ours/Tool.app/Contents/Info.plist",
                      "<plist><dict><key>CFBundleIdentifier</key><string>org.example.Tool</string></dict></plist>");
    const std::string pinned = tree.file("home/work/Pinned/inner/log.txt", 5);
    const bool canPin = test::runProcess({"chattr", "+a", pinned}).exitCode == 0;
    const ScanResult scan = scanOf(work);

    EXPECT_EQ(refusal([&] { stage(scan, work + "/Apps"); }), kProtectedAppInside);
    const CleanupEntry ours = stage(scan, work + "/Ours");
    EXPECT_EQ(refusal([&] { ours.validate(policy()); }), "");
    if (!canPin)
        GTEST_SKIP() << "this file system or account cannot set the append-only attribute";
    // Staging does not look at flags inside; the check before the move does.
    const CleanupEntry folder = stage(scan, work + "/Pinned");
    const std::string refused = refusal([&] { folder.validate(policy()); });
    test::runProcess({"chattr", "-a", pinned});
    EXPECT_EQ(refused, std::string("log.txt: ") + kRefusedSystemFlag);
}

namespace {

// Other bytes of the same length written over the file in place, and its access and
// modification times put back: only the change time still tells.
void rewriteKeepingTimes(const std::string& path, char fill)
{
    struct stat before {};
    ASSERT_EQ(::stat(path.c_str(), &before), 0);
    const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    const std::string bytes(std::size_t(before.st_size), fill);
    ASSERT_EQ(::pwrite(fd, bytes.data(), bytes.size(), 0), ssize_t(bytes.size()));
    const struct timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::futimens(fd, times), 0);
    ::close(fd);
    struct stat after {};
    ASSERT_EQ(::stat(path.c_str(), &after), 0);
    ASSERT_EQ(after.st_ino, before.st_ino);
    ASSERT_EQ(after.st_size, before.st_size);
    ASSERT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    ASSERT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
    ASSERT_TRUE(after.st_ctim.tv_sec != before.st_ctim.tv_sec || after.st_ctim.tv_nsec != before.st_ctim.tv_nsec);
}

} // namespace

TEST(CleanupEntry, ARewriteThatKeepsSizeAndModificationTimeIsStillAChange)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string work = tree.folder("home/work");
    const std::string file = tree.file("home/work/report.bin", 4096, 'a');
    const std::string inner = tree.file("home/work/folder/inner/data.bin", 4096, 'a');
    tree.file("home/work/copy.bin", 4096, 'k');
    const std::string kept = tree.file("home/work/keep.bin", 4096, 'k');
    const ScanResult scan = scanOf(work);
    const CleanupEntry single = stage(scan, file);
    const CleanupEntry folder = stage(scan, work + "/folder");
    CleanupEntry duplicate = stage(scan, work + "/copy.bin");
    duplicate.retainedCopies[kept] = scan.node(kept)->identity;
    for (const CleanupEntry* e : {&single, &folder, static_cast<const CleanupEntry*>(&duplicate)})
        ASSERT_EQ(refusal([&] { e->validate(policy()); }), "") << e->node.path;

    waitForNextTick();
    ASSERT_NO_FATAL_FAILURE(rewriteKeepingTimes(file, 'b'));
    ASSERT_NO_FATAL_FAILURE(rewriteKeepingTimes(inner, 'b'));
    ASSERT_NO_FATAL_FAILURE(rewriteKeepingTimes(kept, 'b'));
    EXPECT_EQ(refusal([&] { single.validate(policy()); }), "report.bin changed since the scan. Rescan and stage it again.");
    EXPECT_EQ(refusal([&] { folder.validate(policy()); }), "Contents of folder changed since the scan. Rescan before cleanup.");
    EXPECT_EQ(refusal([&] { duplicate.validate(policy()); }), kRetainedCopyChanged);
}

TEST(CleanupEntry, ValidationAsksThePolicyAgain)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string work = tree.folder("home/work");
    const std::string file = tree.file("home/work/a/file.bin", 10);
    const ScanResult scan = scanOf(work);
    const CleanupEntry entry = stage(scan, file);
    // The same file, reached through a link now: a rename leaves the file's own times alone.
    ASSERT_EQ(::rename(tree.path("home/work/a").c_str(), tree.path("home/work/real").c_str()), 0);
    tree.symlink("real", "home/work/a");
    EXPECT_EQ(refusal([&] { entry.validate(policy()); }), kRefusedLink);
}
