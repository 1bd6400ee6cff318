#include <gtest/gtest.h>

#include <fstream>

#include "model/Errors.h"
#include "model/Identifiers.h"
#include "platform/FileIO.h"
#include "state/StateFiles.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::TempTree;

namespace {

CleanupEntry entry(const std::string& path)
{
    CleanupEntry e;
    e.node.path = path;
    return e;
}

TrashReceipt receipt(const std::string& originalPath)
{
    return {newIdentifier(), originalPath, "/trash/files/x", 1.7e9, 1, {}};
}

std::vector<std::string> paths(const std::vector<CleanupEntry>& queue)
{
    std::vector<std::string> out;
    for (const auto& e : queue)
        out.push_back(e.node.path);
    return out;
}

} // namespace

TEST(StateMerge, KeepsWhatEitherSideAddedAndDropsWhatEitherSideRemoved)
{
    const TrashReceipt kept = receipt("/h/kept"), restoredHere = receipt("/h/restored-here"),
                       restoredThere = receipt("/h/restored-there"), mine = receipt("/h/mine"),
                       theirs = receipt("/h/theirs");
    AppState base;
    base.receipts = {kept, restoredHere, restoredThere};
    base.queue = {entry("/h/a"), entry("/h/b")};
    AppState here = base;
    here.receipts = {mine, kept, restoredThere}; // restored one, moved one
    here.queue = {entry("/h/a")};                // removed b
    AppState there = base;
    there.receipts = {theirs, kept, restoredHere}; // the other program restored one, moved one
    there.queue = {entry("/h/a"), entry("/h/b"), entry("/h/c")};
    there.backups = {{newIdentifier(), "/b/Tarnbridge Backup", 1.7e9, {}}};

    const AppState merged = mergedState(base, here, there);
    ASSERT_EQ(merged.receipts.size(), 3u);
    EXPECT_EQ(merged.receipts[0], mine); // this side's order first: newest first
    EXPECT_EQ(merged.receipts[1], kept);
    EXPECT_EQ(merged.receipts[2], theirs);
    EXPECT_EQ(paths(merged.queue), (std::vector<std::string>{"/h/a", "/h/c"}));
    EXPECT_EQ(merged.backups, there.backups);
    // With nobody else writing, the merge is this side's state.
    const AppState alone = mergedState(base, here, base);
    EXPECT_EQ(alone.receipts, here.receipts);
    EXPECT_EQ(paths(alone.queue), paths(here.queue));
}

TEST(StateMerge, ARunsResultGoesFirstAndTakesWhatMovedOutOfTheQueue)
{
    AppState state;
    state.queue = {entry("/h/dir"), entry("/h/dir/inner"), entry("/h/dirt"), entry("/h/failed")};
    state.receipts = {receipt("/h/older")};
    CleanupRunResult run;
    run.outcome.receipts = {receipt("/h/dir")};
    run.outcome.errors["/h/failed"] = "Permission denied";
    run.backup = BackupReceipt{newIdentifier(), "/b/Tarnbridge Backup", 1.7e9, {}};
    state.record(run);
    // Below a moved folder goes with it; a name that only starts the same stays.
    EXPECT_EQ(paths(state.queue), (std::vector<std::string>{"/h/dirt", "/h/failed"}));
    ASSERT_EQ(state.receipts.size(), 2u);
    EXPECT_EQ(state.receipts[0].originalPath, "/h/dir");
    ASSERT_EQ(state.backups.size(), 1u);
}

TEST(StateFiles, AChangeMergesWithWhatAnotherProgramSavedAndStopsAtADamagedFile)
{
    TempTree tree;
    const StateFiles files(tree.path("state"));
    const AppState base = files.load().state; // this program reads: nothing yet

    // Another program saves a receipt meanwhile.
    const TrashReceipt other = receipt("/h/by-the-command-line");
    files.update([&](AppState& s) { s.receipts.insert(s.receipts.begin(), other); });

    AppState mine = base;
    const TrashReceipt own = receipt("/h/by-the-app");
    mine.receipts.push_back(own);
    const AppState written = files.saveMerged(base, mine);
    const AppState onDisk = files.load().state;
    EXPECT_EQ(onDisk.receipts, written.receipts);
    ASSERT_EQ(onDisk.receipts.size(), 2u);
    EXPECT_EQ(onDisk.receipts[0], own);
    EXPECT_EQ(onDisk.receipts[1], other);

    // A damaged file: a change refuses and leaves every file as it was.
    std::ofstream(tree.path("state/backups.json")) << "[{";
    const std::string receiptsBefore = platform::readWholeFile(tree.path("state/receipts.json"));
    bool changed = false;
    try {
        files.update([&](AppState&) { changed = true; });
        ADD_FAILURE() << "a damaged file let the change through";
    } catch (const TarnbridgeError& error) {
        const std::string text = error.what();
        EXPECT_EQ(text.rfind("Backups: ", 0), 0u) << text;
        EXPECT_NE(text.find(kStateDamagedAdvice), std::string::npos) << text;
    }
    EXPECT_FALSE(changed);
    EXPECT_EQ(platform::readWholeFile(tree.path("state/receipts.json")), receiptsBefore);
    EXPECT_EQ(platform::readWholeFile(tree.path("state/backups.json")), "[{");
}

TEST(StateFiles, ReadyMadeQueueBytesAreWrittenOnlyWhenTheMergeKeepsThisSidesQueue)
{
    TempTree tree;
    const StateFiles files(tree.path("state"));
    AppState mine;
    mine.queue = {entry("/h/a")};
    // The bytes stand for "this side's queue, encoded elsewhere"; a marker shows which was written.
    const std::string marker = "[]";
    files.saveMerged({}, mine, marker);
    EXPECT_EQ(platform::readWholeFile(tree.path("state/cleanup.json")), marker);

    const AppState base = files.load().state;
    files.update([](AppState& s) { s.queue.push_back(entry("/h/other")); }); // another program
    AppState next = base;
    next.queue.push_back(entry("/h/b"));
    const AppState written = files.saveMerged(base, next, marker);
    EXPECT_EQ(paths(written.queue), (std::vector<std::string>{"/h/b", "/h/other"}));
    EXPECT_EQ(paths(files.load().state.queue), paths(written.queue));
}
