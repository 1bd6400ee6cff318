#include <gtest/gtest.h>

#include <QComboBox>
#include <QMessageBox>
#include <QPushButton>

#include <chrono>
#include <fstream>
#include <functional>
#include <thread>

#include "ToolsFixture.h"
#include "app/model/CleanupFlow.h"
#include "app/model/DuplicateSearch.h"
#include "app/model/ExploreState.h"
#include "app/model/Notices.h"
#include "app/model/Preferences.h"
#include "app/screens/CleanupReviewDialog.h"
#include "app/tools/CleanupScreen.h"
#include "app/tools/DuplicatesScreen.h"
#include "app/tools/ToolWidgets.h"
#include "app/model/Gate.h"
#include "cleanup/CleanupEntry.h"
#include "scan/DiskScanner.h"
#include "support/Checks.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using namespace tarnbridge::test;

namespace {

struct DuplicatesFixture : ToolsFixture {
    std::string work = tree().folder("home/work");

    using ToolsFixture::ToolsFixture;
    DuplicateSearch& search() { return app().duplicates(); }
    DuplicatesScreen& screen() { return ToolsFixture::screen<DuplicatesScreen>(); }
    std::string copy(const std::string& relative, const std::string& contents)
    {
        return tree().fileWithText("home/work/" + relative, contents);
    }
    // "Current scan", as the user clicks it, with every non-empty file taken.
    bool searchCurrentScan()
    {
        app().setSection(AppSection::duplicates);
        screen().minimumSize()->setCurrentIndex(0);
        Q_EMIT screen().minimumSize()->activated(0);
        QAbstractButton* current = button(&screen(), QStringLiteral("Current scan"));
        if (!current)
            return false;
        QTest::mouseClick(current, Qt::LeftButton);
        return waitUntil([&] { return !search().findingDuplicates() && search().duplicateReport(); });
    }
};

QStringList tags(const DuplicateGroupCard& card)
{
    QStringList out;
    for (std::size_t i = 0; i < card.group().files.size(); ++i)
        out << card.tag(i)->text();
    return out;
}

// A report of `count` groups of two made-up files each, named group<N>-a.bin and group<N>-b.bin.
DuplicateReport cannedReport(const std::string& root, int count)
{
    DuplicateReport report;
    for (int i = 0; i < count; ++i) {
        DuplicateGroup group;
        group.id = "id" + std::to_string(i);
        for (const char* side : {"a", "b"}) {
            DiskNode node;
            node.path = root + "/group" + std::to_string(i) + "-" + side + ".bin";
            node.logicalSize = node.allocatedSize = 1000;
            group.files.push_back(node);
        }
        report.groups.push_back(group);
    }
    report.checked = 2 * count;
    return report;
}

} // namespace

TEST(DuplicatesScreen, PanelsTilesAndTheGroupLineFollowTheReportAndTheFilter)
{
    DuplicatesFixture f;
    f.copy("one.bin", "same-one");
    f.copy("one-copy.bin", "same-one");
    ASSERT_TRUE(f.scan(f.work));
    f.app().setSection(AppSection::duplicates);
    DuplicatesScreen& screen = f.screen();
    DuplicateReport shown;
    f.search().setFinder([&](const ScanResult&, std::int64_t, const std::optional<std::string>&,
                             const CancellationFlag&, const DuplicateFinder::DetailProgress&) { return shown; });

    struct Case {
        const char* what;
        std::optional<DuplicateReport> report; // absent: no search yet
        QString filter;
        QStringList texts;   // shown
        QStringList absent;  // not shown
        int cards;
        bool more;
    };
    DuplicateReport issues = cannedReport(f.work, 3);
    issues.skipped = 1;
    issues.issues = {"File changed during comparison: x.bin"};
    const std::vector<Case> cases = {
        {"before any search", std::nullopt, {},
         {QStringLiteral("Find duplicate files"), QStringLiteral("Choose a location above to start.")},
         {QStringLiteral("Extra copies")}, 0, false},
        {"a report without groups", DuplicateReport{}, {},
         {QStringLiteral("No duplicates found"), QStringLiteral("No identical files match the minimum size.")},
         {QStringLiteral("Find duplicate files")}, 0, false},
        {"three groups", cannedReport(f.work, 3), {},
         {QStringLiteral("Extra copies"), ToolWidgets::bytes(3000), QStringLiteral("Allocated size estimate"),
          QStringLiteral("Duplicate groups"), QStringLiteral("3"), QStringLiteral("Content verified"),
          QStringLiteral("Candidates checked"), QStringLiteral("6"), QStringLiteral("No comparison issues"),
          QStringLiteral("Choose a copy to keep.")},
         {QStringLiteral("No duplicates found")}, 3, false},
        {"one comparison issue", issues, {},
         {QStringLiteral("1 comparison issue")}, {QStringLiteral("No comparison issues")}, 3, false},
        {"a filter that one group passes", cannedReport(f.work, 3), QStringLiteral("GROUP1-"),
         {QStringLiteral("Showing 1 of 3 groups")}, {QStringLiteral("Choose a copy to keep.")}, 1, false},
        {"a filter that no group passes", cannedReport(f.work, 3), QStringLiteral("nothing"),
         {QStringLiteral("No matching duplicates"), QStringLiteral("Try another filename or clear the search.")},
         {QStringLiteral("Extra copies")}, 0, false},
        {"one group in all", cannedReport(f.work, 1), QStringLiteral("group"),
         {QStringLiteral("Showing 1 of 1 group")}, {}, 1, false},
        {"more groups than a page", cannedReport(f.work, 31), {}, {QStringLiteral("Choose a copy to keep.")}, {}, 30, true},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        f.app().explore().setFilter(test.filter);
        if (test.report) {
            shown = *test.report;
            f.search().findDuplicates(std::nullopt);
            ASSERT_TRUE(waitUntil([&] { return !f.search().findingDuplicates(); }));
        }
        const QStringList seen = labels(&screen);
        for (const QString& text : test.texts)
            EXPECT_TRUE(seen.contains(text)) << text.toStdString() << " in " << seen.join(u'|').toStdString();
        for (const QString& text : test.absent)
            EXPECT_FALSE(seen.contains(text)) << text.toStdString();
        EXPECT_EQ(int(screen.groupCards().size()), test.cards);
        EXPECT_EQ(button(&screen, QStringLiteral("Show 30 more groups")) != nullptr, test.more);
        EXPECT_EQ(button(&screen, QStringLiteral("Comparison details (1)")) != nullptr, test.report && !test.report->issues.empty());
    }

    // The next page, then the empty filter's way back.
    ASSERT_TRUE(click(&screen, QStringLiteral("Show 30 more groups")));
    EXPECT_EQ(screen.groupCards().size(), 31u);
    EXPECT_FALSE(button(&screen, QStringLiteral("Show 30 more groups")));
    f.app().explore().setFilter(QStringLiteral("nothing"));
    QAbstractButton* clear = button(&screen, QStringLiteral("Clear search"));
    ASSERT_TRUE(clear);
    QTest::mouseClick(clear, Qt::LeftButton);
    EXPECT_TRUE(f.app().explore().filter().isEmpty());
    EXPECT_EQ(screen.groupCards().size(), 31u);
}

TEST(DuplicatesScreen, TheProgressCardShowsEachPhaseOfTheSearch)
{
    DuplicatesFixture f;
    f.copy("a.bin", "x");
    ASSERT_TRUE(f.scan(f.work));
    f.app().setSection(AppSection::duplicates);
    DuplicatesScreen& screen = f.screen();
    using Phase = DuplicateProgress::Phase;
    DuplicateProgress record;
    f.search().setFinder([&record](const ScanResult&, std::int64_t, const std::optional<std::string>&,
                                   const CancellationFlag& cancellation, const DuplicateFinder::DetailProgress& progress) {
        progress(record);
        while (!cancellation.isCancelled())
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        throw CancellationError();
        return DuplicateReport{};
    });
    struct Case {
        DuplicateProgress record;
        QString title;
        QString detail;
        std::optional<double> fraction;
        std::vector<std::pair<QString, QString>> facts;
    };
    const std::vector<Case> cases = {
        {{Phase::grouping, 0, 0, "", 0, 0}, QStringLiteral("Comparing your files"),
         QStringLiteral("Grouping files by size…"), std::nullopt,
         {{QStringLiteral("Candidates checked"), QStringLiteral("0")}, {QStringLiteral("Candidates found"), QStringLiteral("0")}}},
        {{Phase::sampling, 1200, 3400, "", 0, 0}, QStringLiteral("Comparing your files"),
         QStringLiteral("Checking samples · ") + ToolWidgets::number(1200) + QStringLiteral(" of ") +
             ToolWidgets::number(3400) + QStringLiteral(" candidates"),
         std::nullopt,
         {{QStringLiteral("Candidates checked"), ToolWidgets::number(1200)},
          {QStringLiteral("Candidates found"), ToolWidgets::number(3400)}}},
        {{Phase::hashing, 5, 9, "film.mkv", 250'000, 1'000'000}, QStringLiteral("Reading full contents"),
         QStringLiteral("film.mkv"), 0.25,
         {{QStringLiteral("Read from this file"), ToolWidgets::bytes(250'000)},
          {QStringLiteral("File size"), ToolWidgets::bytes(1'000'000)}}},
        {{Phase::verifying, 5, 9, "song.mp3", 900, 0}, QStringLiteral("Verifying identical copies"),
         QStringLiteral("song.mp3"), std::nullopt,
         {{QStringLiteral("Read from this file"), ToolWidgets::bytes(900)}, {QStringLiteral("File size"), ToolWidgets::bytes(0)}}},
        {{Phase::verifying, 5, 9, "big.iso", 3000, 2000}, QStringLiteral("Verifying identical copies"),
         QStringLiteral("big.iso"), 1.0,
         {{QStringLiteral("Read from this file"), ToolWidgets::bytes(3000)},
          {QStringLiteral("File size"), ToolWidgets::bytes(2000)}}},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.title.toStdString() + " " + test.detail.toStdString());
        record = test.record;
        f.search().findDuplicates(std::nullopt);
        ASSERT_TRUE(waitUntil([&] { return f.search().duplicateWork() == test.record; }));
        ProgressCard* card = screen.progressCard();
        EXPECT_TRUE(card->isVisibleTo(f.window.get()));
        EXPECT_EQ(card->title(), test.title);
        EXPECT_EQ(card->detail(), test.detail);
        EXPECT_EQ(card->fraction(), test.fraction);
        EXPECT_EQ(card->facts(), test.facts);
        QAbstractButton* cancel = button(&screen, QStringLiteral("Cancel"));
        ASSERT_TRUE(cancel);
        QTest::mouseClick(cancel, Qt::LeftButton);
        EXPECT_FALSE(f.search().findingDuplicates());
        EXPECT_FALSE(card->isVisibleTo(f.window.get()));
        EXPECT_EQ(f.app().notices().notice(), QStringLiteral("Duplicate search cancelled."));
        f.app().workPool().waitForDone();
    }
}

TEST(DuplicatesScreen, CurrentScanDuringAScanWaitsWithTheScanFactsAndCancelStopsTheScan)
{
    auto gate = std::make_shared<Gate>();
    AppServices services;
    services.scan = [gate](const std::string& path, const CancellationFlag& flag, ScanNavigation* navigation,
                           const ScanProgressCallback& progress) {
        ScanResult result = DiskScanner::scan(path, flag, navigation, progress);
        gate->hold();
        flag.check();
        return result;
    };
    DuplicatesFixture f(services);
    struct Release { // a failed check must not leave the scan's worker held
        std::shared_ptr<Gate> gate;
        ~Release() { gate->open(); }
    } release{gate};
    f.copy("a.bin", "x");
    DuplicatesScreen& screen = f.screen();
    f.app().session().startScan(f.work);
    ASSERT_TRUE(waitUntil([&] { return gate->reached(); }));
    f.app().setSection(AppSection::duplicates);
    ASSERT_TRUE(click(&screen, QStringLiteral("Current scan")));
    ASSERT_TRUE(f.search().waitingForScan());
    ASSERT_TRUE(waitUntil([&] { return f.app().session().scanProgress() != nullptr; }));
    ProgressCard* card = screen.progressCard();
    EXPECT_TRUE(card->isVisibleTo(f.window.get()));
    EXPECT_EQ(card->title(), QStringLiteral("Scanning ") + f.app().session().scanRootName());
    EXPECT_EQ(card->detail(), QStringLiteral("Comparison starts after the scan."));
    ASSERT_EQ(card->facts().size(), 3u);
    EXPECT_EQ(card->facts()[0].first, QStringLiteral("Files"));
    EXPECT_EQ(card->facts()[1].first, QStringLiteral("Folders"));
    EXPECT_EQ(card->facts()[2].first, QStringLiteral("Size on disk"));

    ASSERT_TRUE(click(&screen, QStringLiteral("Cancel")));
    gate->open();
    ASSERT_TRUE(waitUntil([&] { return !f.app().scanning(); }));
    EXPECT_FALSE(f.search().findingDuplicates());
    EXPECT_FALSE(f.app().session().scan()); // the scan stopped; no search followed
    EXPECT_FALSE(card->isVisibleTo(f.window.get()));
}

TEST(DuplicatesScreen, TheChosenCopyStaysAndTheExtrasGoToTheTrashWithReceipts)
{
    DuplicatesFixture f;
    const std::string first = f.copy("Music/song.mp3", "the very same bytes");
    const std::string second = f.copy("Backup/song.mp3", "the very same bytes");
    const std::string third = f.copy("Old/song (copy).mp3", "the very same bytes");
    f.copy("other.txt", "different");
    ASSERT_TRUE(f.scan(f.work));
    ASSERT_TRUE(f.searchCurrentScan());
    DuplicatesScreen& screen = f.screen();
    ASSERT_EQ(screen.groupCards().size(), 1u);
    DuplicateGroupCard& card = *screen.groupCards().front();
    ASSERT_EQ(card.group().files.size(), 3u);
    // Files are in path order: Backup, Music, Old. The first is kept until the user chooses.
    EXPECT_EQ(card.group().files[0].path, second);
    EXPECT_EQ(tags(card), (QStringList{QStringLiteral("KEEP"), QStringLiteral("EXTRA COPY"), QStringLiteral("EXTRA COPY")}));
    EXPECT_TRUE(labels(&screen).contains(QStringLiteral("3 identical files"))) << labels(&screen).join(u'|').toStdString();

    QTest::mouseClick(card.keepButton(1), Qt::LeftButton);
    EXPECT_EQ(tags(card), (QStringList{QStringLiteral("EXTRA COPY"), QStringLiteral("KEEP"), QStringLiteral("EXTRA COPY")}));
    EXPECT_EQ(card.keepButton(1)->accessibleName(), QStringLiteral("Keep song.mp3"));
    EXPECT_EQ(card.keepButton(1)->accessibleDescription(), QStringLiteral("Selected"));
    EXPECT_TRUE(card.keepButton(0)->accessibleDescription().isEmpty());
    ASSERT_TRUE(card.stageButton()->isEnabled());
    QTest::mouseClick(card.stageButton(), Qt::LeftButton);

    const auto& queue = f.app().cleanup().queue();
    ASSERT_EQ(queue.size(), 2u);
    for (const CleanupEntry& entry : queue) {
        EXPECT_EQ(entry.reason, "Duplicate · keeping song.mp3");
        EXPECT_EQ(entry.retainedCopies.count(first), 1u);
    }
    f.app().preferences().setBackupBeforeCleanup(false);
    f.app().setSection(AppSection::cleanup);
    CleanupScreen& cleanup = f.ToolsFixture::screen<CleanupScreen>();
    EXPECT_EQ(column(cleanup.queueList(), 3), (QStringList{CleanupScreen::duplicateNote(), CleanupScreen::duplicateNote()}));
    QTest::mouseClick(cleanup.moveButton(), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return f.window->reviewDialog() != nullptr; }));
    QTest::mouseClick(f.window->reviewDialog()->confirmButton(), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return !f.app().cleaning() && f.app().cleanup().receipts().size() == 2; }));

    EXPECT_TRUE(exists(first));
    EXPECT_EQ(readText(first), "the very same bytes");
    EXPECT_FALSE(exists(second));
    EXPECT_FALSE(exists(third));
    for (const TrashReceipt& receipt : f.app().cleanup().receipts()) {
        EXPECT_TRUE(receipt.originalPath == second || receipt.originalPath == third) << receipt.originalPath;
        EXPECT_EQ(readText(receipt.trashPath), "the very same bytes");
    }
    EXPECT_TRUE(f.app().cleanup().queue().empty());
    // The report described the disk before the move; it is gone, and staging from it with it.
    EXPECT_FALSE(f.search().duplicateReport());
    f.app().setSection(AppSection::duplicates);
    EXPECT_TRUE(screen.groupCards().empty());
}

TEST(DuplicatesScreen, ExtrasWhoseKeptCopyChangedAfterStagingAreRefused)
{
    DuplicatesFixture f;
    const std::string first = f.copy("a/photo.jpg", "picture bytes");
    const std::string second = f.copy("b/photo.jpg", "picture bytes");
    ASSERT_TRUE(f.scan(f.work));
    ASSERT_TRUE(f.searchCurrentScan());
    DuplicateGroupCard& card = *f.screen().groupCards().at(0);
    QTest::mouseClick(card.stageButton(), Qt::LeftButton); // keeps the first
    ASSERT_EQ(f.app().cleanup().queue().size(), 1u);

    { // The kept copy changes after staging.
        std::ofstream out(first, std::ios::app);
        out << " edited";
    }
    f.app().preferences().setBackupBeforeCleanup(false);
    f.app().cleanup().requestCleanup();
    ASSERT_TRUE(waitUntil([&] { return f.window->reviewDialog() != nullptr; }));
    QTest::mouseClick(f.window->reviewDialog()->confirmButton(), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return !f.app().cleaning() && f.app().notices().error(); }));
    const QString expected = QString::fromUtf8(kRetainedCopyChanged) + QStringLiteral("\nNothing was moved to Trash.");
    EXPECT_EQ(*f.app().notices().error(), expected);
    auto* box = f.window->findChild<QMessageBox*>(QStringLiteral("errorBox"));
    ASSERT_TRUE(box);
    EXPECT_EQ(box->text(), expected);
    EXPECT_TRUE(exists(first) && exists(second));
    EXPECT_TRUE(f.app().cleanup().receipts().empty());
    EXPECT_EQ(f.app().cleanup().queue().size(), 1u);
}
