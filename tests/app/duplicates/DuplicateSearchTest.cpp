#include <gtest/gtest.h>

#include <QCoreApplication>

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <set>

#include "../model/AppFixture.h"
#include "../model/Gate.h"
#include "app/model/CleanupFlow.h"
#include "app/model/DuplicateSearch.h"
#include "app/model/Notices.h"
#include "app/model/ScanSession.h"
#include "cleanup/CleanupService.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using tarnbridge::test::AppFixture;
using tarnbridge::test::Gate;
using tarnbridge::test::waitUntil;

namespace {

// The text of a message, for comparisons that print readably.
std::string text(const std::optional<QString>& message)
{
    return message ? message->toStdString() : std::string("(none)");
}

// Sizes around the 1 MB minimum, which is decimal: 1,000,000 bytes.
constexpr std::int64_t kBig = 1'200'000;
constexpr std::int64_t kMegabyte = 1'000'000;

void scanAndWait(ScanSession& session, const std::string& root)
{
    session.startScan(root);
    ASSERT_TRUE(waitUntil([&] { return !session.scanning(); }));
    ASSERT_TRUE(session.scan());
}

void searchAndWait(DuplicateSearch& search, const std::optional<std::string>& scope = std::nullopt)
{
    search.findDuplicates(scope);
    ASSERT_TRUE(search.findingDuplicates());
    ASSERT_TRUE(waitUntil([&] { return !search.findingDuplicates(); }));
    ASSERT_TRUE(search.duplicateReport());
}

std::vector<std::string> paths(const DuplicateGroup& group)
{
    std::vector<std::string> out;
    for (const DiskNode& file : group.files)
        out.push_back(file.path);
    return out;
}

// Every group as its sorted paths, so that groups of equal size compare in any order.
std::set<std::vector<std::string>> groupsOf(const DuplicateReport& report)
{
    std::set<std::vector<std::string>> out;
    for (const DuplicateGroup& group : report.groups)
        out.insert(paths(group));
    return out;
}

const DuplicateGroup* groupWith(const DuplicateReport& report, const std::string& path)
{
    for (const DuplicateGroup& group : report.groups)
        for (const DiskNode& file : group.files)
            if (file.path == path)
                return &group;
    return nullptr;
}

const CleanupEntry* queued(const CleanupFlow& cleanup, const std::string& path)
{
    for (const CleanupEntry& entry : cleanup.queue())
        if (entry.node.path == path)
            return &entry;
    return nullptr;
}

// The real finder, but with a flag of its own so that the held run ends with a report, and
// with a record and a marked report sent after the gate opens: only the generation token can
// keep them out.
struct HeldFinder : tarnbridge::test::HeldWork {

    DuplicateSearch::Finder finder() const
    {
        return [state = state](const ScanResult& scan, std::int64_t minimumSize,
                               const std::optional<std::string>& scope, const CancellationFlag& flag,
                               const DuplicateFinder::DetailProgress& progress) {
            CancellationFlag own;
            DuplicateReport report = DuplicateFinder().find(scan, minimumSize, scope, own, progress);
            state->gate.hold();
            state->sawCancel = flag.isCancelled();
            DuplicateProgress late;
            late.phase = DuplicateProgress::Phase::hashing;
            late.fileName = "late.bin";
            late.fileSize = 10;
            progress(late);
            report.checked = -1;
            state->done = true;
            return report;
        };
    }
};

// Lets the held worker end and runs what it queued for the GUI thread.
void release(AppFixture& f, HeldFinder& held)
{
    held.state->gate.open();
    f.app().workPool().waitForDone();
    QCoreApplication::sendPostedEvents();
    ASSERT_TRUE(held.state->done);
}

} // namespace

TEST(DuplicateSearch, ASearchFindsTheGroupsOfTheShownScanWithinItsMinimumAndScope)
{
    AppFixture f;
    const std::string root = f.tree().folder("home/work");
    const std::string a1 = f.tree().file("home/work/a1.bin", kBig, 'a');
    const std::string a2 = f.tree().file("home/work/sub/a2.bin", kBig, 'a');
    const std::string a3 = f.tree().file("home/work/sub/a3.bin", kBig, 'a');
    f.tree().file("home/work/c.bin", kBig, 'c'); // same size, other content
    const std::string m1 = f.tree().file("home/work/m1.bin", kMegabyte, 'm');
    const std::string m2 = f.tree().file("home/work/m2.bin", kMegabyte, 'm');
    const std::string s1 = f.tree().file("home/work/s1.bin", kMegabyte - 1, 's');
    const std::string s2 = f.tree().file("home/work/sub/s2.bin", kMegabyte - 1, 's');
    DuplicateSearch& search = f.app().duplicates();
    ScanSession& session = f.app().session();
    EXPECT_EQ(search.duplicateMinimumMB(), 1);

    // Asked for while the scan runs, the search waits and starts when the scan completes.
    session.startScan(root);
    search.findDuplicates(std::nullopt);
    EXPECT_TRUE(search.afterScan());
    EXPECT_TRUE(search.waitingForScan());
    EXPECT_FALSE(search.findingDuplicates());
    search.findDuplicates(root + "/sub");
    EXPECT_EQ(text(f.app().notices().notice()), "Wait for the scan to finish before choosing a comparison folder.");
    EXPECT_EQ(search.location(), root);

    QStringList lines;
    QObject context;
    QObject::connect(&search, &DuplicateSearch::progressChanged, &context,
                     [&] { lines << search.duplicateProgress(); });
    ASSERT_TRUE(waitUntil([&] { return !session.scanning() && !search.afterScan() && !search.findingDuplicates(); }));
    EXPECT_EQ(f.app().section(), AppSection::duplicates);
    ASSERT_TRUE(search.duplicateReport());
    const DuplicateReport& report = *search.duplicateReport();
    // 1 MB is 1,000,000 bytes: the pair of exactly that size is in, the pair one byte short is not.
    EXPECT_EQ(groupsOf(report), (std::set<std::vector<std::string>>{{a1, a2, a3}, {m1, m2}}));
    EXPECT_EQ(report.checked, 6);
    EXPECT_EQ(search.duplicateScopePath(), root);
    EXPECT_EQ(search.duplicateProgress(), QStringLiteral("Comparison complete"));
    ASSERT_TRUE(search.duplicateWork());
    EXPECT_EQ(search.duplicateWork()->phase, DuplicateProgress::Phase::complete);
    EXPECT_TRUE(lines.contains(QStringLiteral("Checking samples · 0 of 6 candidates"))) << lines.join(u'\n').toStdString();

    // The choice of a keeper lasts until the next search.
    const DuplicateGroup& big = *groupWith(report, a1);
    EXPECT_EQ(search.keeper(big), a1);
    search.keep(big, a3);
    EXPECT_EQ(search.keeper(big), a3);

    // "Any size" takes the smaller pair too; a new search forgets the keepers.
    search.setDuplicateMinimumMB(0);
    ASSERT_NO_FATAL_FAILURE(searchAndWait(search));
    EXPECT_EQ(groupsOf(*search.duplicateReport()),
              (std::set<std::vector<std::string>>{{a1, a2, a3}, {m1, m2}, {s1, s2}}));
    EXPECT_TRUE(search.duplicateKeepers().empty());

    // A folder outside the scan is the finder's error; the search ends without a report.
    search.findDuplicates(f.tree().folder("elsewhere"));
    ASSERT_TRUE(waitUntil([&] { return !search.findingDuplicates(); }));
    EXPECT_FALSE(search.duplicateReport());
    EXPECT_EQ(text(f.app().notices().error()), kFolderNotInScan);

    // A folder of the scan limits the search to what lies below it.
    ASSERT_NO_FATAL_FAILURE(searchAndWait(search, root + "/sub"));
    EXPECT_EQ(groupsOf(*search.duplicateReport()), (std::set<std::vector<std::string>>{{a2, a3}}));
    EXPECT_EQ(search.duplicateScopePath(), root + "/sub");

    // A new scan takes the results away; asked to, it searches again once it completes.
    session.startScan(root, true);
    EXPECT_FALSE(search.duplicateReport());
    EXPECT_FALSE(search.duplicateScopePath());
    EXPECT_TRUE(search.waitingForScan());
    ASSERT_TRUE(waitUntil([&] { return !session.scanning() && !search.afterScan() && !search.findingDuplicates(); }));
    ASSERT_TRUE(search.duplicateReport());
    EXPECT_EQ(search.duplicateReport()->groups.size(), 3u);
    EXPECT_EQ(search.duplicateScopePath(), root);
}

TEST(DuplicateSearch, EachWayToAskWithoutAFittingScanSaysWhyAndStartsNothing)
{
    AppFixture f;
    DuplicateSearch& search = f.app().duplicates();
    search.findDuplicates(std::nullopt);
    EXPECT_EQ(text(f.app().notices().notice()), "Choose Scan Whole Disk before finding duplicates.");
    search.findDuplicatesOnWholeDisk();
    EXPECT_EQ(text(f.app().notices().notice()), "Choose Scan Whole Disk first — then compare the scanned files here.");
    EXPECT_FALSE(search.findingDuplicates());

    const std::string root = f.tree().folder("home/work");
    f.tree().file("home/work/a.bin", kBig, 'a');
    f.app().session().startScan(root);
    search.findDuplicatesOnWholeDisk();
    EXPECT_EQ(text(f.app().notices().notice()), "A folder scan is running — Whole Disk needs a whole-disk result.");
    EXPECT_FALSE(search.afterScan());
    ASSERT_TRUE(waitUntil([&] { return !f.app().session().scanning(); }));
    search.findDuplicatesOnWholeDisk();
    EXPECT_EQ(text(f.app().notices().notice()), "Choose Scan Whole Disk first — then compare the scanned files here.");
    EXPECT_FALSE(search.findingDuplicates());
    EXPECT_FALSE(search.duplicateReport());
}

TEST(DuplicateSearch, ExtrasAreStagedRememberingTheKeptCopyWhoseChangeThenStopsTheMove)
{
    AppFixture f;
    // Names chosen so that the refused copy sorts last in its group: nothing of that group may
    // be staged even though the copies before it could be.
    const std::string x1 = f.tree().file("home/.dups/x1.bin", kBig, 'x');
    const std::string x2 = f.tree().file("home/.dups/x2.bin", kBig, 'x');
    const std::string x3 = f.tree().file("home/.dups/x3.bin", kBig, 'x');
    const std::string y1 = f.tree().file("home/.dups/y1.bin", kBig + 1, 'y');
    const std::string y2 = f.tree().file("home/.dups/y2.bin", kBig + 1, 'y');
    const std::string z1 = f.tree().file("home/.dups/z1.bin", kBig + 2, 'z');
    const std::string z2 = f.tree().file("home/.dups/z2.bin", kBig + 2, 'z');
    const std::string zLocked = f.tree().file("home/.password-store/z.bin", kBig + 2, 'z');
    ScanSession& session = f.app().session();
    DuplicateSearch& search = f.app().duplicates();
    CleanupFlow& cleanup = f.app().cleanup();
    ASSERT_NO_FATAL_FAILURE(scanAndWait(session, f.fake.home()));
    ASSERT_NO_FATAL_FAILURE(searchAndWait(search));
    const DuplicateReport report = *search.duplicateReport();
    ASSERT_EQ(report.groups.size(), 3u);
    const DuplicateGroup xs = *groupWith(report, x1);
    ASSERT_EQ(paths(xs), (std::vector<std::string>{x1, x2, x3}));

    // A path that is no copy of the group stages nothing.
    search.stageDuplicates(xs, y1);
    EXPECT_TRUE(cleanup.queue().empty());

    search.keep(xs, x2);
    search.stageDuplicates(xs, search.keeper(xs));
    ASSERT_EQ(cleanup.queue().size(), 2u);
    for (const std::string& extra : {x1, x3}) {
        const CleanupEntry* entry = queued(cleanup, extra);
        ASSERT_NE(entry, nullptr) << extra;
        EXPECT_EQ(entry->reason, "Duplicate · keeping x2.bin");
        ASSERT_EQ(entry->retainedCopies.size(), 1u);
        ASSERT_EQ(entry->retainedCopies.count(x2), 1u);
        EXPECT_EQ(entry->retainedCopies.at(x2), xs.files[1].identity);
    }
    ASSERT_TRUE(f.app().notices().toast());
    EXPECT_EQ(f.app().notices().toast()->title, QStringLiteral("Added to Cleanup"));
    EXPECT_EQ(f.app().notices().toast()->detail, QStringLiteral("2 items"));

    // All groups: the pair keeps its first file; the group whose copy is protected is refused
    // whole, with the policy's sentence.
    search.stageAllDuplicates();
    EXPECT_EQ(text(f.app().notices().error()), kRefusedProtected);
    EXPECT_NE(queued(cleanup, y2), nullptr);
    EXPECT_EQ(queued(cleanup, y1), nullptr);
    EXPECT_EQ(queued(cleanup, z1), nullptr);
    EXPECT_EQ(queued(cleanup, z2), nullptr);
    EXPECT_EQ(queued(cleanup, zLocked), nullptr);
    EXPECT_EQ(cleanup.queue().size(), 3u);

    // While the kept copy is as scanned, an extra may go; once it has changed, the extra is
    // refused, and the move takes nothing.
    const CleanupEntry extra = *queued(cleanup, x1);
    const CleanupPolicy policy{f.app().services().home};
    EXPECT_NO_THROW(extra.validate(policy));
    ASSERT_EQ(::chmod(x2.c_str(), 0600), 0);
    try {
        extra.validate(policy);
        ADD_FAILURE() << "an extra whose kept copy changed was accepted";
    } catch (const TarnbridgeError& error) {
        EXPECT_STREQ(error.what(), kRetainedCopyChanged);
    }
    const CleanupOutcome outcome = CleanupService::moveToTrash(cleanup.queue(), true);
    EXPECT_TRUE(outcome.receipts.empty());
    EXPECT_EQ(outcome.errors.at(x1), kRetainedCopyChanged);
    EXPECT_TRUE(std::filesystem::exists(x1));
    EXPECT_TRUE(std::filesystem::exists(x3));

    // While a scan runs nothing can be staged.
    session.startScan(f.fake.home());
    const std::size_t before = cleanup.queue().size();
    search.stageDuplicates(*groupWith(report, z1), zLocked);
    EXPECT_EQ(cleanup.queue().size(), before);
}

TEST(DuplicateSearch, ASearchOvertakenByANewScanChangesNothing)
{
    AppFixture f;
    const std::string root = f.tree().folder("home/work");
    f.tree().file("home/work/a1.bin", kBig, 'a');
    f.tree().file("home/work/a2.bin", kBig, 'a');
    const std::string other = f.tree().folder("home/other");
    f.tree().file("home/other/b.bin", 10);
    ScanSession& session = f.app().session();
    DuplicateSearch& search = f.app().duplicates();
    ASSERT_NO_FATAL_FAILURE(scanAndWait(session, root));

    HeldFinder held;
    search.setFinder(held.finder());
    search.findDuplicates(std::nullopt);
    // The run's own records land while it is current.
    ASSERT_TRUE(waitUntil([&] {
        return held.state->gate.reached() && search.duplicateWork() &&
               search.duplicateWork()->phase == DuplicateProgress::Phase::complete;
    }));

    session.startScan(other);
    EXPECT_FALSE(search.findingDuplicates());
    ASSERT_NO_FATAL_FAILURE(release(f, held));
    EXPECT_TRUE(held.state->sawCancel);
    EXPECT_FALSE(search.duplicateReport());
    EXPECT_FALSE(search.findingDuplicates());
    EXPECT_EQ(search.duplicateProgress(), QStringLiteral("Comparison complete"));
    ASSERT_TRUE(waitUntil([&] { return !session.scanning(); }));
    EXPECT_EQ(session.scan()->rootPath(), other);
    EXPECT_FALSE(search.duplicateReport());
    EXPECT_FALSE(f.app().notices().error());
}

TEST(DuplicateSearch, ACancelledSearchLeavesTheNextOneAlone)
{
    AppFixture f;
    // The held run keeps one worker; the next search needs another.
    f.app().workPool().setMaxThreadCount(std::max(4, f.app().workPool().maxThreadCount()));
    const std::string root = f.tree().folder("home/work");
    f.tree().file("home/work/a1.bin", kBig, 'a');
    f.tree().file("home/work/a2.bin", kBig, 'a');
    ScanSession& session = f.app().session();
    DuplicateSearch& search = f.app().duplicates();
    ASSERT_NO_FATAL_FAILURE(scanAndWait(session, root));

    HeldFinder held;
    search.setFinder(held.finder());
    search.findDuplicates(std::nullopt);
    ASSERT_TRUE(waitUntil([&] { return held.state->gate.reached(); }));
    search.cancelDuplicates();
    EXPECT_FALSE(search.findingDuplicates());
    EXPECT_FALSE(search.duplicateReport());
    EXPECT_EQ(text(f.app().notices().notice()), "Duplicate search cancelled.");

    search.setFinder(nullptr); // the real finder again
    ASSERT_NO_FATAL_FAILURE(searchAndWait(search));
    ASSERT_EQ(search.duplicateReport()->groups.size(), 1u);
    const std::optional<DuplicateProgress> work = search.duplicateWork();
    const QString line = search.duplicateProgress();

    ASSERT_NO_FATAL_FAILURE(release(f, held));
    EXPECT_TRUE(held.state->sawCancel);
    ASSERT_TRUE(search.duplicateReport());
    EXPECT_EQ(search.duplicateReport()->checked, 2); // not the cancelled run's marked report
    EXPECT_EQ(search.duplicateWork(), work);
    EXPECT_EQ(search.duplicateProgress(), line);
    EXPECT_FALSE(search.findingDuplicates());
}
