#include <gtest/gtest.h>

#include <QCoreApplication>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>

#include "../model/AppFixture.h"
#include "app/model/DuplicateSearch.h"
#include "app/model/ExploreState.h"
#include "app/model/Notices.h"
#include "app/model/Preferences.h"
#include "app/model/ScanSession.h"
#include "app/model/SnapshotFlow.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using tarnbridge::test::AppFixture;
using tarnbridge::test::waitUntil;

namespace {

void scan(AppFixture& f, const std::string& root)
{
    f.app().session().startScan(root);
    ASSERT_TRUE(waitUntil([&] { return !f.app().session().scanning(); }));
    ASSERT_TRUE(f.app().session().scan());
    ASSERT_EQ(f.app().session().scan()->rootPath(), root);
}

void waitIdle(AppFixture& f)
{
    ASSERT_TRUE(waitUntil([&] { return !f.app().snapshots().busy(); }));
    EXPECT_TRUE(f.app().snapshots().status().isEmpty());
}

// Saves the shown scan and gives back the record that appeared.
SnapshotRecord save(AppFixture& f)
{
    SnapshotFlow& flow = f.app().snapshots();
    std::set<std::string> known;
    for (const SnapshotRecord& record : flow.snapshots())
        known.insert(record.id);
    flow.saveSnapshot();
    EXPECT_TRUE(flow.busy());
    EXPECT_EQ(flow.status(), QStringLiteral("Saving snapshot…"));
    EXPECT_FALSE(f.app().canClean()) << "no staging while a snapshot is written";
    EXPECT_TRUE(waitUntil([&] { return !flow.busy(); }));
    EXPECT_FALSE(f.app().notices().error()) << f.app().notices().error()->toStdString();
    EXPECT_EQ(f.app().notices().notice(), QStringLiteral("Snapshot saved."));
    for (const SnapshotRecord& record : flow.snapshots())
        if (!known.count(record.id))
            return record;
    ADD_FAILURE() << "the saved record is not in the catalog";
    return {};
}

const SnapshotChange* changeAt(const SnapshotFlow& flow, const std::string& path)
{
    for (const SnapshotChange& change : flow.changes())
        if (change.path == path)
            return &change;
    return nullptr;
}

std::int64_t allocated(AppFixture& f, const std::string& path)
{
    const auto node = f.app().session().scan()->node(path);
    return node ? node->allocatedSize : -1;
}

// Lets every queued snapshot task finish and deliver.
void drainWork(AppFixture& f)
{
    f.app().workPool().waitForDone();
    for (int i = 0; i < 3; ++i)
        QCoreApplication::processEvents();
}

} // namespace

TEST(SnapshotFlow, SavesAndComparesWithTheCurrentScanAndBetweenSavedOnes)
{
    AppFixture f;
    SnapshotFlow& flow = f.app().snapshots();
    const std::string root = f.tree().folder("home/work");
    const std::string a = f.tree().file("home/work/a.bin", 5000);
    const std::string b = f.tree().file("home/work/sub/b.bin", 300);
    ASSERT_NO_FATAL_FAILURE(scan(f, root));
    const std::int64_t aBefore = allocated(f, a);
    const std::int64_t bBefore = allocated(f, b);

    // Off by default: nothing starts and nothing is written.
    flow.saveSnapshot();
    EXPECT_FALSE(flow.busy());
    EXPECT_TRUE(flow.snapshots().empty());
    EXPECT_FALSE(std::filesystem::exists(f.stateDirectory + "/Snapshots"));

    f.app().preferences().setSnapshotsEnabled(true);
    const SnapshotRecord first = save(f);
    EXPECT_EQ(first.title, "work");
    EXPECT_EQ(first.rootPath, root);
    ASSERT_EQ(flow.snapshots().size(), 1u);
    EXPECT_TRUE(f.app().canClean());

    f.tree().file("home/work/a.bin", 50000);
    const std::string c = f.tree().file("home/work/c.bin", 20000);
    f.tree().remove("home/work/sub/b.bin");
    ASSERT_NO_FATAL_FAILURE(scan(f, root));

    flow.compareSnapshot(first);
    EXPECT_TRUE(flow.busy());
    EXPECT_EQ(flow.status(), QStringLiteral("Comparing snapshots…"));
    ASSERT_NO_FATAL_FAILURE(waitIdle(f));
    EXPECT_FALSE(f.app().notices().error());
    EXPECT_EQ(flow.comparisonTitle(), QStringLiteral("work → current scan"));
    EXPECT_EQ(flow.comparisonRoot(), root);
    const SnapshotChange* grown = changeAt(flow, a);
    const SnapshotChange* added = changeAt(flow, c);
    const SnapshotChange* removed = changeAt(flow, b);
    ASSERT_TRUE(grown && added && removed);
    EXPECT_EQ(grown->status, SnapshotChangeStatus::changed);
    EXPECT_EQ(grown->before, aBefore);
    EXPECT_EQ(grown->after, allocated(f, a));
    EXPECT_EQ(added->status, SnapshotChangeStatus::added);
    EXPECT_EQ(added->after, allocated(f, c));
    EXPECT_EQ(removed->status, SnapshotChangeStatus::removed);
    EXPECT_EQ(removed->before, bBefore);

    // The screen's pages and filters over the same rows.
    const std::size_t total = flow.changes().size();
    const ChangePage firstPage = flow.visibleChanges(0, ChangeLevel::everyLevel, 2);
    EXPECT_EQ(firstPage.rows.size(), 2u);
    EXPECT_EQ(firstPage.passing, total);
    EXPECT_TRUE(firstPage.hasMore());
    EXPECT_EQ(firstPage.rows.front(), &flow.changes().front());
    EXPECT_FALSE(flow.visibleChanges(0, ChangeLevel::everyLevel, SnapshotFlow::kChangePageSize).hasMore());
    const ChangePage topLevel = flow.visibleChanges(0, ChangeLevel::topLevelOnly, SnapshotFlow::kChangePageSize);
    EXPECT_FALSE(topLevel.rows.empty());
    for (const SnapshotChange* row : topLevel.rows)
        EXPECT_EQ(std::filesystem::path(row->path).parent_path().string(), root) << row->path;
    const std::int64_t minimum = added->after - 1;
    for (const SnapshotChange* row : flow.visibleChanges(minimum, ChangeLevel::everyLevel, 300).rows)
        EXPECT_GE(row->magnitude(), std::uint64_t(minimum)) << row->path;
    EXPECT_TRUE(flow.visibleChanges(minimum, ChangeLevel::everyLevel, 300).passing < total);

    // Between two saved scans: the first pick becomes "before" and nothing starts.
    const SnapshotRecord second = save(f);
    flow.compareSavedSnapshots(first);
    EXPECT_FALSE(flow.busy());
    EXPECT_EQ(flow.beforeSnapshot(), first);
    flow.compareWithBefore(first); // the same record again: still no comparison
    EXPECT_FALSE(flow.busy());
    EXPECT_EQ(flow.comparisonTitle(), QStringLiteral("work → current scan"));

    f.app().explore().setLogical(true);
    flow.compareWithBefore(second);
    EXPECT_TRUE(flow.busy());
    ASSERT_NO_FATAL_FAILURE(waitIdle(f));
    EXPECT_FALSE(f.app().notices().error());
    EXPECT_EQ(flow.comparisonTitle(), QStringLiteral("work → work"));
    EXPECT_EQ(flow.beforeSnapshot(), first) << "kept for the next comparison";
    grown = changeAt(flow, a);
    added = changeAt(flow, c);
    ASSERT_TRUE(grown && added);
    EXPECT_EQ(grown->before, 5000) << "logical sizes, taken when the comparison started";
    EXPECT_EQ(grown->after, 50000);
    EXPECT_EQ(added->status, SnapshotChangeStatus::added) << "the before record is the older side";
    EXPECT_EQ(added->after, 20000);
}

TEST(SnapshotFlow, ComparisonsThatCannotRunReportAndKeepTheEarlierOne)
{
    AppFixture f;
    SnapshotFlow& flow = f.app().snapshots();
    f.app().preferences().setSnapshotsEnabled(true);
    const std::string work = f.tree().folder("home/work");
    const std::string other = f.tree().folder("home/other");
    f.tree().file("home/work/a.bin", 4000);
    f.tree().file("home/other/o.bin", 9000);

    ASSERT_NO_FATAL_FAILURE(scan(f, other));
    const SnapshotRecord otherRecord = save(f);
    ASSERT_NO_FATAL_FAILURE(scan(f, work));
    const SnapshotRecord workRecord = save(f);
    f.tree().file("home/work/new.bin", 7000);
    ASSERT_NO_FATAL_FAILURE(scan(f, work));
    flow.compareSnapshot(workRecord);
    ASSERT_NO_FATAL_FAILURE(waitIdle(f));
    const std::vector<SnapshotChange> earlier = flow.changes();
    ASSERT_FALSE(earlier.empty());
    const auto earlierTitle = flow.comparisonTitle();

    // A saved scan of another root against the current scan.
    flow.compareSnapshot(otherRecord);
    ASSERT_NO_FATAL_FAILURE(waitIdle(f));
    EXPECT_EQ(f.app().notices().error(), QString::fromLatin1(kSnapshotDifferentRoots));
    EXPECT_EQ(flow.changes(), earlier);
    EXPECT_EQ(flow.comparisonTitle(), earlierTitle);
    EXPECT_EQ(flow.comparisonRoot(), work);

    // Two saved scans of different roots.
    f.app().notices().setError(std::nullopt);
    flow.useAsBefore(workRecord);
    flow.compareWithBefore(otherRecord);
    ASSERT_NO_FATAL_FAILURE(waitIdle(f));
    EXPECT_EQ(f.app().notices().error(), QString::fromLatin1(kSnapshotDifferentRoots));
    EXPECT_EQ(flow.changes(), earlier);
    EXPECT_EQ(flow.comparisonTitle(), earlierTitle);

    // A new model over the same store lists both records at its start, and has no scan yet.
    AppModel& fresh = f.makeModel();
    EXPECT_EQ(fresh.snapshots().snapshots().size(), 2u);
    EXPECT_FALSE(fresh.notices().error());
    fresh.snapshots().compareSnapshot(workRecord);
    EXPECT_FALSE(fresh.snapshots().busy());
    EXPECT_EQ(fresh.notices().error(), QStringLiteral("Scan ") + QString::fromStdString(work) +
                                           QStringLiteral(" first, then compare."));
}

TEST(SnapshotFlow, OpensASavedScanAsAHistoricalResult)
{
    AppFixture f;
    SnapshotFlow& flow = f.app().snapshots();
    f.app().preferences().setSnapshotsEnabled(true);
    const std::string root = f.tree().folder("home/work");
    const std::string a = f.tree().file("home/work/a.bin", 6000);
    ASSERT_NO_FATAL_FAILURE(scan(f, root));
    const SnapshotRecord record = save(f);
    const std::string later = f.tree().file("home/work/later.bin", 3000);
    ASSERT_NO_FATAL_FAILURE(scan(f, root));
    flow.compareSnapshot(record);
    ASSERT_NO_FATAL_FAILURE(waitIdle(f));
    ASSERT_FALSE(flow.changes().empty());
    ASSERT_TRUE(f.app().canClean());

    f.app().duplicates().setAfterScan(true);
    f.app().setSection(AppSection::snapshots);
    f.app().explore().setActiveQuickWin(QuickWinKind::downloads);
    flow.openSnapshot(record);
    EXPECT_TRUE(flow.busy());
    EXPECT_EQ(flow.status(), QStringLiteral("Opening saved scan…"));
    EXPECT_FALSE(f.app().duplicates().afterScan()) << "duplicate work stops first";
    ASSERT_NO_FATAL_FAILURE(waitIdle(f));

    ScanSession& session = f.app().session();
    EXPECT_FALSE(f.app().notices().error());
    EXPECT_TRUE(session.isHistorical());
    EXPECT_FALSE(f.app().canClean());
    EXPECT_EQ(f.app().section(), AppSection::explore);
    EXPECT_FALSE(f.app().explore().activeQuickWin());
    EXPECT_EQ(f.app().notices().notice(),
              QStringLiteral("Viewing a saved snapshot. Rescan before staging cleanup."));
    ASSERT_TRUE(session.scan());
    EXPECT_TRUE(session.scan()->node(a));
    EXPECT_FALSE(session.scan()->node(later)) << "the saved scan, not the current disk";
    EXPECT_EQ(session.focus()->path, root);
    EXPECT_TRUE(flow.changes().empty()) << "a newly shown scan drops the comparison";
    EXPECT_FALSE(flow.comparisonTitle());
    EXPECT_FALSE(flow.comparisonRoot());

    // A rescan makes it current again.
    ASSERT_NO_FATAL_FAILURE(scan(f, root));
    EXPECT_FALSE(session.isHistorical());
    EXPECT_TRUE(f.app().canClean());
}

TEST(SnapshotFlow, DeletingARecordRefreshesTheCatalogAndDropsTheComparison)
{
    AppFixture f;
    SnapshotFlow& flow = f.app().snapshots();
    f.app().preferences().setSnapshotsEnabled(true);
    const std::string root = f.tree().folder("home/work");
    f.tree().file("home/work/a.bin", 6000);
    ASSERT_NO_FATAL_FAILURE(scan(f, root));
    const SnapshotRecord first = save(f);
    f.tree().file("home/work/b.bin", 6000);
    ASSERT_NO_FATAL_FAILURE(scan(f, root));
    const SnapshotRecord second = save(f);
    flow.compareSnapshot(first);
    ASSERT_NO_FATAL_FAILURE(waitIdle(f));
    ASSERT_FALSE(flow.changes().empty());

    flow.useAsBefore(first);
    flow.deleteSnapshot(second);
    EXPECT_FALSE(f.app().notices().error());
    ASSERT_EQ(flow.snapshots().size(), 1u);
    EXPECT_EQ(flow.snapshots().front().id, first.id);
    EXPECT_EQ(flow.beforeSnapshot(), first) << "another record went";
    EXPECT_TRUE(flow.changes().empty());
    EXPECT_FALSE(flow.comparisonTitle());
    EXPECT_FALSE(flow.comparisonRoot());
    EXPECT_FALSE(std::filesystem::exists(f.stateDirectory + "/Snapshots/" + second.id + ".json"));
    EXPECT_FALSE(std::filesystem::exists(f.stateDirectory + "/Snapshots/" + second.id + ".meta"));

    flow.deleteSnapshot(first);
    EXPECT_TRUE(flow.snapshots().empty());
    EXPECT_FALSE(flow.beforeSnapshot()) << "the before record is gone";

    // A record that is already gone: the store's failure is shown, the lists stay.
    flow.deleteSnapshot(first);
    EXPECT_EQ(f.app().notices().error(), QString::fromLatin1(std::strerror(ENOENT)));
    EXPECT_TRUE(flow.snapshots().empty());

    // A damaged entry is listed as an issue by a refresh.
    std::ofstream(f.stateDirectory + "/Snapshots/00000000-0000-0000-0000-000000000001.meta") << "{broken";
    flow.refreshSnapshots();
    ASSERT_EQ(flow.snapshotIssues().size(), 1u);
    EXPECT_EQ(flow.snapshotIssues().front().message, kSnapshotUnreadable);
    EXPECT_EQ(SnapshotFlow::unavailableHeading(1), QStringLiteral("1 saved scan is unavailable"));
    EXPECT_EQ(SnapshotFlow::unavailableHeading(2), QStringLiteral("2 saved scans are unavailable"));
}

TEST(SnapshotFlow, OneTaskAtATimeAndLateResultsChangeNothing)
{
    AppFixture f;
    SnapshotFlow& flow = f.app().snapshots();
    f.app().preferences().setSnapshotsEnabled(true);
    const std::string root = f.tree().folder("home/work");
    f.tree().file("home/work/a.bin", 6000);
    ASSERT_NO_FATAL_FAILURE(scan(f, root));
    const SnapshotRecord record = save(f);
    f.tree().file("home/work/b.bin", 6000);
    ASSERT_NO_FATAL_FAILURE(scan(f, root));
    f.app().notices().setNotice(std::nullopt);

    // A second piece of work is refused while one runs; so is a refresh or a delete.
    flow.compareSnapshot(record);
    ASSERT_TRUE(flow.busy());
    flow.saveSnapshot();
    flow.deleteSnapshot(record);
    flow.refreshSnapshots();
    EXPECT_EQ(flow.status(), QStringLiteral("Comparing snapshots…"));
    EXPECT_EQ(flow.snapshots().size(), 1u);

    // A scan starts while the comparison runs: the busy state ends at once, and the
    // comparison's late result is dropped.
    f.app().session().startScan(root);
    EXPECT_FALSE(flow.busy());
    EXPECT_TRUE(flow.status().isEmpty());
    flow.saveSnapshot();
    EXPECT_FALSE(flow.busy()) << "no snapshot work while a scan runs";
    f.app().session().cancelScan();
    drainWork(f);
    EXPECT_TRUE(flow.changes().empty());
    EXPECT_FALSE(flow.comparisonTitle());
    EXPECT_FALSE(f.app().notices().error());
    EXPECT_TRUE(std::filesystem::exists(f.stateDirectory + "/Snapshots/" + record.id + ".json"));

    // The same for a save: the file is written, but the late result neither lists it nor speaks.
    flow.saveSnapshot();
    ASSERT_TRUE(flow.busy());
    f.app().session().startScan(root);
    f.app().session().cancelScan();
    drainWork(f);
    EXPECT_EQ(flow.snapshots().size(), 1u);
    EXPECT_NE(f.app().notices().notice(), QStringLiteral("Snapshot saved."));
    flow.refreshSnapshots();
    EXPECT_EQ(flow.snapshots().size(), 2u);
}
