#include <gtest/gtest.h>

#include <QCollator>
#include <QLocale>

#include "model/PathText.h"
#include "query/ScanPresentation.h"
#include "query/ScanQuery.h"
#include "support/FakeScan.h"

using namespace tarnbridge;
using tarnbridge::test::fakeScan;

namespace {
std::vector<std::string> sorted(const ScanResult& scan, ScanSortField field, SortOrder order, bool recursive = false,
                                std::string_view focus = "/r")
{
    return ScanQuery{}.sortedPaths(scan, focus, recursive, field, order);
}
} // namespace

TEST(TableOrdering, NamesInNaturalOrderAndTiesInPathOrder)
{
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    const ScanResult scan = fakeScan("/r", {{"file10", 5}, {"File2", 5}, {"file1", 9}, {"b", 5}, {"a", 5},
                                            {"e\xCC\x81t\xC3\xA9", 1}, {"\xC3\xA9t\xC3\xA9", 1}, {"f/", 0}});
    using V = std::vector<std::string>;
    const V byName = sorted(scan, ScanSortField::name, SortOrder::ascending);
    // Case does not matter, numbers count by value, and accented names, composed or not, sort
    // with their letters.
    const auto at = [&](const std::string& name) {
        return std::find(byName.begin(), byName.end(), "/r/" + name) - byName.begin();
    };
    EXPECT_LT(at("file1"), at("File2"));
    EXPECT_LT(at("File2"), at("file10"));
    EXPECT_LT(at("a"), at("b"));
    EXPECT_LT(at("b"), at("e\xCC\x81t\xC3\xA9"));
    EXPECT_LT(at("\xC3\xA9t\xC3\xA9"), at("f"));

    // Equal sizes, descending: ties run in ascending path order all the same.
    const V bySize = sorted(scan, ScanSortField::logicalSize, SortOrder::descending);
    EXPECT_EQ(V(bySize.begin(), bySize.begin() + 5), (V{"/r/file1", "/r/File2", "/r/a", "/r/b", "/r/file10"}));
    const V bySizeUp = sorted(scan, ScanSortField::logicalSize, SortOrder::ascending);
    EXPECT_EQ(bySizeUp.front(), "/r/f");
    EXPECT_EQ(bySizeUp.back(), "/r/file1");
}

TEST(TableOrdering, ItemCountsKindsAndDepth)
{
    const ScanResult scan = fakeScan("/r", {{"empty/"}, {"full/a", 1}, {"full/b", 1}, {"one.txt", 1},
                                            {"App.app/x", 1}, {"clip.mkv", 1}});
    using V = std::vector<std::string>;
    const V byItems = sorted(scan, ScanSortField::itemCount, SortOrder::ascending);
    EXPECT_EQ(byItems.front(), "/r/empty");
    EXPECT_EQ(byItems.back(), "/r/full"); // two items
    const V byKind = sorted(scan, ScanSortField::kindName, SortOrder::ascending);
    // Application, Document, Folder, Folder, Video
    EXPECT_EQ(byKind, (V{"/r/App.app", "/r/one.txt", "/r/empty", "/r/full", "/r/clip.mkv"}));
    EXPECT_EQ(sorted(scan, ScanSortField::name, SortOrder::ascending, true).size(), scan.nodeCount() - 1);
    EXPECT_TRUE(sorted(scan, ScanSortField::name, SortOrder::ascending, true, "/nowhere").empty());
    CancellationFlag cancelled;
    cancelled.cancel();
    EXPECT_THROW(ScanQuery{}.sortedPaths(scan, "/r", true, ScanSortField::name, SortOrder::ascending, &cancelled),
                 CancellationError);
}

TEST(TableOrdering, NumericColumnsMatchAReferenceSortOnRandomTrees)
{
    // Sizes across many byte widths, dates before and after 1970, and plenty of ties.
    std::vector<test::FakeEntry> entries;
    std::uint64_t seed = 99;
    auto next = [&] {
        seed = seed * 6364136223846793005ull + 1442695040888963407ull;
        return seed >> 16;
    };
    for (int i = 0; i < 3000; ++i) {
        const int shift = int(next() % 44);
        const std::int64_t size = next() % 5 == 0 ? 4096 : std::int64_t(next() % (std::uint64_t(1) << shift));
        const std::int64_t modified = std::int64_t(next() % 4'000'000'000ull) - 1'000'000'000;
        entries.push_back({"d" + std::to_string(next() % 40) + "/s" + std::to_string(next() % 7) + "/f" +
                               std::to_string(i),
                           size, std::int64_t(next() % 3) * 4096, modified});
    }
    // Logical sizes then spread too wide for one radix key with the path rank; allocated
    // sizes do not: both ways of sorting are compared below.
    entries.push_back({"d1/huge", std::int64_t(1) << 60, 4096, -4'000'000'000'000});
    const ScanResult scan = fakeScan("/r", entries);
    const ScanData& d = scan.data();
    for (ScanSortField field : {ScanSortField::allocatedSize, ScanSortField::logicalSize, ScanSortField::modified,
                                ScanSortField::itemCount}) {
        for (SortOrder order : {SortOrder::ascending, SortOrder::descending}) {
            const auto got = ScanQuery{}.sortedIds(scan, "/r", true, field, order);
            std::vector<NodeId> expected = got;
            auto value = [&](NodeId id) -> std::int64_t {
                switch (field) {
                case ScanSortField::allocatedSize: return d[id].allocatedSize;
                case ScanSortField::logicalSize: return d[id].logicalSize;
                case ScanSortField::modified: return d[id].modifiedSeconds;
                default: return itemCount(d[id]);
                }
            };
            std::sort(expected.begin(), expected.end(), [&](NodeId a, NodeId b) {
                if (value(a) != value(b))
                    return order == SortOrder::ascending ? value(a) < value(b) : value(a) > value(b);
                return PathText::compare(d.path(a), d.path(b)) < 0;
            });
            ASSERT_EQ(got.size(), scan.nodeCount() - 1);
            EXPECT_EQ(got, expected) << int(field) << " " << int(order);
        }
    }

    // With filters, over the whole tree and over a small part of it: the rows forEach finds.
    ScanQuery filtered;
    filtered.minimumBytes = 5000;
    filtered.text = "f1";
    for (const std::string focus : {"/r", "/r/d3", "/r/d7/s2"}) {
        std::vector<NodeId> expected;
        filtered.forEach(scan, focus, true, currentTime(), [&](NodeId id) { expected.push_back(id); });
        ASSERT_FALSE(expected.empty()) << focus;
        std::sort(expected.begin(), expected.end(), [&](NodeId a, NodeId b) {
            if (d[a].allocatedSize != d[b].allocatedSize)
                return d[a].allocatedSize > d[b].allocatedSize;
            return PathText::compare(d.path(a), d.path(b)) < 0;
        });
        EXPECT_EQ(filtered.sortedIds(scan, focus, true, ScanSortField::allocatedSize, SortOrder::descending), expected)
            << focus;
    }
}

TEST(TableOrdering, NameOrderMatchesTheCollatorOnRandomTreesWithRepeatedNames)
{
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    // Names repeat across folders, in several cases and with numbers of several widths.
    const std::vector<std::string> stems{"index", "Index", "README", "readme", "file", "File", "caf\xC3\xA9",
                                         "cafe\xCC\x81", "z\xC3\xBCrich", "_build", ".hidden", "a b"};
    std::vector<test::FakeEntry> entries;
    std::uint64_t seed = 7;
    auto next = [&] {
        seed = seed * 6364136223846793005ull + 1442695040888963407ull;
        return seed >> 16;
    };
    for (int i = 0; i < 1500; ++i) {
        std::string name = stems[next() % stems.size()];
        if (next() % 2)
            name += std::to_string(next() % 120);
        entries.push_back({"d" + std::to_string(next() % 25) + "/" + name + (next() % 3 ? ".txt" : ""), 1});
    }
    const ScanResult scan = fakeScan("/r", entries);
    const ScanData& d = scan.data();
    QCollator collator;
    collator.setNumericMode(true);
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    for (SortOrder order : {SortOrder::ascending, SortOrder::descending}) {
        const auto got = ScanQuery{}.sortedIds(scan, "/r", true, ScanSortField::name, order);
        std::vector<NodeId> expected = got;
        std::stable_sort(expected.begin(), expected.end(), [&](NodeId a, NodeId b) {
            const std::string_view na = d.name(a), nb = d.name(b);
            const int c = collator.compare(QString::fromUtf8(na.data(), qsizetype(na.size())),
                                           QString::fromUtf8(nb.data(), qsizetype(nb.size())));
            if (c != 0)
                return order == SortOrder::ascending ? c < 0 : c > 0;
            return PathText::compare(d.path(a), d.path(b)) < 0;
        });
        EXPECT_EQ(got, expected) << int(order);
    }
}

TEST(TableOrdering, NamesSortNaturallyAndWithoutCaseInTheCLocaleToo)
{
    const QLocale before;
    QLocale::setDefault(QLocale::c());
    const ScanResult scan = fakeScan("/r", {{"file10", 1}, {"File3", 1}, {"file2", 1}, {"b", 1}, {"A", 1}});
    std::vector<std::string> names;
    for (NodeId id : ScanQuery{}.sortedIds(scan, "/r", false, ScanSortField::name, SortOrder::ascending))
        names.emplace_back(scan.data().name(id));
    QLocale::setDefault(before);
    EXPECT_EQ(names, (std::vector<std::string>{"A", "b", "file2", "File3", "file10"}));
}
