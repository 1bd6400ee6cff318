#include <gtest/gtest.h>

#include <QLocale>

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
