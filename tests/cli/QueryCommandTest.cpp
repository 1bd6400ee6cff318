#include <gtest/gtest.h>

#include <sstream>

#include "query/AgeSummary.h"
#include "query/ScanPresentation.h"
#include "query/ScanQuery.h"
#include "scan/DiskScanner.h"
#include "storage/ScanJson.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::cliPath;
using tarnbridge::test::runProcess;
using tarnbridge::test::TempTree;

namespace {

// The "path" of each JSON line, in order (our writer's own escaping, so a plain search works
// for the ASCII names used here).
std::vector<std::string> jsonPaths(const std::string& lines)
{
    std::vector<std::string> out;
    std::istringstream in(lines);
    std::string line;
    while (std::getline(in, line)) {
        const auto start = line.find("\"path\":\"") + 8;
        out.push_back(line.substr(start, line.find('"', start) - start));
    }
    return out;
}

} // namespace

TEST(QueryCommands, TopPrintsWhatTheLibraryRanks)
{
    TempTree tree;
    for (int i = 0; i < 40; ++i)
        tree.file("dir" + std::to_string(i % 4) + "/file" + std::to_string(i) + (i % 3 ? ".png" : ".txt"),
                  (i % 7) * 10000 + 1);
    tree.file(".hidden/big.png", 900000);
    CancellationFlag flag;
    const ScanResult scan = DiskScanner::scan(tree.root(), flag);
    const std::string saved = tree.path("scan.json");
    ScanJson::writeFile(scan, saved);

    struct Case {
        std::vector<std::string> options;
        ScanQuery query;
        RankingScope scope;
        std::int64_t limit;
    };
    ScanQuery images;
    images.category = FileCategory::image;
    images.showHidden = false;
    images.measure = SizeMeasure::logical;
    ScanQuery big;
    big.minimumBytes = 50000;
    const std::vector<Case> cases{
        {{"--limit", "7", "--type", "Images", "--no-hidden", "--logical"}, images, RankingScope::files, 7},
        {{"--scope", "folders", "--limit", "3", "--min-size", "50kB"}, big, RankingScope::folders, 3},
        {{"--scope", "current", "--focus", tree.path("dir2"), "--limit", "100"}, ScanQuery{}, RankingScope::current, 100},
    };
    for (const auto& c : cases) {
        std::vector<std::string> argv{cliPath(), "top", "--from", saved, "--json"};
        argv.insert(argv.end(), c.options.begin(), c.options.end());
        const auto result = runProcess(argv);
        ASSERT_EQ(result.exitCode, 0) << result.err;
        const std::string focus = c.scope == RankingScope::current ? tree.path("dir2") : tree.root();
        std::vector<std::string> expected;
        for (const auto& row : c.query.rankedPage(scan, focus, c.scope, c.limit).rows)
            expected.push_back(row.path);
        EXPECT_FALSE(expected.empty());
        EXPECT_EQ(jsonPaths(result.out), expected) << c.options[0];
    }

    const auto table = runProcess({cliPath(), "top", "--from", saved, "--limit", "2"});
    ASSERT_EQ(table.exitCode, 0) << table.err;
    EXPECT_NE(table.out.find("Biggest files anywhere: 41 matching"), std::string::npos) << table.out;
    EXPECT_NE(table.out.find(".hidden/big.png"), std::string::npos) << table.out;

    const auto wrongFocus = runProcess({cliPath(), "top", "--from", saved, "--focus", "/elsewhere"});
    EXPECT_EQ(wrongFocus.exitCode, 1);
    EXPECT_NE(wrongFocus.err.find("is not a folder of this scan"), std::string::npos) << wrongFocus.err;
}

TEST(QueryCommands, TypesAndWinsPrintWhatTheLibraryComputes)
{
    TempTree tree;
    tree.file("proj/node_modules/pkg/index.js", 3000);
    tree.file("proj/build/out.o", 2000);
    tree.file("proj/src/main.cpp", 500);
    tree.file("Downloads/movie.mkv", 7000);
    tree.file("pics/a.png", 1234);
    tree.file("top.txt", 10);
    CancellationFlag flag;
    const ScanResult scan = DiskScanner::scan(tree.root(), flag);
    const std::string saved = tree.path("scan.json");
    ScanJson::writeFile(scan, saved);

    const auto types = runProcess({cliPath(), "types", "--from", saved, "--logical", "--json"});
    ASSERT_EQ(types.exitCode, 0) << types.err;
    const TypeDistribution d = distribution(scan, tree.root());
    // ".o" is a developer file too.
    std::string expectedTotal = "\"Video\":7000,\"Images\":1234,\"Documents\":10,\"Developer\":5500";
    ASSERT_EQ(d.total.logical.at(FileCategory::developer), 5500); // the library agrees with the line above
    EXPECT_NE(types.out.find("\"types\":{" + expectedTotal + "}"), std::string::npos) << types.out;
    EXPECT_NE(types.out.find("\"path\":\"" + tree.path("proj") + "\",\"types\":{\"Developer\":5500}"),
              std::string::npos) << types.out;

    const auto wins = runProcess({cliPath(), "wins", "--from", saved, "--json"});
    ASSERT_EQ(wins.exitCode, 0) << wins.err;
    std::vector<std::string> expected;
    for (const QuickWin& win : QuickWin::discover(scan))
        for (const DiskNode& node : win.nodes)
            expected.push_back(node.path);
    EXPECT_EQ(jsonPaths(wins.out), expected);
    EXPECT_EQ(expected.size(), 3u); // Downloads, node_modules, build
    const auto text = runProcess({cliPath(), "wins", "--from", saved});
    EXPECT_NE(text.out.find("Downloaded files may be your only copy."), std::string::npos) << text.out;
}

TEST(QueryCommands, AgeAndLsAgreeWithTheLibrary)
{
    TempTree tree;
    const std::int64_t now = currentTime();
    for (int i = 0; i < 12; ++i) {
        const std::string name = "f" + std::to_string(i) + ".bin";
        tree.file("d/" + name, 1000 * (i + 1));
        tree.setModified("d/" + name, now - std::int64_t(i) * 40 * 86400);
    }
    CancellationFlag flag;
    const ScanResult scan = DiskScanner::scan(tree.root(), flag);
    const std::string saved = tree.path("scan.json");
    ScanJson::writeFile(scan, saved);

    MonthCalendar calendar;
    ScanQuery logical;
    logical.measure = SizeMeasure::logical;
    const AgeSummary summary = AgeSummary::make(scan, tree.root(), logical, now, calendar);
    const auto older = summary.listing(AgeRange::year, std::nullopt);
    ASSERT_FALSE(older.ids.empty());
    const auto age = runProcess({cliPath(), "age", "--from", saved, "--range", "year", "--logical", "--json"});
    ASSERT_EQ(age.exitCode, 0) << age.err;
    EXPECT_EQ(jsonPaths(age.out), older.paths(scan));

    const auto ls = runProcess({cliPath(), "ls", "--from", saved, "--recursive", "--sort", "modified", "--asc", "--json"});
    ASSERT_EQ(ls.exitCode, 0) << ls.err;
    EXPECT_EQ(jsonPaths(ls.out), ScanQuery{}.sortedPaths(scan, tree.root(), true, ScanSortField::modified, SortOrder::ascending));
    EXPECT_EQ(runProcess({cliPath(), "age", "--from", saved, "--month", "March"}).exitCode, 2);
}
