#include <gtest/gtest.h>

#include "AppFixture.h"
#include "app/model/ExploreState.h"
#include "app/model/Notices.h"
#include "app/model/ScanSession.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using tarnbridge::test::AppFixture;
using tarnbridge::test::waitUntil;

namespace {

std::vector<QString> titles(const ExploreState& explore)
{
    std::vector<QString> out;
    for (const auto& chip : explore.activeFilters())
        out.push_back(chip.title);
    return out;
}

} // namespace

TEST(ExploreState, FilterChipsInTheirOrderAndTheirRemoval)
{
    AppFixture f;
    ExploreState& explore = f.app().explore();
    explore.setMinimumBytes(0);
    explore.setModifiedBeforeDays(0);
    EXPECT_TRUE(explore.activeFilters().empty());

    explore.setModifiedBeforeDays(365);
    explore.setCategoryFilter(FileCategory(FileCategory::image));
    explore.setMinimumBytes(10'000'000);
    explore.setShowHidden(false);
    explore.setFilter(QStringLiteral("iso"));
    EXPECT_EQ(titles(explore), (std::vector<QString>{QStringLiteral("Name: iso"), QStringLiteral("Hidden files excluded"),
                                                     QStringLiteral("10 MB+"), QStringLiteral("Images"),
                                                     QStringLiteral("Older than 1 year")}));
    explore.setModifiedBeforeDays(730);
    EXPECT_EQ(titles(explore).back(), QStringLiteral("Older than 2 years"));
    explore.setModifiedBeforeDays(90);
    EXPECT_EQ(titles(explore).back(), QStringLiteral("Older than 90 days"));

    const ScanQuery query = explore.queryFilter();
    EXPECT_EQ(query.text, "iso");
    EXPECT_FALSE(query.showHidden);
    EXPECT_EQ(query.minimumBytes, 10'000'000);
    EXPECT_EQ(query.modifiedBeforeDays, 90);

    explore.removeFilter(ExplorerFilterID::size);
    explore.removeFilter(ExplorerFilterID::hidden);
    EXPECT_EQ(titles(explore).size(), 3u);
    explore.clearFilters();
    EXPECT_TRUE(explore.activeFilters().empty());
    EXPECT_EQ(explore.queryFilter(), ScanQuery{});

    // No scan: the key has no scan id and no focus.
    const ExplorerQueryKey key = explore.queryKey(QStringLiteral("files").toStdString());
    EXPECT_FALSE(key.scanID);
    EXPECT_TRUE(key.focus.empty());
    EXPECT_EQ(key.scope, "files");
}

TEST(ExploreState, ChildrenPassTheFiltersAndACategoryHidesFolders)
{
    AppFixture f;
    const std::string root = f.tree().folder("home/work");
    // Sizes a block or more apart, so that the order by size on disk is certain.
    f.tree().file("home/work/photo.png", 5000);
    f.tree().file("home/work/.hidden.png", 9000);
    f.tree().file("home/work/notes.txt", 100);
    f.tree().file("home/work/album/inner.png", 20000);
    ScanSession& session = f.app().session();
    session.startScan(root);
    ASSERT_TRUE(waitUntil([&] { return !session.scanning(); }));
    ExploreState& explore = f.app().explore();

    auto names = [&] {
        std::vector<std::string> out;
        for (const DiskNode& n : explore.currentChildren())
            out.emplace_back(n.name());
        return out;
    };
    using V = std::vector<std::string>;
    EXPECT_EQ(names(), (V{"album", ".hidden.png", "photo.png", "notes.txt"})); // largest first
    explore.setCategoryFilter(FileCategory(FileCategory::image));
    EXPECT_EQ(names(), (V{".hidden.png", "photo.png"}));
    explore.setShowHidden(false);
    EXPECT_EQ(names(), (V{"photo.png"}));
    explore.clearFilters();
    explore.setFilter(QStringLiteral("NOTES"));
    EXPECT_EQ(names(), (V{"notes.txt"}));

    const ExplorerQueryKey key = explore.queryKey();
    EXPECT_EQ(key.scanID, session.scan()->id());
    EXPECT_EQ(key.focus, root);
    // Focusing a folder clears the name filter.
    session.focusOn(*session.scan()->node(root + "/album"));
    EXPECT_TRUE(explore.filter().isEmpty());
    EXPECT_EQ(explore.queryKey().focus, root + "/album");
}

TEST(ExploreState, FolderTypesComeFromTheScanAtTheRootAndFromACacheOfEightElsewhere)
{
    AppFixture f;
    const std::string root = f.tree().folder("home/work");
    for (int i = 0; i < 9; ++i)
        f.tree().file("home/work/f" + std::to_string(i) + "/sub/movie.mp4", 2000 + i);
    ScanSession& session = f.app().session();
    session.startScan(root);
    ASSERT_TRUE(waitUntil([&] { return !session.scanning(); }));
    ExploreState& explore = f.app().explore();
    ASSERT_EQ(explore.folderTypes().size(), 9u); // the root's, with the scan

    auto visit = [&](int i) { session.browseLocation(root + "/f" + std::to_string(i)); };
    for (int i = 0; i < 9; ++i) {
        visit(i);
        EXPECT_TRUE(explore.folderTypes().empty()) << i; // computed in the background
        ASSERT_TRUE(waitUntil([&] { return explore.folderTypes().size() == 1u; })) << i;
        EXPECT_EQ(explore.folderTypes().begin()->first, root + "/f" + std::to_string(i) + "/sub");
    }
    visit(8);
    EXPECT_EQ(explore.folderTypes().size(), 1u); // cached: there at once
    visit(1);
    EXPECT_EQ(explore.folderTypes().size(), 1u);
    visit(0); // the first visited was evicted by the ninth
    EXPECT_TRUE(explore.folderTypes().empty());
    ASSERT_TRUE(waitUntil([&] { return explore.folderTypes().size() == 1u; }));
    session.browseLocation(root);
    EXPECT_EQ(explore.folderTypes().size(), 9u); // never recomputed for the root
}
