#include <gtest/gtest.h>

#include "../model/AppFixture.h"
#include "app/model/DuplicateSearch.h"
#include "app/model/ScanSession.h"

using namespace tarnbridge;
using namespace tarnbridge::app;
using tarnbridge::test::AppFixture;
using tarnbridge::test::waitUntil;

namespace {

DuplicateGroup group(const std::string& id, std::vector<std::string> paths, std::int64_t allocated)
{
    DuplicateGroup out;
    out.id = id;
    for (std::string& path : paths) {
        DiskNode node;
        node.path = std::move(path);
        node.allocatedSize = allocated;
        out.files.push_back(std::move(node));
    }
    return out;
}

std::vector<std::string> ids(const DuplicateGroupPage& page)
{
    std::vector<std::string> out;
    for (const DuplicateGroup* g : page.groups)
        out.push_back(g->id);
    return out;
}

} // namespace

TEST(DuplicateGroupPage, TheNameFilterAndTheLimitPickGroupsInReportOrder)
{
    AppFixture f;
    const std::string root = f.tree().folder("home/work");
    f.tree().file("home/work/x", 10);
    f.app().session().startScan(root);
    ASSERT_TRUE(waitUntil([&] { return !f.app().scanning() && f.app().session().scan(); }));
    DuplicateSearch& search = f.app().duplicates();
    EXPECT_TRUE(search.visibleGroups({}, 30).groups.empty()); // no report yet
    EXPECT_EQ(search.reclaimableBytes(), 0);

    DuplicateReport report;
    report.groups = {
        group("summer", {"/w/Été 2024.jpg", "/w/copy/Été 2024.jpg"}, 100),
        group("raw", {"/w/a/\xFF\xFEraw.bin", "/w/b/\xFF\xFEraw.bin", "/w/c/other.bin"}, 50),
        group("folder-name-only", {"/w/été/x.txt", "/w/y/x.txt"}, 7),
        group("notes", {"/w/Notes.TXT", "/w/old/notes.txt"}, 1),
    };
    search.setFinder([&](const ScanResult&, std::int64_t, const std::optional<std::string>&, const CancellationFlag&,
                         const DuplicateFinder::DetailProgress&) { return report; });
    search.findDuplicates(std::nullopt);
    ASSERT_TRUE(waitUntil([&] { return !search.findingDuplicates() && search.duplicateReport(); }));
    // Every extra copy counts, the first of each group stays.
    EXPECT_EQ(search.reclaimableBytes(), 100 + 2 * 50 + 7 + 1);

    struct Case {
        QString filter;
        std::size_t limit;
        std::vector<std::string> shown;
        std::size_t passing;
    };
    const std::vector<Case> cases = {
        {{}, 30, {"summer", "raw", "folder-name-only", "notes"}, 4},
        {{}, 2, {"summer", "raw"}, 4},
        {QStringLiteral("éTÉ"), 30, {"summer"}, 1},        // case folds beyond ASCII; folders do not count
        {QStringLiteral("notes.txt"), 30, {"notes"}, 1},
        {QStringLiteral(".txt"), 1, {"folder-name-only"}, 2}, // the limit cuts what is shown, not what passes
        {QStringLiteral("\uFFFDraw"), 30, {"raw"}, 1},       // a name that is not UTF-8 matches as it shows
        {QStringLiteral("other"), 30, {"raw"}, 1},         // any file of the group
        {QStringLiteral("missing"), 30, {}, 0},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.filter.toStdString() + " / " + std::to_string(test.limit));
        const DuplicateGroupPage page = search.visibleGroups(test.filter, test.limit);
        EXPECT_EQ(ids(page), test.shown);
        EXPECT_EQ(page.passing, test.passing);
        EXPECT_EQ(page.hasMore(), test.passing > test.shown.size());
    }
}
