#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include "cleanup/CleanupService.h"
#include "model/Identifiers.h"
#include "platform/Trash.h"
#include "model/Errors.h"
#include "model/PathText.h"
#include "model/ScanPaths.h"
#include "scan/DiskScanner.h"
#include "support/Checks.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::scanOf;
using tarnbridge::test::stage;
using tarnbridge::test::exists;
using tarnbridge::test::readText;
using tarnbridge::test::refusal;
using tarnbridge::test::FakeHome;
using tarnbridge::test::runProcess;

namespace {

// What gio (through the desktop's own trash backend) lists as original paths.
std::string gioTrashListing()
{
    return runProcess({"dbus-run-session", "--", "gio", "list", "-a", "trash::orig-path", "trash://"}).out;
}

} // namespace

TEST(Trash, OtherProgramsSeeOurItemsAndTheirRestoreAfterPutBack)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string odd = "odd 50% \xFF\xFEname.txt";
    const std::string plain = tree.file("home/work/two words.txt", 5);
    const std::string weird = tree.file("home/work/" + odd, 7);
    const std::string folder = tree.file("home/work/Folder/inner.bin", 9);
    const std::string work = fake.home() + "/work";
    const ScanResult scan = scanOf(work);

    const CleanupOutcome outcome = CleanupService::moveToTrash(
        {stage(scan, plain), stage(scan, weird), stage(scan, work + "/Folder")}, true);
    ASSERT_TRUE(outcome.errors.empty()) << outcome.errors.begin()->second;
    ASSERT_EQ(outcome.receipts.size(), 3u);
    const std::string trash = fake.dataHome() + "/Trash";
    for (const TrashReceipt& r : outcome.receipts) {
        EXPECT_FALSE(exists(r.originalPath));
        EXPECT_EQ(r.trashPath.rfind(trash + "/files/", 0), 0u) << r.trashPath;
        EXPECT_TRUE(exists(r.trashPath));
        EXPECT_EQ(r.id.size(), 36u);
    }
    EXPECT_EQ(outcome.receipts[2].bytes, scan.node(work + "/Folder")->allocatedSize);

    // The .trashinfo holds the percent-encoded original path.
    const std::string info = readText(trash + "/info/" + odd + ".trashinfo");
    EXPECT_NE(info.find("[Trash Info]\nPath=" + Trash::encodePath(weird) + "\nDeletionDate="), std::string::npos);
    EXPECT_NE(info.find("%25%20%FF%FE"), std::string::npos);
    EXPECT_EQ(Trash::decodePath(Trash::encodePath(weird)), weird);

    const std::string trashList = runProcess({"trash-list"}).out;
    EXPECT_NE(trashList.find(plain), std::string::npos) << trashList;
    EXPECT_NE(trashList.find(work + "/Folder"), std::string::npos) << trashList;
    EXPECT_NE(trashList.find(work + "/odd 50% "), std::string::npos) << trashList;
    const std::string gio = gioTrashListing();
    EXPECT_NE(gio.find("trash::orig-path=" + plain), std::string::npos) << gio;
    EXPECT_NE(gio.find("trash::orig-path=" + work + "/Folder"), std::string::npos) << gio;
    EXPECT_NE(gio.find("trash::orig-path=" + work + "/odd 50% "), std::string::npos) << gio;

    // File managers cache folder sizes; a restored folder's line goes, the others stay.
    std::ofstream(trash + "/directorysizes") << "4096 1700000000 Folder\n123 1700000000 other%20one\n";
    for (const TrashReceipt& r : outcome.receipts)
        CleanupService::restore(r);
    EXPECT_EQ(readText(trash + "/directorysizes"), "123 1700000000 other%20one\n");
    for (const TrashReceipt& r : outcome.receipts) {
        EXPECT_TRUE(exists(r.originalPath)) << r.originalPath;
        EXPECT_FALSE(exists(r.trashPath));
    }
    EXPECT_FALSE(exists(trash + "/info/" + odd + ".trashinfo"));
    EXPECT_EQ(readText(weird), std::string(7, 'x'));
    EXPECT_EQ(runProcess({"trash-list"}).out.find(work), std::string::npos);
    EXPECT_EQ(gioTrashListing().find("orig-path="), std::string::npos);
}

TEST(Trash, SecondItemOfOneNameGetsTheNextFreeName)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string a = tree.file("home/a/same.txt", 1);
    const std::string b = tree.file("home/b/same.txt", 2);
    const std::string first = Trash::moveToTrash(a);
    const std::string second = Trash::moveToTrash(b);
    EXPECT_EQ(first, fake.dataHome() + "/Trash/files/same.txt");
    EXPECT_EQ(second, fake.dataHome() + "/Trash/files/same.txt.2");
    EXPECT_TRUE(exists(fake.dataHome() + "/Trash/info/same.txt.2.trashinfo"));
    struct stat st {};
    ASSERT_EQ(::stat((fake.dataHome() + "/Trash/info").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
}

TEST(Trash, LongestNamesGetAShorterNameInTheTrashAndComeBack)
{
    FakeHome fake;
    // 252 bytes; the cut at 240 would fall inside the "é".
    const std::string longName = std::string(239, 'n') + "\xC3\xA9" + std::string(11, 'z');
    const std::string item = fake.tree().file("home/work/" + longName, 4);
    const std::string moved = Trash::moveToTrash(item);
    EXPECT_FALSE(exists(item));
    EXPECT_EQ(std::string(PathText::name(moved)), std::string(239, 'n')); // cut before the "é"
    EXPECT_NE(readText(fake.dataHome() + "/Trash/info/" + std::string(239, 'n') + ".trashinfo").find(Trash::encodePath(item)),
              std::string::npos);
    EXPECT_NE(runProcess({"trash-list"}).out.find(fake.home() + "/work/nnn"), std::string::npos);
    Trash::putBack(moved, item);
    EXPECT_TRUE(exists(item));
}

TEST(Trash, FailedMoveLeavesNoTrashInfoAndTheItemInPlace)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string item = tree.file("home/sealed/item.txt", 3);
    tree.folder("home/.local/share/Trash/files");
    tree.chmod("home/sealed", 0555); // the item cannot leave its folder
    {
        test::WithoutAdminRights plainUser;
        EXPECT_EQ(refusal([&] { Trash::moveToTrash(item); }), "Permission denied");
    }
    EXPECT_TRUE(exists(item));
    EXPECT_FALSE(exists(fake.dataHome() + "/Trash/info/item.txt.trashinfo"));
    EXPECT_FALSE(exists(fake.dataHome() + "/Trash/files/item.txt"));
}

TEST(CleanupService, OneChangedItemStopsTheWholeRunAndLaterChangesStopOnlyThemselves)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string work = tree.folder("home/work");
    const std::string one = tree.file("home/work/one.txt", 1);
    const std::string two = tree.file("home/work/two.txt", 2);
    const ScanResult scan = scanOf(work);
    const std::vector<CleanupEntry> entries{stage(scan, one), stage(scan, two)};
    std::this_thread::sleep_for(std::chrono::milliseconds(15));
    tree.file("home/work/two.txt", 3);

    const CleanupOutcome stopped = CleanupService::moveToTrash(entries, true);
    EXPECT_TRUE(stopped.receipts.empty());
    ASSERT_EQ(stopped.errors.size(), 1u);
    EXPECT_EQ(stopped.errors.at(two), "two.txt changed since the scan. Rescan and stage it again.");
    EXPECT_TRUE(exists(one));

    // Without the all-valid pass each item stands alone.
    const CleanupOutcome partial = CleanupService::moveToTrash(entries, false);
    ASSERT_EQ(partial.receipts.size(), 1u);
    EXPECT_EQ(partial.receipts[0].originalPath, one);
    EXPECT_EQ(partial.errors.size(), 1u);
    EXPECT_TRUE(exists(two));
    EXPECT_TRUE(CleanupService::moveToTrash({}, true).errors.empty());
}

TEST(CleanupService, KeptCopyInsideTheQueueMovesNothing)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string work = tree.folder("home/work");
    const std::string copy = tree.file("home/work/copy.bin", 10);
    const std::string kept = tree.file("home/work/keepers/kept.bin", 10);
    const ScanResult scan = scanOf(work);
    CleanupEntry duplicate = stage(scan, copy);
    duplicate.retainedCopies[kept] = scan.node(kept)->identity;

    for (const std::string& staged : {kept, work + "/keepers"}) {
        const CleanupOutcome outcome = CleanupService::moveToTrash({duplicate, stage(scan, staged)}, true);
        EXPECT_TRUE(outcome.receipts.empty());
        ASSERT_EQ(outcome.errors.size(), 2u);
        for (const auto& [path, message] : outcome.errors)
            EXPECT_EQ(message, kConflictNothingMoved);
        EXPECT_TRUE(exists(copy));
        EXPECT_TRUE(exists(kept));
    }
    // Spelled through a merged-/usr alias, the same path still conflicts.
    CleanupEntry viaAlias;
    viaAlias.node.path = "/usr/bin/x";
    CleanupEntry holder;
    holder.node.path = "/tmp/y";
    holder.retainedCopies["/bin/x/inside"] = {};
    const bool merged = ScanPaths::candidates("/usr/bin/x").size() > 1;
    EXPECT_EQ(CleanupService::hasRetainedCopyConflict({holder, viaAlias}), merged);
    EXPECT_FALSE(CleanupService::hasRetainedCopyConflict({viaAlias}));
}

TEST(CleanupService, RestoreOnlyWhenTheItemIsProvablyTheSameAndItsPlaceIsFree)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string work = tree.folder("home/work");
    const std::string taken = tree.file("home/work/taken.txt", 1);
    const std::string edited = tree.file("home/work/edited.txt", 1);
    const std::string moved = tree.file("home/work/sub/moved.txt", 1);
    const std::string chmodded = tree.file("home/work/chmodded.txt", 1);
    const ScanResult scan = scanOf(work);
    const CleanupOutcome outcome = CleanupService::moveToTrash(
        {stage(scan, taken), stage(scan, edited), stage(scan, moved), stage(scan, chmodded)}, true);
    ASSERT_EQ(outcome.receipts.size(), 4u);
    std::map<std::string, TrashReceipt> byPath;
    for (const auto& r : outcome.receipts)
        byPath[r.originalPath] = r;

    tree.file("home/work/taken.txt", 5);
    std::this_thread::sleep_for(std::chrono::milliseconds(15));
    std::ofstream(byPath[edited].trashPath, std::ios::app) << "more";
    ASSERT_EQ(::rename(tree.path("home/work/sub").c_str(), tree.path("home/work/sub2").c_str()), 0);
    ::chmod(byPath[chmodded].trashPath.c_str(), 0600);

    EXPECT_EQ(refusal([&] { CleanupService::restore(byPath[taken]); }), kRestoreOccupied);
    EXPECT_EQ(refusal([&] { CleanupService::restore(byPath[edited]); }), kRestoreChanged);
    EXPECT_EQ(refusal([&] { CleanupService::restore(byPath[moved]); }), kRestoreParentMissing);
    EXPECT_EQ(refusal([&] { CleanupService::restore(byPath[chmodded]); }), "");
    for (const auto& path : {taken, edited, moved})
        EXPECT_TRUE(exists(byPath[path].trashPath)) << path;
    EXPECT_TRUE(exists(chmodded));

    // A receipt whose item was emptied from the Trash: the system's words.
    ::unlink(byPath[edited].trashPath.c_str());
    EXPECT_EQ(refusal([&] { CleanupService::restore(byPath[edited]); }), "No such file or directory");
}

TEST(CleanupService, ReceiptJsonRoundTripsAndNeedsEveryKey)
{
    TrashReceipt r{newIdentifier(), "/home/u/a\xFF", "/home/u/.local/share/Trash/files/a\xFF", 1.7e9 + 0.25, 4096,
                   FileIdentity{.device = 2049, .inode = 77, .size = 3, .mode = 0100644, .linkCount = 1}};
    json::Writer w;
    r.write(w);
    EXPECT_EQ(TrashReceipt::read(json::parse(w.text())), r);
    for (const char* key : {"id", "originalPath", "trashPath", "date", "bytes", "identity"}) {
        std::string text = w.text();
        text.replace(text.find(std::string("\"") + key + "\":"), 1, "\"_");
        EXPECT_THROW(TrashReceipt::read(json::parse(text)), TarnbridgeError) << key;
    }
}

TEST(Trash, ItemOnAnotherFileSystemGoesToThatVolumesTrash)
{
    FakeHome fake;
    const std::string volume = "/dev/shm";
    struct stat shm {}, home {};
    if (::stat(volume.c_str(), &shm) != 0 || ::stat(fake.home().c_str(), &home) != 0 || shm.st_dev == home.st_dev)
        GTEST_SKIP() << "no second file system to try";
    const std::string uid = std::to_string(::getuid());
    const std::string ownTrash = volume + "/.Trash-" + uid;
    const std::string sharedTrash = volume + "/.Trash";
    if (exists(ownTrash) || exists(sharedTrash))
        GTEST_SKIP() << "this machine already has a trash on " << volume;
    struct Cleanup {
        std::vector<std::string> paths;
        ~Cleanup()
        {
            for (const auto& p : paths)
                std::filesystem::remove_all(p);
        }
    } cleanup{{ownTrash, sharedTrash, volume + "/tarnbridge-trash-test"}};
    std::filesystem::create_directories(volume + "/tarnbridge-trash-test");
    const std::string item = volume + "/tarnbridge-trash-test/on volume.txt";
    std::ofstream(item) << "data";

    const std::string moved = Trash::moveToTrash(item);
    EXPECT_EQ(moved, ownTrash + "/files/on volume.txt");
    // A volume trash records the path relative to the volume's top folder.
    EXPECT_NE(readText(ownTrash + "/info/on volume.txt.trashinfo").find("\nPath=tarnbridge-trash-test/on%20volume.txt\n"),
              std::string::npos);
    Trash::putBack(moved, item);
    EXPECT_TRUE(exists(item));
    EXPECT_FALSE(exists(ownTrash + "/info/on volume.txt.trashinfo"));

    // A shared .Trash with the sticky bit takes the item in a folder of this user.
    std::filesystem::remove_all(ownTrash);
    ASSERT_EQ(::mkdir(sharedTrash.c_str(), 01777), 0);
    ::chmod(sharedTrash.c_str(), 01777);
    EXPECT_EQ(Trash::moveToTrash(item), sharedTrash + "/" + uid + "/files/on volume.txt");
    Trash::putBack(sharedTrash + "/" + uid + "/files/on volume.txt", item);

    // Neither usable: the shared one lacks the sticky bit and the own one is a file.
    ::chmod(sharedTrash.c_str(), 0777);
    std::ofstream(ownTrash) << "in the way";
    EXPECT_EQ(refusal([&] { Trash::moveToTrash(item); }), Trash::kNoUsableTrash);
    EXPECT_TRUE(exists(item));
}

namespace {

void setModified(const std::string& path, const struct timespec& modified)
{
    const struct timespec times[2] = {modified, modified};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

struct timespec modifiedTime(const std::string& path)
{
    struct stat st {};
    ::lstat(path.c_str(), &st);
    return st.st_mtim;
}

} // namespace

// Each thing restore compares is needed on its own: the others are kept as they were.
TEST(CleanupService, RestoreComparesSizeTimeAndInodeEachOnTheirOwn)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string work = tree.folder("home/work");
    const std::string resized = tree.file("home/work/resized.txt", 10);
    const std::string retimed = tree.file("home/work/retimed.txt", 10);
    const std::string replaced = tree.file("home/work/replaced.txt", 10);
    const std::string linked = tree.file("home/work/parent/linked.txt", 10);
    const ScanResult scan = scanOf(work);
    const CleanupOutcome outcome = CleanupService::moveToTrash(
        {stage(scan, resized), stage(scan, retimed), stage(scan, replaced), stage(scan, linked)}, true);
    ASSERT_EQ(outcome.receipts.size(), 4u);
    std::map<std::string, TrashReceipt> byPath;
    for (const auto& r : outcome.receipts)
        byPath[r.originalPath] = r;
    std::this_thread::sleep_for(std::chrono::milliseconds(15));

    // Longer, with its time put back.
    const std::string& grown = byPath[resized].trashPath;
    const struct timespec grownTime = modifiedTime(grown);
    std::ofstream(grown, std::ios::app) << "more";
    ASSERT_NO_FATAL_FAILURE(setModified(grown, grownTime));
    // Same size, other bytes, a new time.
    std::ofstream(byPath[retimed].trashPath, std::ios::in | std::ios::out) << "yyyyyyyyyy";
    // Another file of the same size and time in its place.
    const std::string& swapped = byPath[replaced].trashPath;
    const struct timespec swappedTime = modifiedTime(swapped);
    const std::string stranger = tree.file("home/stranger.txt", 10);
    ASSERT_NO_FATAL_FAILURE(setModified(stranger, swappedTime));
    ASSERT_EQ(::rename(stranger.c_str(), swapped.c_str()), 0);
    // The original folder is a link now, to a folder of another name.
    ASSERT_EQ(::rename(tree.path("home/work/parent").c_str(), tree.path("home/work/elsewhere").c_str()), 0);
    tree.symlink("elsewhere", "home/work/parent");

    EXPECT_EQ(refusal([&] { CleanupService::restore(byPath[resized]); }), kRestoreChanged);
    EXPECT_EQ(refusal([&] { CleanupService::restore(byPath[retimed]); }), kRestoreChanged);
    EXPECT_EQ(refusal([&] { CleanupService::restore(byPath[replaced]); }), kRestoreChanged);
    EXPECT_EQ(refusal([&] { CleanupService::restore(byPath[linked]); }), kRestoreParentMissing);
    for (const auto& r : outcome.receipts) {
        EXPECT_TRUE(exists(r.trashPath)) << r.originalPath;
        EXPECT_FALSE(exists(r.originalPath)) << r.originalPath;
    }
    EXPECT_FALSE(exists(tree.path("home/work/elsewhere/linked.txt")));
}

TEST(Trash, NothingIsEverMovedOverAnotherItem)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string trash = fake.dataHome() + "/Trash";
    // A .trashinfo left without its item keeps its name taken.
    tree.fileWithText("home/.local/share/Trash/info/notes.txt.trashinfo", "left by another program");
    const std::string notes = tree.fileWithText("home/work/notes.txt", "first");
    const std::string moved = Trash::moveToTrash(notes);
    EXPECT_EQ(moved, trash + "/files/notes.txt.2");
    EXPECT_EQ(readText(trash + "/info/notes.txt.trashinfo"), "left by another program");

    // Putting back never replaces what now stands at the original place.
    tree.fileWithText("home/work/notes.txt", "second");
    EXPECT_EQ(refusal([&] { Trash::putBack(moved, notes); }), "File exists");
    EXPECT_EQ(readText(notes), "second");
    EXPECT_EQ(readText(moved), "first");
    EXPECT_TRUE(exists(trash + "/info/notes.txt.2.trashinfo"));
}
