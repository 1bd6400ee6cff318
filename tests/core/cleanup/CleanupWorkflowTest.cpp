#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>

#include "cleanup/CleanupWorkflow.h"
#include "scan/DiskScanner.h"
#include "support/Checks.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::scanOf;
using tarnbridge::test::stage;
using tarnbridge::test::exists;
using tarnbridge::test::FakeHome;

namespace {

std::size_t entriesIn(const std::string& folder)
{
    if (!std::filesystem::exists(folder))
        return 0;
    return std::size_t(std::distance(std::filesystem::directory_iterator(folder), {}));
}

struct Fixture {
    FakeHome fake;
    std::string work, backups;
    ScanResult scan;
    std::vector<CleanupEntry> entries;
    std::vector<std::string> paths;

    Fixture()
    {
        auto& tree = fake.tree();
        work = tree.folder("home/work");
        backups = tree.folder("home/backups");
        paths = {tree.file("home/work/a.bin", 2'500'000), tree.file("home/work/dir/b.bin", 10),
                 tree.file("home/work/c.bin", 3)};
        scan = scanOf(work);
        for (const auto& p : {paths[0], work + "/dir", paths[2]})
            entries.push_back(stage(scan, p));
    }

    // Nothing is lost: each staged item is in place, or in the Trash with a receipt, or named in
    // the errors.
    void expectNothingLost(const CleanupRunResult& r) const
    {
        for (const auto& e : entries) {
            const std::string& path = e.node.path;
            bool accounted = exists(path) || r.outcome.errors.count(path);
            for (const auto& receipt : r.outcome.receipts)
                accounted = accounted || (receipt.originalPath == path && exists(receipt.trashPath));
            EXPECT_TRUE(accounted) << path;
        }
    }
    bool untouched() const
    {
        for (const auto& e : entries)
            if (!exists(e.node.path))
                return false;
        return true;
    }
};

} // namespace

TEST(CleanupWorkflow, EveryWayOutLeavesEachFileInPlaceOrInTheTrashWithAReceipt)
{
    struct Case {
        const char* name;
        bool backup = false;
        bool snapshot = false;
        // Prepares the situation; may return the phase message on which to cancel.
        std::function<std::string(Fixture&)> arrange;
        std::optional<std::string> error; // expected preparationError
        bool cancelled = false;
        bool backupKept = false;
        bool snapshotSaved = false;
        std::size_t moved = 0;
    };
    const std::vector<Case> cases{
        {"all moved", false, false, [](Fixture&) { return std::string(); }, std::nullopt, false, false, false, 3},
        {"with backup and snapshot", true, true, [](Fixture&) { return std::string(); }, std::nullopt, false, true,
         true, 3},
        {"a changed item", true, true,
         [](Fixture& f) {
             f.fake.tree().file("home/work/c.bin", 4);
             return std::string();
         },
         "c.bin changed since the scan. Rescan and stage it again."},
        // Without a backup the check still comes before the snapshot is saved.
        {"a changed item, no backup", false, true,
         [](Fixture& f) {
             f.fake.tree().file("home/work/c.bin", 4);
             return std::string();
         },
         "c.bin changed since the scan. Rescan and stage it again."},
        {"kept copy in the queue", true, false,
         [](Fixture& f) {
             f.entries[0].retainedCopies[f.paths[2]] = f.scan.node(f.paths[2])->identity;
             return std::string();
         },
         kKeptDuplicateSelected},
        {"backup folder is a file", true, false,
         [](Fixture& f) {
             f.backups = f.paths[0] + "-not-a-folder";
             f.fake.tree().file("home/work/a.bin-not-a-folder", 1);
             return std::string();
         },
         "Choose a folder for the backup."},
        {"cancel while verifying the backup", true, true, [](Fixture&) { return std::string("Verifying a.bin…"); },
         std::nullopt, true},
        {"cancel while saving the snapshot", true, true, [](Fixture&) { return std::string("Saving scan snapshot…"); },
         std::nullopt, true, true, true},
        {"cancel at the first check", false, false, [](Fixture&) { return std::string("Checking files…"); },
         std::nullopt, true},
        {"snapshot cannot be saved", true, true,
         [](Fixture& f) {
             f.fake.tree().fileWithText("home/state-is-a-file", "x");
             return std::string();
         },
         "Not a directory", false, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Fixture f;
        const std::string cancelOn = c.arrange(f);
        // The snapshot store sits below a file in the failing case.
        const SnapshotStore store(c.error && *c.error == "Not a directory"
                                      ? f.fake.home() + "/state-is-a-file/Snapshots"
                                      : f.fake.home() + "/state/Snapshots");
        CancellationFlag flag;
        std::vector<CleanupPhase> phases;
        const CleanupRunResult r = CleanupWorkflow::run(
            f.entries, c.backup ? std::optional(f.backups) : std::nullopt,
            c.snapshot ? std::optional(f.scan) : std::nullopt, store, flag, [&](const CleanupProgress& p) {
                if (phases.empty() || phases.back() != p.phase)
                    phases.push_back(p.phase);
                if (!cancelOn.empty() && p.message == cancelOn)
                    flag.cancel();
            });
        EXPECT_EQ(r.preparationError, c.error);
        EXPECT_EQ(r.cancelled, c.cancelled);
        EXPECT_EQ(r.backup.has_value(), c.backupKept);
        EXPECT_EQ(r.snapshot.has_value(), c.snapshotSaved);
        EXPECT_EQ(r.outcome.receipts.size(), c.moved);
        EXPECT_TRUE(r.outcome.errors.empty());
        f.expectNothingLost(r);
        EXPECT_EQ(f.untouched(), c.moved == 0);
        // A backup folder exists exactly when the result names one.
        if (std::filesystem::is_directory(f.backups)) {
            EXPECT_EQ(entriesIn(f.backups), c.backupKept ? 1u : 0u);
        }
        if (r.snapshot) {
            EXPECT_EQ(r.snapshot->title, "Before cleanup — work");
        }
        if (c.moved == 3 && !c.backup) {
            EXPECT_EQ(phases, (std::vector{CleanupPhase::checking, CleanupPhase::movingToTrash}));
        }
        if (c.moved == 3 && c.backup) {
            EXPECT_EQ(phases, (std::vector{CleanupPhase::checking, CleanupPhase::backingUp,
                                           CleanupPhase::savingSnapshot, CleanupPhase::movingToTrash}));
        }
    }
}

TEST(CleanupWorkflow, NothingStagedAndAScanWithoutRoot)
{
    FakeHome fake;
    bool called = false;
    const SnapshotStore store(fake.home() + "/Snapshots");
    const auto empty = CleanupWorkflow::run({}, std::nullopt, std::nullopt, store, CancellationFlag(),
                                            [&](const CleanupProgress&) { called = true; });
    EXPECT_EQ(empty.preparationError, kNoFilesSelected);
    EXPECT_FALSE(called);

    const std::string file = fake.tree().file("home/x.bin", 1);
    const ScanResult scan = scanOf(fake.home());
    const auto r = CleanupWorkflow::run({stage(scan, file)}, std::nullopt, ScanResult(), store, CancellationFlag());
    ASSERT_TRUE(r.snapshot);
    EXPECT_EQ(r.snapshot->title, "Before cleanup — Scan");
    EXPECT_EQ(r.outcome.receipts.size(), 1u);
}

TEST(CleanupWorkflow, TheSnapshotFolderHoldsEveryMovableItemAndNoRefusedOne)
{
    FakeHome fake;
    const CleanupPolicy policy{fake.home()};
    const std::string h = fake.home();
    EXPECT_EQ(CleanupWorkflow::snapshotFolder({h + "/work/a/x", h + "/work/a/y/z"}, policy), h + "/work/a");
    EXPECT_EQ(CleanupWorkflow::snapshotFolder({h + "/work/a/x"}, policy), h + "/work/a");
    EXPECT_EQ(CleanupWorkflow::snapshotFolder({h + "/work/ab", h + "/work/a/x"}, policy), h + "/work");
    // An item under /etc would be refused anyway: it does not make the scan the whole disk.
    EXPECT_EQ(CleanupWorkflow::snapshotFolder({h + "/work/a/x", "/etc/hosts"}, policy), h + "/work/a");
    EXPECT_EQ(CleanupWorkflow::snapshotFolder({"/etc/hosts"}, policy), "/etc");
}
