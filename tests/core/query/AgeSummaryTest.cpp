#include <gtest/gtest.h>

#include <QDateTime>

#include <random>

#include "query/AgeSummary.h"
#include "support/FakeScan.h"

using namespace tarnbridge;
using tarnbridge::test::FakeEntry;

namespace {

constexpr std::int64_t kNow = 1'700'000'000;
constexpr std::int64_t kDay = 86400;

ScanResult withAccess(std::vector<FakeEntry> entries, std::int64_t accessed)
{
    // fakeScan sets accessed = modified; rebuild with a chosen access time.
    ScanResult scan = test::fakeScan("/r", entries);
    std::vector<DiskNode> nodes;
    for (NodeId id = 0; id < scan.nodeCount(); ++id) {
        DiskNode n = scan->node(id);
        if (!n.isDirectory)
            n.accessed = accessed;
        nodes.push_back(n);
    }
    return ScanResult::fromNodes(scan.id(), "/r", 0, 0, nodes, {}, 0);
}

} // namespace

TEST(AgeSummary, ClassesAtTheirExactBounds)
{
    EXPECT_EQ(containing(kNow - 7 * kDay, kNow), AgeRange::week);
    EXPECT_EQ(containing(kNow - 7 * kDay - 1, kNow), AgeRange::month);
    EXPECT_EQ(containing(kNow - 30 * kDay, kNow), AgeRange::month);
    EXPECT_EQ(containing(kNow - 90 * kDay, kNow), AgeRange::quarter);
    EXPECT_EQ(containing(kNow - 365 * kDay, kNow), AgeRange::year);
    EXPECT_EQ(containing(kNow - 730 * kDay, kNow), AgeRange::twoYears);
    EXPECT_EQ(containing(kNow - 730 * kDay - 1, kNow), AgeRange::older);
    EXPECT_EQ(containing(kNow + 5 * kDay, kNow), AgeRange::week); // the future
    EXPECT_EQ(title(AgeRange::quarter), "1–3 months");
}

TEST(AgeSummary, TotalsMonthsUntouchedAndListings)
{
    const std::int64_t old = kNow - 366 * kDay;
    const ScanResult scan = withAccess({{"big-old.bin", 40'000'000, 4096, old},
                                        {"almost.bin", 39'999'999, 4096, old},
                                        {"sub/new.txt", 100, 4096, kNow - kDay},
                                        {".hidden", 5, 4096, old},
                                        {"empty/"}},
                                       old);
    MonthCalendar utc(QTimeZone::utc());
    ScanQuery query;
    query.showHidden = false;
    const AgeSummary summary = AgeSummary::make(scan, "/r", query, kNow, utc);
    ASSERT_EQ(summary.entries.size(), 3u); // files only, the hidden one filtered out
    EXPECT_EQ(summary.totals[std::size_t(AgeRange::week)], 4096);
    EXPECT_EQ(summary.totals[std::size_t(AgeRange::twoYears)], 8192);
    // Untouched uses the logical size even when the query measures allocated bytes.
    const AgeListing untouched = summary.listing(std::nullopt, std::nullopt);
    EXPECT_EQ(untouched.paths(scan), std::vector<std::string>{"/r/big-old.bin"});
    EXPECT_EQ(untouched.bytes, 4096);
    const AgeListing older = summary.listing(AgeRange::twoYears, std::nullopt);
    EXPECT_EQ(older.paths(scan), (std::vector<std::string>{"/r/almost.bin", "/r/big-old.bin"})); // ties by path
    const ModificationMonth month = utc.month(kNow - kDay);
    EXPECT_EQ(summary.listing(AgeRange::older, month).paths(summary.scan), std::vector<std::string>{"/r/sub/new.txt"});
    EXPECT_EQ(summary.months.at(month), 4096);

    // Accessed yesterday: not untouched, however old its last change.
    const ScanResult opened = withAccess({{"big-old.bin", 40'000'000, 4096, old}}, kNow - kDay);
    EXPECT_TRUE(AgeSummary::make(opened, "/r", ScanQuery{}, kNow, utc).listing(std::nullopt, std::nullopt).ids.empty());

    const AgeSummary none = AgeSummary::make(scan, "/r/empty", ScanQuery{}, kNow, utc);
    EXPECT_TRUE(none.entries.empty());
    EXPECT_TRUE(none.months.empty());
    EXPECT_EQ(none.totals, (std::array<std::int64_t, 6>{}));
    CancellationFlag cancelled;
    cancelled.cancel();
    EXPECT_THROW(summary.listing(AgeRange::week, std::nullopt, &cancelled), CancellationError);
}

TEST(AgeSummary, MonthsFollowTheTimeZone)
{
    // 2023-06-30 20:00 UTC is already July 1st in Auckland.
    const std::int64_t instant = 1'688'155'200;
    MonthCalendar utc(QTimeZone::utc());
    MonthCalendar auckland(QTimeZone("Pacific/Auckland"));
    ASSERT_TRUE(QTimeZone("Pacific/Auckland").isValid());
    EXPECT_EQ(utc.month(instant), (ModificationMonth{2023, 6}));
    EXPECT_EQ(auckland.month(instant), (ModificationMonth{2023, 7}));
    // Far from the years seen so far, and back again.
    EXPECT_EQ(utc.month(0), (ModificationMonth{1970, 1}));
    EXPECT_EQ(utc.month(4'102'444'800 - 1), (ModificationMonth{2099, 12}));
    EXPECT_EQ(utc.month(instant), (ModificationMonth{2023, 6}));
}

// The calendar finds a month from a guess; near every month start, across two centuries and
// daylight-saving shifts, it must say what Qt's own date conversion says.
TEST(AgeSummary, MonthOfAnyInstantMatchesQtsCalendar)
{
    const QTimeZone zone("America/New_York");
    ASSERT_TRUE(zone.isValid());
    MonthCalendar calendar(zone);
    std::mt19937_64 rng(17);
    for (int year = 1905; year <= 2095; year += 7) {
        for (int month = 1; month <= 12; ++month) {
            const std::int64_t start = QDateTime(QDate(year, month, 1), QTime(0, 0), zone).toSecsSinceEpoch();
            for (const std::int64_t t : {start - 1, start, start + 1, start + std::int64_t(rng() % (28 * kDay))}) {
                const QDate date = QDateTime::fromSecsSinceEpoch(t, zone).date();
                ASSERT_EQ(calendar.month(t), (ModificationMonth{date.year(), date.month()})) << t;
            }
        }
    }
}
