#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "snapshots/SnapshotStore.h"
#include "state/StateFiles.h"
#include "state/AppStorage.h"
#include "support/Checks.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::exists;
using tarnbridge::test::cliPath;
using tarnbridge::test::FakeHome;
using tarnbridge::test::runProcess;

namespace {

test::ProcessOutput cli(std::vector<std::string> args, const std::string& input = {})
{
    args.insert(args.begin(), cliPath());
    return runProcess(args, input);
}

} // namespace

TEST(CleanupCommands, CleanAsksMovesWithReceiptsAndRestoreUndoesIt)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string big = tree.file("home/work/big.bin", 300'000);
    const std::string folder = tree.folder("home/work/Old Project");
    tree.file("home/work/Old Project/src/main.c", 1000);
    const std::string backups = tree.folder("home/backups");
    tree.file("home/.ssh/id_ed25519", 10);

    const auto declined = cli({"clean", big, folder}, "n\n");
    EXPECT_EQ(declined.exitCode, 1);
    EXPECT_NE(declined.out.find("Nothing was moved."), std::string::npos);
    EXPECT_TRUE(exists(big));

    const auto run = cli({"clean", big, folder, fake.home() + "/.ssh", "--backup", backups}, "y\n");
    ASSERT_EQ(run.exitCode, 0) << run.out << run.err;
    EXPECT_FALSE(exists(big));
    EXPECT_FALSE(exists(folder));
    EXPECT_NE(run.out.find(fake.home() + "/.ssh: Protected system or account data"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("2 of 2 moved to the Trash"), std::string::npos) << run.out;
    EXPECT_NE(run.err.find("Verifying big.bin…"), std::string::npos);

    // The state folder now holds both receipts and the backup, as the app will read them.
    const auto state = StateFiles(AppStorage::directory()).load();
    ASSERT_TRUE(state.messages.empty());
    ASSERT_EQ(state.state.receipts.size(), 2u);
    ASSERT_EQ(state.state.backups.size(), 1u);
    EXPECT_TRUE(exists(state.state.backups[0].directory + "/Manifest.json"));
    const auto listed = cli({"receipts"});
    for (const auto& r : state.state.receipts) {
        EXPECT_NE(run.out.find("(receipt " + r.id + ")"), std::string::npos);
        EXPECT_NE(listed.out.find(r.id), std::string::npos);
    }
    EXPECT_NE(runProcess({"trash-list"}).out.find(folder), std::string::npos);

    // Restore by the first characters of the id.
    const TrashReceipt& first = state.state.receipts[0];
    const auto restored = cli({"restore", first.id.substr(0, 8), "FFFFFFFF"});
    EXPECT_EQ(restored.exitCode, 1); // the unknown id fails; the known one is restored
    EXPECT_NE(restored.out.find("Restored " + first.originalPath), std::string::npos) << restored.out;
    EXPECT_NE(restored.out.find("Not restored FFFFFFFF: No receipt has the id \"FFFFFFFF\"."), std::string::npos);
    EXPECT_TRUE(exists(first.originalPath));
    EXPECT_EQ(StateFiles(AppStorage::directory()).load().state.receipts.size(), 1u);
}

TEST(CleanupCommands, DamagedStateStopsCleanBeforeAnythingMoves)
{
    FakeHome fake;
    const std::string item = fake.tree().file("home/work/item.bin", 10);
    const std::string state = AppStorage::directory();
    fake.tree().folder("state-parent");
    std::filesystem::create_directories(state);
    std::ofstream(state + "/receipts.json") << "[{\"id\":";
    const auto run = cli({"clean", item, "--yes"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("Trash history: "), std::string::npos) << run.err;
    EXPECT_TRUE(exists(item));
    std::ifstream in(state + "/receipts.json");
    std::string kept((std::istreambuf_iterator<char>(in)), {});
    EXPECT_EQ(kept, "[{\"id\":"); // left for the user to look at
}

TEST(CleanupCommands, SnapshotsSaveListCompareAndDelete)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string work = tree.folder("home/work");
    tree.file("home/work/a.bin", 100'000);
    tree.file("home/work/sub/b.bin", 50'000);
    const auto saved = cli({"snapshot", "save", work, "--title", "Monday", "--quiet"});
    ASSERT_EQ(saved.exitCode, 0) << saved.err;
    tree.file("home/work/a.bin", 20'000'000);
    tree.file("home/work/new.bin", 12'000);
    const auto second = cli({"snapshot", "save", work, "--quiet"});
    ASSERT_EQ(second.exitCode, 0);

    const SnapshotStore store(AppStorage::directory() + "/Snapshots");
    const auto catalog = store.catalog();
    ASSERT_EQ(catalog.records.size(), 2u);
    const SnapshotRecord& newer = catalog.records[0];
    const SnapshotRecord& older = catalog.records[1];
    EXPECT_EQ(older.title, "Monday");
    EXPECT_EQ(newer.title, "work");

    const auto listing = cli({"snapshot", "list"});
    EXPECT_NE(listing.out.find(older.id.substr(0, 8)), std::string::npos);
    EXPECT_NE(listing.out.find("Monday"), std::string::npos);

    // The command prints the library's rows, in its order, filtered by --min-change.
    const auto changes = SnapshotStore::compare(store.load(older), store.load(newer), false);
    const auto compared = cli({"snapshot", "compare", older.id.substr(0, 8), newer.id, "--json", "--min-change", "1MB"});
    ASSERT_EQ(compared.exitCode, 0) << compared.err;
    std::vector<std::string> expected;
    for (const auto& c : changes)
        if (std::llabs(c.after - c.before) >= 1'000'000)
            expected.push_back("{\"path\":\"" + c.path + "\",\"before\":" + std::to_string(c.before) +
                               ",\"after\":" + std::to_string(c.after) + ",\"status\":\"" + statusText(c.status) + "\"}");
    std::string joined;
    for (const auto& line : expected)
        joined += line + "\n";
    EXPECT_EQ(compared.out, joined);
    EXPECT_EQ(expected.size(), 2u); // the folder and a.bin

    const auto topLevel = cli({"snapshot", "compare", older.id.substr(0, 8), "--current", work, "--top-level", "--quiet"});
    EXPECT_NE(topLevel.out.find("Added    " + work + "/new.bin"), std::string::npos) << topLevel.out;
    EXPECT_EQ(topLevel.out.find(work + "\n"), std::string::npos); // the root itself is no top-level row

    const auto other = cli({"snapshot", "save", tree.folder("home/elsewhere"), "--quiet"});
    const auto otherId = store.catalog().records[0].id;
    const auto mismatch = cli({"snapshot", "compare", older.id, otherId});
    EXPECT_EQ(mismatch.exitCode, 1);
    EXPECT_NE(mismatch.err.find(kSnapshotDifferentRoots), std::string::npos);

    ASSERT_EQ(cli({"snapshot", "delete", older.id.substr(0, 8)}).exitCode, 0);
    EXPECT_EQ(store.catalog().records.size(), 2u);
    EXPECT_EQ(cli({"snapshot", "delete", older.id}).exitCode, 1);
}

TEST(CleanupCommands, ExportCsvWritesTheListedRows)
{
    FakeHome fake;
    auto& tree = fake.tree();
    const std::string work = tree.folder("home/work");
    tree.file("home/work/=cmd.txt", 3000);
    tree.file("home/work/sub/photo.png", 9000);
    tree.file("home/work/sub/.hidden", 9000);
    const std::string out = tree.path("out.csv");
    const auto run = cli({"export-csv", work, "--out", out, "--recursive", "--no-hidden", "--quiet"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const auto python = runProcess({"python3", "-c",
                                    "import csv,sys\n"
                                    "for r in csv.DictReader(open(sys.argv[1],newline='')): print(r['name'], r['kind'])",
                                    out});
    EXPECT_EQ(python.out, "sub Folder\nphoto.png Images\n'=cmd.txt Documents\n");
    EXPECT_EQ(cli({"export-csv", work}).exitCode, 2); // --out is required
}
