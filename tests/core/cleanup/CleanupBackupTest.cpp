#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "cleanup/CleanupBackup.h"
#include "model/Errors.h"
#include "scan/DiskScanner.h"
#include "support/Checks.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::scanOf;
using tarnbridge::test::stage;
using tarnbridge::test::readText;
using tarnbridge::test::refusal;
using tarnbridge::test::FakeHome;

namespace {

std::vector<std::string> listing(const std::string& folder)
{
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(folder))
        names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace

TEST(CleanupBackup, CopiesEachItemIntoItsOwnNumberedFolderAndProvesIt)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string work = tree.folder("home/work");
    const std::string backups = tree.folder("home/backups");
    tree.fileWithText("home/work/a/report.pdf", "first");
    tree.fileWithText("home/work/b/report.pdf", "second one");
    tree.file("home/work/dir/big.bin", 3'000'000, 'q');
    tree.fileWithText("home/work/dir/sub/empty.txt", "");
    tree.symlink("sub/empty.txt", "home/work/dir/link");
    const ScanResult scan = scanOf(work);
    std::vector<std::string> messages;
    const BackupReceipt receipt = CleanupBackup::create(
        {stage(scan, work + "/a/report.pdf"), stage(scan, work + "/b/report.pdf"), stage(scan, work + "/dir")}, backups,
        CancellationFlag(), [&](const std::string& m) { messages.push_back(m); });

    ASSERT_EQ(listing(backups).size(), 1u);
    const std::string folder = backups + "/" + listing(backups)[0];
    EXPECT_EQ(folder, receipt.directory);
    EXPECT_TRUE(std::regex_match(listing(backups)[0],
                                 std::regex("Tarnbridge Backup \\d{4}-\\d\\d-\\d\\d \\d\\d\\.\\d\\d\\.\\d\\d [0-9A-F]{8}")))
        << listing(backups)[0];
    EXPECT_EQ(receipt.id.substr(0, 8), folder.substr(folder.size() - 8));
    // Shortest path first: "dir" is staged third but sorts first.
    ASSERT_EQ(receipt.items.size(), 3u);
    EXPECT_EQ(receipt.items[0].relativePath, "Files/0001/dir");
    EXPECT_EQ(receipt.items[1].relativePath, "Files/0002/report.pdf");
    EXPECT_EQ(receipt.items[2].relativePath, "Files/0003/report.pdf");
    EXPECT_EQ(readText(folder + "/Files/0002/report.pdf"), "first");
    EXPECT_EQ(readText(folder + "/Files/0003/report.pdf"), "second one");
    EXPECT_EQ(receipt.items[0].bytes, scan.node(work + "/dir")->logicalSize);
    char target[64] = {};
    ASSERT_GT(::readlink((folder + "/Files/0001/dir/link").c_str(), target, sizeof target), 0);
    EXPECT_STREQ(target, "sub/empty.txt");

    const BackupReceipt manifest = BackupReceipt::read(json::parse(readText(folder + "/Manifest.json")));
    EXPECT_EQ(manifest.directory, folder);
    EXPECT_EQ(manifest.items, receipt.items);
    EXPECT_EQ(messages.front(), "Backing up dir…");
    EXPECT_EQ(messages[1], "Verifying dir…");
    EXPECT_EQ(messages.size(), 6u);
}

TEST(CleanupBackup, RefusalsBeforeAnythingIsCopied)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string work = tree.folder("home/work");
    const std::string file = tree.file("home/work/file.txt", 1);
    tree.folder("home/work/staged/inside");
    tree.symlink(work + "/staged/inside", "home/via-link");
    const ScanResult scan = scanOf(work);
    const CleanupEntry folder = stage(scan, work + "/staged");
    const CancellationFlag go;

    EXPECT_EQ(refusal([&] { CleanupBackup::create({}, work, go); }), kNoFilesForBackup);
    EXPECT_EQ(refusal([&] { CleanupBackup::create({folder}, file, go); }), kChooseBackupFolder);
    EXPECT_EQ(refusal([&] { CleanupBackup::create({folder}, work + "/staged", go); }), kBackupInsideItems);
    EXPECT_EQ(refusal([&] { CleanupBackup::create({folder}, work + "/staged/inside", go); }), kBackupInsideItems);
    EXPECT_EQ(refusal([&] { CleanupBackup::create({folder}, fake.home() + "/via-link", go); }), kBackupInsideItems);
    EXPECT_EQ(refusal([&] { CleanupBackup::create({folder}, work + "/missing", go); }), "No such file or directory");
    // More than the volume holds: refused before anything is created.
    CleanupEntry huge = folder;
    huge.node.logicalSize = 4'000'000'000'000'000'000;
    const std::string tooBig = refusal([&] { CleanupBackup::create({huge}, work, go); });
    EXPECT_EQ(tooBig.rfind("The backup needs 4", 0), 0u) << tooBig;
    EXPECT_NE(tooBig.find(". Choose a disk with more free space."), std::string::npos);
    CancellationFlag stopped;
    stopped.cancel();
    EXPECT_EQ(refusal([&] { CleanupBackup::create({folder}, work, stopped); }), "cancelled");
    // An item inside the backup folder is fine; only the reverse is refused.
    EXPECT_EQ(refusal([&] { CleanupBackup::create({folder}, work, go); }), "");
}

TEST(CleanupBackup, EveryFailureAfterTheCopyStartsLeavesNoFolderBehind)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string work = tree.folder("home/work");
    const std::string backups = tree.folder("home/backups");
    const std::string big = tree.file("home/work/big.bin", 6'000'000, 'z');
    const std::string small = tree.file("home/work/small.bin", 10);
    const ScanResult scan = scanOf(work);

    // Changed after its copy: the re-check after verifying catches it.
    const std::string changed = refusal([&] {
        CleanupBackup::create({stage(scan, small)}, backups, CancellationFlag(), [&](const std::string& m) {
            if (m.rfind("Verifying", 0) == 0)
                ::chmod(small.c_str(), 0600);
        });
    });
    EXPECT_EQ(changed, "small.bin changed since the scan. Rescan and stage it again.");
    EXPECT_TRUE(listing(backups).empty());

    // A read-only folder inside the copy does not keep the unfinished backup from going.
    tree.fileWithText("home/work/ro/inner/notes.txt", "v1");
    tree.chmod("home/work/ro/inner", 0555);
    const ScanResult withReadOnly = scanOf(work);
    {
        test::WithoutAdminRights plainUser;
        const std::string changedInside = refusal([&] {
            CleanupBackup::create({stage(withReadOnly, work + "/ro")}, backups, CancellationFlag(),
                                  [&](const std::string& m) {
                                      if (m.rfind("Verifying", 0) == 0)
                                          std::ofstream(work + "/ro/inner/notes.txt", std::ios::app) << "v2";
                                  });
        });
        EXPECT_EQ(changedInside, "The backup of ro could not be verified."); // its total changed
        EXPECT_TRUE(listing(backups).empty());
    }

    // Cancelled while the big file is being compared: it stops at a block boundary.
    CancellationFlag flag;
    const std::string cancelled = refusal([&] {
        CleanupBackup::create({stage(scan, big)}, backups, flag, [&](const std::string& m) {
            if (m.rfind("Verifying", 0) == 0)
                flag.cancel();
        });
    });
    EXPECT_EQ(cancelled, "cancelled");
    EXPECT_TRUE(listing(backups).empty());
}

TEST(CleanupBackup, VerificationFindsEveryKindOfDifference)
{
    test::TempTree tree;
    const CancellationFlag go;
    tree.fileWithText("a/same.txt", "abc");
    tree.fileWithText("b/same.txt", "abc");
    tree.fileWithText("c/same.txt", "abd");
    tree.fileWithText("d/same.txt", "abc");
    tree.symlink("same.txt", "d/link");
    tree.fileWithText("e/same.txt", "abc");
    tree.symlink("sane.txt", "e/link"); // same length, other text
    tree.fileWithText("f/renamed.txt", "abc");
    tree.fileWithText("g/same.txt", "abcd");
    tree.fileWithText("empty1", "");
    tree.fileWithText("empty2", "");
    ASSERT_EQ(::mkfifo(tree.path("pipe").c_str(), 0600), 0);

    EXPECT_EQ(refusal([&] { CleanupBackup::verify(tree.path("a"), tree.path("b"), go); }), "");
    EXPECT_EQ(refusal([&] { CleanupBackup::verify(tree.path("a"), tree.path("c"), go); }),
              "The backup of same.txt does not match the original.");
    EXPECT_EQ(refusal([&] { CleanupBackup::verify(tree.path("a"), tree.path("d"), go); }), kBackupNotVerified);
    EXPECT_EQ(refusal([&] { CleanupBackup::verify(tree.path("a"), tree.path("f"), go); }),
              "The backup of same.txt could not be verified.");
    EXPECT_EQ(refusal([&] { CleanupBackup::verify(tree.path("a"), tree.path("g"), go); }),
              "The backup of a could not be verified."); // the folder's total differs first
    tree.symlink("same.txt", "a/link");
    EXPECT_EQ(refusal([&] { CleanupBackup::verify(tree.path("a"), tree.path("e"), go); }), kLinkMismatch);
    EXPECT_EQ(refusal([&] { CleanupBackup::verify(tree.path("empty1"), tree.path("empty2"), go); }), "");
    EXPECT_EQ(refusal([&] { CleanupBackup::compareFile(tree.path("pipe"), tree.path("empty1"), go); }),
              kOnlyRegularFiles);
}

TEST(CleanupBackup, ReceiptJsonRoundTrips)
{
    const BackupReceipt r{"0F8FAD5B-D9CB-469F-A165-70867728950E", "/b/Tarnbridge Backup x", 1.7e9,
                          {{"/a/\xFFx", "Files/0001/\xFFx", 12}, {"/c", "Files/0002/c", 0}}};
    json::Writer w;
    r.write(w);
    EXPECT_EQ(BackupReceipt::read(json::parse(w.text())), r);
}

// Files of more than one read block: a difference in any block, and a copy that goes on after
// the original ends, are all found.
TEST(CleanupBackup, VerificationReadsEveryBlockOfLargeFiles)
{
    test::TempTree tree;
    const CancellationFlag go;
    constexpr std::size_t kMiB = 1 << 20;
    const std::string original = test::randomBytes(kMiB + kMiB / 2, 7);
    auto variant = [&](std::size_t at) {
        std::string bytes = original;
        bytes[at] = char(bytes[at] ^ 0x20);
        return bytes;
    };
    tree.fileWithText("source/big.bin", original);
    struct Case {
        const char* what;
        std::string copy;
        std::string expected;
    };
    const std::string mismatch = "The backup of big.bin does not match the original.";
    const std::vector<Case> cases{
        {"same", original, ""},
        {"first byte", variant(0), mismatch},
        {"inside the first block", variant(4321), mismatch},
        {"last byte of the first block", variant(kMiB - 1), mismatch},
        {"inside the second block", variant(kMiB + 17), mismatch},
        {"last byte", variant(original.size() - 1), mismatch},
        {"one byte more", original + "x", mismatch},
        {"one byte less", original.substr(0, original.size() - 1), mismatch},
        {"exactly one block less", original.substr(0, kMiB / 2), mismatch},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const std::string copy = tree.fileWithText("copy" + std::to_string(i) + "/big.bin", cases[i].copy);
        EXPECT_EQ(refusal([&] { CleanupBackup::verify(tree.path("source/big.bin"), copy, go); }), cases[i].expected)
            << cases[i].what;
    }
    // Inside folders the sizes are compared first; equal sizes leave it to the bytes.
    EXPECT_EQ(refusal([&] { CleanupBackup::verify(tree.path("source"), tree.path("copy0"), go); }), "");
    EXPECT_EQ(refusal([&] { CleanupBackup::verify(tree.path("source"), tree.path("copy2"), go); }), mismatch);
}
