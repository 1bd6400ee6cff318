#include <gtest/gtest.h>

#include <sstream>

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
