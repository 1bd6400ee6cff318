#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "app/model/AgeMapState.h"
#include "app/model/AppFixture.h"
#include "app/model/CleanupFlow.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"
#include "query/ScanQuery.h"

namespace tarnbridge::test {
namespace {

using app::AgeMapState;

constexpr std::int64_t kDay = 86'400;

// A scanned folder with one file in each of five age classes, a hidden one, and a large file
// nobody touched for two years.
struct AgeFixture {
    AppFixture fixture;
    std::int64_t now = currentTime();

    AgeFixture()
    {
        file("scanned/new.txt", 5'000, 0);
        file("scanned/recent.txt", 6'000, 20);
        file("scanned/.hidden", 3'000, 100);
        file("scanned/old/a.bin", 7'000, 400);
        file("scanned/old/b.bin", 8'000, 400);
        tree().sparseFile("scanned/big.iso", 40'000'000);
        tree().setModified("scanned/big.iso", now - 800 * kDay);
    }
    void file(const std::string& path, std::int64_t size, std::int64_t days)
    {
        tree().file(path, size);
        tree().setModified(path, now - days * kDay);
    }

    app::AppModel& app() { return fixture.app(); }
    TempTree& tree() { return fixture.tree(); }
    AgeMapState& state() { return app().explore().ageMap(); }
    std::string path(const std::string& relative) { return tree().path(relative); }

    // Scans "scanned" with sizes measured logically (exact), showing the age map.
    bool scanToEnd()
    {
        app().explore().setLogical(true);
        app().session().startScan(path("scanned"));
        if (!waitUntil([this] { return !app().scanning() && app().session().scan(); }))
            return false;
        app().explore().setStorageView(app::StorageView::ageMap);
        return settled();
    }
    bool settled()
    {
        return waitUntil([this] { return state().preparedKey() && !state().pending(); });
    }
    ModificationMonth monthOf(std::int64_t days)
    {
        MonthCalendar calendar;
        return calendar.month(now - days * kDay);
    }
    std::vector<std::string> listed()
    {
        std::vector<std::string> paths;
        for (const DiskNode& node : state().rows())
            paths.push_back(node.path);
        return paths;
    }
};

TEST(AgeMapHeat, LevelsGrowWithTheSquareRootOfTheShareOfTheBusiestMonth)
{
    const struct {
        std::int64_t bytes, maximum;
        int level;
    } cases[] = {
        {3'600, 3'600, 6}, {100, 3'600, 1},  {101, 3'600, 2},  {0, 3'600, 0}, {-5, 3'600, 0},
        {900, 3'600, 3},   {901, 3'600, 4},  {1, 0, 6},         {5, 1, 6},     {1, 36'000'000'000'000, 1},
        {std::int64_t(1) << 62, std::int64_t(1) << 62, 6},
    };
    for (const auto& c : cases)
        EXPECT_EQ(app::heatLevel(c.bytes, c.maximum), c.level) << c.bytes << " of " << c.maximum;
}

TEST(AgeMapState, SummarisesTheFocusInTheBackgroundOnlyWhileTheAgeMapIsShown)
{
    AgeFixture f;
    f.app().explore().setLogical(true);
    f.app().session().startScan(f.path("scanned"));
    ASSERT_TRUE(waitUntil([&] { return !f.app().scanning() && f.app().session().scan(); }));
    spin(300);
    EXPECT_FALSE(f.state().preparedKey()) << "another view is shown: nothing is computed";
    EXPECT_FALSE(f.state().pending());

    // Shown and hidden again before the debounce: shown once more, it must still compute.
    f.app().explore().setStorageView(app::StorageView::ageMap);
    EXPECT_TRUE(f.state().summaryPending());
    f.app().explore().setStorageView(app::StorageView::treemap);
    spin(300);
    EXPECT_FALSE(f.state().preparedKey()) << "hidden before its start, the query never ran";
    f.app().explore().setStorageView(app::StorageView::ageMap);
    ASSERT_TRUE(f.settled());
    EXPECT_EQ(f.state().preparedKey(), f.state().key());
    EXPECT_EQ(f.state().summary().totals, (std::array<std::int64_t, 6>{5'000, 6'000, 0, 3'000, 15'000, 40'000'000}));
    EXPECT_EQ(f.state().busiestMonth(), f.monthOf(800));
    // No selection: the big untouched file only.
    EXPECT_EQ(f.listed(), std::vector<std::string>{f.path("scanned/big.iso")});
    EXPECT_EQ(f.state().listing().bytes, 40'000'000);

    // A filter: the old summary stays, marked pending, until the new one is ready.
    const QUuid first = f.state().summaryRevision();
    f.app().explore().setShowHidden(false);
    EXPECT_TRUE(f.state().summaryPending());
    EXPECT_TRUE(f.state().listingPending()) << "a list of a stale summary is not current either";
    EXPECT_EQ(f.state().summary().totals[3], 3'000);
    ASSERT_TRUE(f.settled());
    EXPECT_EQ(f.state().summary().totals[3], 0) << "the hidden file is filtered out";
    EXPECT_NE(f.state().summaryRevision(), first);

    // The focus is part of the key.
    f.app().session().focusOn(*f.app().session().scan()->node(f.path("scanned/old")));
    EXPECT_TRUE(f.state().summaryPending());
    ASSERT_TRUE(f.settled());
    EXPECT_EQ(f.state().summary().totals, (std::array<std::int64_t, 6>{0, 0, 0, 0, 15'000, 0}));
    EXPECT_TRUE(f.state().listing().ids.empty());
}

TEST(AgeMapState, ABarAndAMonthExcludeEachOtherAndTheListFollows)
{
    AgeFixture f;
    ASSERT_TRUE(f.scanToEnd());
    auto& state = f.state();
    const struct {
        const char* step;
        std::function<void()> act;
        std::optional<AgeRange> range;
        std::optional<ModificationMonth> month;
        std::vector<std::string> rows;
    } steps[] = {
        {"a month", [&] { state.selectMonth(f.monthOf(400)); }, std::nullopt, f.monthOf(400),
         {f.path("scanned/old/b.bin"), f.path("scanned/old/a.bin")}},
        {"then a bar", [&] { state.selectRange(AgeRange::week); }, AgeRange::week, std::nullopt,
         {f.path("scanned/new.txt")}},
        {"the same bar again", [&] { state.selectRange(AgeRange::week); }, std::nullopt, std::nullopt,
         {f.path("scanned/big.iso")}},
        {"a bar", [&] { state.selectRange(AgeRange::month); }, AgeRange::month, std::nullopt,
         {f.path("scanned/recent.txt")}},
        {"then a month", [&] { state.selectMonth(f.monthOf(800)); }, std::nullopt, f.monthOf(800),
         {f.path("scanned/big.iso")}},
        {"the same month again", [&] { state.selectMonth(f.monthOf(800)); }, std::nullopt, std::nullopt,
         {f.path("scanned/big.iso")}},
        {"a bar, cleared", [&] { state.selectRange(AgeRange::twoYears); state.clearSelection(); }, std::nullopt,
         std::nullopt, {f.path("scanned/big.iso")}},
    };
    for (const auto& step : steps) {
        step.act();
        EXPECT_EQ(state.selectedRange(), step.range) << step.step;
        EXPECT_EQ(state.selectedMonth(), step.month) << step.step;
        ASSERT_TRUE(f.settled()) << step.step;
        EXPECT_EQ(f.listed(), step.rows) << step.step;
        EXPECT_EQ(state.listedKey(), state.listingKey()) << step.step;
    }

    // Filters keep the selection and refresh both queries.
    state.selectRange(AgeRange::twoYears);
    ASSERT_TRUE(f.settled());
    f.app().explore().setMinimumBytes(7'500);
    EXPECT_TRUE(state.listingPending());
    ASSERT_TRUE(f.settled());
    EXPECT_EQ(state.selectedRange(), AgeRange::twoYears);
    EXPECT_EQ(f.listed(), std::vector<std::string>{f.path("scanned/old/b.bin")});
    EXPECT_EQ(state.listing().bytes, 8'000);
}

TEST(AgeMapState, RowsComeFortyAtATimeAndANewListingStartsAgain)
{
    AgeFixture f;
    for (int i = 0; i < 95; ++i)
        f.file("scanned/many/f" + std::to_string(100 + i), 100 + i, 2);
    ASSERT_TRUE(f.scanToEnd());
    auto& state = f.state();
    state.selectRange(AgeRange::week);
    ASSERT_TRUE(f.settled());
    EXPECT_EQ(state.listing().ids.size(), 96u);
    ASSERT_EQ(state.rows().size(), 40u);
    EXPECT_EQ(state.rows().front().path, f.path("scanned/new.txt")) << "biggest first";
    EXPECT_EQ(state.rows().back().path, f.path("scanned/many/f156"));
    state.showMore();
    state.showMore();
    EXPECT_EQ(state.rows().size(), 96u);
    EXPECT_EQ(state.limit(), 120);

    // A click alone leaves the limit; the listing it brings resets it.
    state.selectRange(AgeRange::twoYears);
    EXPECT_EQ(state.limit(), 120);
    ASSERT_TRUE(f.settled());
    EXPECT_EQ(state.limit(), AgeMapState::kPageSize);
    state.showMore();
    f.app().explore().setFilter(QStringLiteral("a.bin"));
    ASSERT_TRUE(f.settled());
    EXPECT_EQ(state.limit(), AgeMapState::kPageSize) << "a new summary brings a new listing";
    EXPECT_EQ(f.listed(), std::vector<std::string>{f.path("scanned/old/a.bin")});
}

TEST(AgeMapState, StagesEveryListedFileThroughTheCleanupFlow)
{
    AgeFixture f;
    ASSERT_TRUE(f.scanToEnd());
    auto& state = f.state();
    state.selectRange(AgeRange::twoYears);
    EXPECT_FALSE(state.canStage()) << "the listing is not ready yet";
    ASSERT_TRUE(f.settled());
    ASSERT_TRUE(state.canStage());
    state.stageListing();
    ASSERT_TRUE(waitUntil([&] { return f.app().cleanup().queue().size() == 2u && !f.app().staging(); }));
    std::set<std::string> staged;
    for (const CleanupEntry& entry : f.app().cleanup().queue()) {
        EXPECT_EQ(entry.reason, "Selected in Explore");
        staged.insert(entry.node.path);
    }
    EXPECT_EQ(staged, (std::set<std::string>{f.path("scanned/old/a.bin"), f.path("scanned/old/b.bin")}));

    // A focus without files: nothing to list, nothing to stage.
    f.app().session().focusOn(*f.app().session().scan()->node(f.path("scanned/old")));
    f.app().explore().setMinimumBytes(1'000'000);
    ASSERT_TRUE(f.settled());
    EXPECT_TRUE(state.summary().months.empty());
    EXPECT_FALSE(state.canStage());
}

} // namespace
} // namespace tarnbridge::test
