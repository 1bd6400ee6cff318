#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "CleanupTestSupport.h"
#include "app/model/Notices.h"
#include "app/model/Preferences.h"
#include "model/PathText.h"
#include "support/Checks.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using namespace tarnbridge::test;

namespace {

QString q(const std::string& text) { return QString::fromStdString(text); }

} // namespace

TEST(CleanupStaging, BothFormsQueueScannedItemsOnceAndReportWhatIsNew)
{
    AppFixture f;
    const std::string work = f.tree().folder("home/work");
    const std::string a = f.tree().file("home/work/a.txt", 5000);
    const std::string sub = f.tree().folder("home/work/sub");
    const std::string b = f.tree().file("home/work/sub/b.txt", 700);
    f.tree().file("home/work/sub/c.txt", 30);
    ASSERT_TRUE(scanned(f, work));
    CleanupFlow& flow = f.app().cleanup();
    Notices& notices = f.app().notices();

    // A handful of records at once; one that the scan does not hold fails on its own.
    DiskNode ghost = records(f, {a}).front();
    ghost.path = work + "/ghost.txt";
    std::vector<DiskNode> chosen = records(f, {a});
    chosen.push_back(ghost);
    flow.stage(chosen, std::nullopt, "Large file");
    EXPECT_EQ(paths(flow.queue()), std::vector<std::string>{a});
    EXPECT_EQ(flow.queue().front().reason, "Large file");
    EXPECT_EQ(flow.queueBytes(), records(f, {a}).front().allocatedSize);
    ASSERT_TRUE(notices.toast());
    EXPECT_EQ(notices.toast()->title, QStringLiteral("Added to Cleanup"));
    EXPECT_EQ(notices.toast()->detail, QStringLiteral("1 item"));
    EXPECT_EQ(notices.toast()->action, ToastAction::cleanup);
    EXPECT_EQ(notices.error(), QStringLiteral("ghost.txt: ") + q(kNotInCurrentScan));
    EXPECT_EQ(paths(savedState(f).queue), paths(flow.queue()));

    // A large selection in the background: the folder comes first, the file already queued is
    // not new, and a path the scan does not know is reported.
    notices.setError(std::nullopt);
    flow.stagePaths({a, sub, work + "/nowhere"}, "Selection");
    EXPECT_TRUE(flow.staging());
    EXPECT_FALSE(f.app().canClean());
    ASSERT_TRUE(waitUntil([&] { return !flow.staging(); }));
    EXPECT_EQ(paths(flow.queue()), (std::vector<std::string>{sub, a}));
    EXPECT_EQ(flow.queueBytes(), records(f, {a}).front().allocatedSize + records(f, {sub}).front().allocatedSize);
    ASSERT_TRUE(notices.toast());
    EXPECT_EQ(notices.toast()->title, QStringLiteral("Added to Cleanup"));
    EXPECT_EQ(notices.toast()->detail, QStringLiteral("1 item"));
    EXPECT_EQ(notices.error(), QStringLiteral("nowhere: ") + q(kNoLongerInScan));
    EXPECT_EQ(paths(savedState(f).queue), paths(flow.queue()));
    EXPECT_TRUE(f.app().canClean());

    // A file inside a queued folder is nothing new.
    flow.stage(records(f, {b}), std::nullopt, "Large file");
    EXPECT_EQ(paths(flow.queue()), (std::vector<std::string>{sub, a}));
    EXPECT_EQ(notices.toast()->title, QStringLiteral("Already in Cleanup"));
    EXPECT_TRUE(notices.toast()->detail.isEmpty());

    // A scan that stops being current while the background staging runs voids its result.
    flow.removeAll();
    EXPECT_TRUE(flow.queue().empty());
    EXPECT_TRUE(savedState(f).queue.empty());
    EXPECT_TRUE(exists(a) && exists(b));
    flow.stagePaths({a}, "Selection");
    f.app().session().markHistorical();
    ASSERT_TRUE(waitUntil([&] { return !flow.staging(); }));
    EXPECT_EQ(notices.notice(), QStringLiteral("Scan changed — stage these files again."));
    EXPECT_TRUE(flow.queue().empty());
    EXPECT_TRUE(savedState(f).queue.empty());
}

TEST(CleanupReview, AProtectedItemBlocksTheReviewUntilItLeavesTheQueue)
{
    AppFixture f;
    f.app().preferences().setBackupBeforeCleanup(false);
    const std::string work = f.tree().folder("home/work");
    const std::string inDocs = f.tree().file("home/work/docs/a.txt", 100);
    const std::string keep = f.tree().file("home/work/keep.txt", 100);
    ASSERT_TRUE(scanned(f, work));
    CleanupFlow& flow = f.app().cleanup();
    flow.stage(records(f, {inDocs, keep}), std::nullopt, "Large file");
    ASSERT_EQ(flow.queue().size(), 2u);

    // The folder is a link now: the policy refuses what lies behind it.
    std::filesystem::rename(work + "/docs", work + "/docs-real");
    f.tree().symlink(work + "/docs-real", "home/work/docs");
    ASSERT_TRUE(reviewed(f));
    const CleanupRequest blocked = *flow.cleanupRequest();
    EXPECT_EQ(paths(blocked.entries), (std::vector<std::string>{keep, inDocs}));
    EXPECT_EQ(blocked.blocked, (std::map<std::string, std::string>{{inDocs, kRefusedLink}}));
    EXPECT_FALSE(blocked.uninstallName);

    // Nothing moves while it is blocked, and no second review starts over the open one.
    flow.confirmTrash(blocked);
    flow.requestCleanup();
    EXPECT_FALSE(flow.cleaning());
    ASSERT_TRUE(flow.cleanupRequest());
    EXPECT_EQ(flow.cleanupRequest()->id, blocked.id);
    EXPECT_TRUE(exists(keep) && exists(work + "/docs-real/a.txt"));
    EXPECT_TRUE(flow.receipts().empty());

    flow.dismissReview();
    EXPECT_FALSE(flow.cleanupRequest());
    flow.removeFromQueue(inDocs);
    EXPECT_EQ(paths(flow.queue()), std::vector<std::string>{keep});
    EXPECT_EQ(paths(savedState(f).queue), std::vector<std::string>{keep});

    // An older review is not this one.
    ASSERT_TRUE(reviewed(f));
    EXPECT_TRUE(flow.cleanupRequest()->blocked.empty());
    CleanupRequest stale = *flow.cleanupRequest();
    stale.id = QUuid::createUuid();
    flow.confirmTrash(stale);
    EXPECT_FALSE(flow.cleaning());
    EXPECT_TRUE(flow.cleanupRequest());

    flow.confirmTrash(*flow.cleanupRequest());
    EXPECT_TRUE(flow.cleaning());
    ASSERT_TRUE(waitUntil([&] { return !flow.cleaning(); }));
    EXPECT_FALSE(exists(keep));
    EXPECT_EQ(originals(flow.receipts()), std::vector<std::string>{keep});
    EXPECT_TRUE(flow.queue().empty());
}

TEST(CleanupReview, ClosingTheFolderPanelKeepsTheReviewOpen)
{
    AppFixture f;
    const std::string work = f.tree().folder("home/work");
    const std::string a = f.tree().file("home/work/a.txt", 100);
    const std::string earlier = f.tree().folder("earlier-backups");
    f.app().preferences().setLastBackupParent(q(earlier));
    ASSERT_TRUE(scanned(f, work));
    CleanupFlow& flow = f.app().cleanup();
    flow.stage(records(f, {a}), std::nullopt, "Large file");
    ASSERT_TRUE(reviewed(f));

    f.nextFolder.reset();
    flow.confirmTrash(*flow.cleanupRequest());
    ASSERT_TRUE(f.lastRequest);
    EXPECT_EQ(f.lastRequest->title, QStringLiteral("Choose a backup folder"));
    EXPECT_EQ(f.lastRequest->message, QStringLiteral("Files will be copied here, verified, then moved to Trash."));
    EXPECT_EQ(f.lastRequest->prompt, QStringLiteral("Back up & Move to Trash"));
    EXPECT_EQ(f.lastRequest->startFolder, q(earlier));
    EXPECT_FALSE(flow.cleaning());
    EXPECT_TRUE(flow.cleanupRequest());
    EXPECT_EQ(f.app().preferences().lastBackupParent(), q(earlier));

    // Without a chosen folder there is no run, even when asked for directly.
    flow.executeCleanup(*flow.cleanupRequest(), std::nullopt);
    EXPECT_FALSE(flow.cleaning());
    EXPECT_TRUE(flow.cleanupRequest());
    EXPECT_TRUE(exists(a));
    EXPECT_EQ(paths(flow.queue()), std::vector<std::string>{a});
}

TEST(CleanupRun, MovesToTrashWithReceiptsNewestFirstBacksUpAndRestores)
{
    AppFixture f;
    CleanupFlow& flow = f.app().cleanup();
    Notices& notices = f.app().notices();
    Preferences& preferences = f.app().preferences();
    const std::string work = f.tree().folder("home/work");
    const std::string a = f.tree().file("home/work/a.txt", 100);
    const std::string sub = f.tree().folder("home/work/sub");
    f.tree().file("home/work/sub/b.txt", 3000);
    const std::string contents = randomBytes(200000, 7);
    const std::string c = f.tree().fileWithText("home/work/c.bin", contents);
    const std::string trash = f.fake.dataHome() + "/Trash";
    std::vector<CleanupPhase> phases;
    QObject::connect(&flow, &CleanupFlow::progressChanged, [&] {
        if (flow.cleanupProgress())
            phases.push_back(flow.cleanupProgress()->phase);
    });

    // Without a backup.
    preferences.setBackupBeforeCleanup(false);
    ASSERT_TRUE(scanned(f, work));
    flow.stage(records(f, {a, sub}), std::nullopt, "Large file");
    ASSERT_TRUE(reviewed(f));
    phases.clear();
    flow.confirmTrash(*flow.cleanupRequest());
    EXPECT_TRUE(flow.cleaning());
    EXPECT_FALSE(flow.cleanupRequest());
    EXPECT_EQ(f.app().section(), AppSection::cleanup);
    ASSERT_TRUE(waitUntil([&] { return !flow.cleaning(); }));
    EXPECT_FALSE(flow.cleanupProgress());
    EXPECT_EQ(phases.front(), CleanupPhase::checking);
    EXPECT_NE(std::find(phases.begin(), phases.end(), CleanupPhase::movingToTrash), phases.end());
    EXPECT_EQ(std::find(phases.begin(), phases.end(), CleanupPhase::backingUp), phases.end());
    EXPECT_FALSE(notices.error());
    EXPECT_TRUE(flow.queue().empty());
    EXPECT_EQ(originals(flow.receipts()), (std::vector<std::string>{sub, a}));
    for (const TrashReceipt& receipt : flow.receipts()) {
        EXPECT_FALSE(exists(receipt.originalPath));
        EXPECT_TRUE(exists(receipt.trashPath));
        EXPECT_TRUE(PathText::contains(receipt.trashPath, trash + "/files"));
        const std::string name(PathText::name(receipt.trashPath));
        EXPECT_TRUE(exists(trash + "/info/" + name + ".trashinfo"));
    }
    EXPECT_TRUE(exists(trash + "/files/sub/b.txt"));
    ASSERT_TRUE(notices.toast());
    EXPECT_EQ(notices.toast()->title, QStringLiteral("Moved to Trash"));
    EXPECT_EQ(notices.toast()->detail, QStringLiteral("2 items — Restore is available in Cleanup."));
    EXPECT_EQ(notices.toast()->action, ToastAction::cleanup);
    EXPECT_EQ(notices.toast()->actionTitle, QStringLiteral("View Cleanup"));
    EXPECT_EQ(savedState(f).receipts, flow.receipts());
    EXPECT_TRUE(savedState(f).queue.empty());

    // The scan no longer matches the disk: it stages nothing more, in either form.
    EXPECT_TRUE(f.app().session().isHistorical());
    EXPECT_FALSE(f.app().canClean());
    flow.stage(records(f, {c}), std::nullopt, "Large file");
    flow.stagePaths({c}, "Selection");
    EXPECT_FALSE(flow.staging());
    EXPECT_TRUE(flow.queue().empty());

    // With a backup, from a fresh scan: the new receipt goes first.
    const std::vector<TrashReceipt> first = flow.receipts();
    preferences.setBackupBeforeCleanup(true);
    const std::string backups = f.tree().folder("backups");
    f.nextFolder = backups;
    ASSERT_TRUE(scanned(f, work));
    flow.stage(records(f, {c}), std::nullopt, "Large file");
    ASSERT_TRUE(reviewed(f));
    phases.clear();
    flow.confirmTrash(*flow.cleanupRequest());
    ASSERT_TRUE(f.lastRequest);
    EXPECT_TRUE(f.lastRequest->startFolder.isEmpty());
    EXPECT_EQ(preferences.lastBackupParent(), q(backups));
    ASSERT_TRUE(waitUntil([&] { return !flow.cleaning(); }));
    EXPECT_FALSE(notices.error());
    EXPECT_NE(std::find(phases.begin(), phases.end(), CleanupPhase::backingUp), phases.end());
    ASSERT_EQ(flow.receipts().size(), 3u);
    EXPECT_EQ(flow.receipts()[0].originalPath, c);
    EXPECT_EQ(std::vector<TrashReceipt>(flow.receipts().begin() + 1, flow.receipts().end()), first);
    ASSERT_EQ(flow.backups().size(), 1u);
    const BackupReceipt& backup = flow.backups().front();
    EXPECT_TRUE(PathText::contains(backup.directory, backups));
    ASSERT_EQ(backup.items.size(), 1u);
    EXPECT_EQ(readText(backup.directory + "/" + backup.items[0].relativePath), contents);
    EXPECT_EQ(savedState(f).backups, flow.backups());
    EXPECT_EQ(notices.toast()->detail, QStringLiteral("1 item — Restore is available in Cleanup."));

    // Restore puts the file back and drops its receipt; a second try with the same receipt
    // finds the place taken and keeps what is left.
    const TrashReceipt moved = flow.receipts()[0];
    flow.restore(moved);
    ASSERT_TRUE(waitUntil([&] { return flow.receipts().size() == 2; }));
    EXPECT_EQ(readText(c), contents);
    EXPECT_FALSE(exists(moved.trashPath));
    EXPECT_EQ(notices.notice(), QStringLiteral("Restored c.bin. Rescan to update storage."));
    EXPECT_EQ(savedState(f).receipts, first);
    flow.restore(moved);
    ASSERT_TRUE(waitUntil([&] { return notices.error().has_value(); }));
    EXPECT_EQ(notices.error(), q(kRestoreOccupied));
    EXPECT_EQ(flow.receipts(), first);
}
