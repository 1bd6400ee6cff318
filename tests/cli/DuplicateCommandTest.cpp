#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <tuple>

#include "Cli.h"
#include "duplicates/DuplicateFinder.h"
#include "scan/DiskScanner.h"
#include "storage/ScanJson.h"
#include "support/Checks.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::cliPath;
using tarnbridge::test::randomBytes;
using tarnbridge::test::runProcess;
using tarnbridge::test::TempTree;

namespace {

// A tree with groups of several sizes and counts, near copies that differ at the very end, hard
// links, empty files and a name that is not UTF-8.
void fillTree(TempTree& tree) {
    std::mt19937 random(5);
    for (int g = 0; g < 12; ++g) {
        const std::size_t size = 500 + std::size_t(random() % 1'500'000);
        const std::string text = randomBytes(size, unsigned(100 + g));
        const int copies = 2 + int(random() % 4);
        for (int c = 0; c < copies; ++c)
            tree.fileWithText("d" + std::to_string(c / 2) + "/g" + std::to_string(g) +
                                  (c % 2 ? ".bin" : " copy.bin"),
                              text);
        std::string near = text;
        near.back() = char(near.back() ^ 1);
        tree.fileWithText("near/g" + std::to_string(g), near);
    }
    tree.hardLink("d0/g0 copy.bin", "links/g0");
    tree.fileWithText("links/solo", randomBytes(4096, 999));
    tree.hardLink("links/solo", "links/solo again");
    tree.file("empty/a", 0);
    tree.file("empty/b", 0);
    tree.fileWithText("odd/\xff name", randomBytes(3000, 77));
    tree.fileWithText("odd/plain", randomBytes(3000, 77));
}

// (reclaimable, id, paths) per group, groups of equal worth ordered by id: their order is open.
using GroupRow = std::tuple<std::int64_t, std::string, std::vector<std::string>>;
std::vector<GroupRow> canonical(std::vector<GroupRow> rows) {
    std::stable_sort(rows.begin(), rows.end(), [](const GroupRow& a, const GroupRow& b) {
        return std::get<0>(a) != std::get<0>(b) ? std::get<0>(a) > std::get<0>(b)
                                                : std::get<1>(a) < std::get<1>(b);
    });
    return rows;
}

std::vector<GroupRow> fromLibrary(const DuplicateReport& report) {
    std::vector<GroupRow> rows;
    for (const auto& g : report.groups) {
        std::vector<std::string> paths;
        for (const auto& f : g.files)
            paths.push_back(f.path);
        rows.emplace_back(g.reclaimable(), g.id, paths);
    }
    return canonical(rows);
}

// Reads our JSON lines back with the scan reader's own JSON parser, \udcXX escapes included.
std::vector<GroupRow> fromJsonLines(const std::string& text, std::string& totals) {
    std::vector<GroupRow> rows;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (line.find("\"kind\":\"totals\"") != std::string::npos) {
            totals = line;
            continue;
        }
        EXPECT_NE(line.find("\"kind\":\"group\""), std::string::npos) << line;
        const auto idAt = line.find("\"id\":\"") + 6;
        const std::string id = line.substr(idAt, 64);
        const auto worthAt = line.find("\"reclaimable\":") + 14;
        const std::int64_t worth = std::stoll(line.substr(worthAt));
        std::vector<std::string> paths;
        for (auto at = line.find("{\"path\":"); at != std::string::npos;
             at = line.find("{\"path\":", at + 1)) {
            const auto start = at + 8;
            // A path string ends at the first quote that no backslash escapes.
            auto end = start + 1;
            while (line[end] != '"' || line[end - 1] == '\\')
                ++end;
            paths.push_back(line.substr(start, end + 1 - start));
        }
        rows.emplace_back(worth, id, paths);
    }
    return canonical(rows);
}

} // namespace

TEST(DuplicateCommands, PrintTheGroupsTheLibraryFinds) {
    TempTree tree;
    fillTree(tree);
    CancellationFlag flag;
    const ScanResult scan = DiskScanner::scan(tree.root(), flag);
    const std::string saved = tree.path("scan.json");
    ScanJson::writeFile(scan, saved);

    struct Case {
        std::vector<std::string> options;
        std::int64_t minimum;
        std::optional<std::string> scope;
    };
    const std::vector<Case> cases{
        {{"--min-size", "0"}, 0, {}},
        {{}, 1'000'000, {}},
        {{"--min-size", "200kB"}, 200'000, {}},
        {{"--min-size", "0", "--scope", tree.path("d1")}, 0, tree.path("d1")},
    };
    for (const auto& c : cases) {
        const DuplicateReport expected = DuplicateFinder().find(scan, c.minimum, c.scope, flag);
        ASSERT_GE(expected.groups.size(), c.minimum ? 1u : c.scope ? 2u : 10u);
        // Once from the saved scan, once scanning the folder itself.
        for (const bool fresh : {false, true}) {
            std::vector<std::string> argv{cliPath(), "duplicates"};
            if (fresh)
                argv.push_back(tree.root());
            else
                argv.insert(argv.end(), {"--from", saved});
            argv.push_back("--json");
            argv.insert(argv.end(), c.options.begin(), c.options.end());
            const auto result = runProcess(argv);
            ASSERT_EQ(result.exitCode, 0) << result.err;
            std::string totals;
            // Paths in the JSON lines are the encoded strings; encode the library's alike.
            std::vector<GroupRow> want = fromLibrary(expected);
            for (auto& [worth, id, paths] : want)
                for (auto& p : paths) {
                    std::string encoded;
                    ScanJson::appendString(encoded, p);
                    p = encoded;
                }
            EXPECT_EQ(fromJsonLines(result.out, totals), want)
                << c.options.size() << " fresh " << fresh;
            std::int64_t worth = 0;
            for (const auto& g : expected.groups)
                worth += g.reclaimable();
            EXPECT_NE(totals.find("\"groups\":" + std::to_string(expected.groups.size()) +
                                  ",\"reclaimable\":" + std::to_string(worth) +
                                  ",\"checked\":" + std::to_string(expected.checked) +
                                  ",\"skipped\":0,\"issues\":[]"),
                      std::string::npos)
                << totals;
        }
    }

    // The text form: every path of every group under its heading, extras tagged, and the totals.
    const DuplicateReport all = DuplicateFinder().find(scan, 0, {}, flag);
    const auto text = runProcess({cliPath(), "duplicates", "--from", saved, "--min-size", "0"});
    ASSERT_EQ(text.exitCode, 0) << text.err;
    EXPECT_NE(text.out.find("Duplicate groups"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("No comparison issues"), std::string::npos) << text.out;
    std::size_t at = 0;
    for (const auto& g : all.groups) {
        at = text.out.find(std::to_string(g.files.size()) + " identical files", at);
        ASSERT_NE(at, std::string::npos) << g.files.front().path;
        for (std::size_t i = 0; i < g.files.size(); ++i) {
            const std::string path = g.files[i].path.find('\xff') == std::string::npos
                                         ? g.files[i].path
                                         : tree.path("odd/\xef\xbf\xbd name"); // shown as U+FFFD
            const auto row = text.out.find(path, at);
            ASSERT_NE(row, std::string::npos) << path;
            const auto lineStart = text.out.rfind('\n', row) + 1;
            EXPECT_EQ(text.out.compare(lineStart, 4 + (i ? 8 : 2), i ? "  EXTRA COPY" : "  KEEP"),
                      0)
                << text.out.substr(lineStart, row - lineStart);
        }
    }
}

TEST(DuplicateCommands, RefusalsAndSkipsAreSaidInTheProductsWords) {
    TempTree tree;
    const std::string text = randomBytes(2'000'000, 3);
    tree.fileWithText("a/one", text);
    tree.fileWithText("a/two", text);
    tree.fileWithText("a/three", text);
    CancellationFlag flag;
    const ScanResult scan = DiskScanner::scan(tree.root(), flag);
    const std::string saved = tree.path("scan.json");
    ScanJson::writeFile(scan, saved);
    tree.chmod("a/two", 0755); // changed after the scan

    struct Case {
        std::vector<std::string> args;
        int exitCode;
        std::string inOut, inErr;
    };
    const std::vector<Case> cases{
        {{"--from", saved}, 0, "File changed or is stored in the cloud: two", ""},
        {{"--from", saved}, 0, "1 comparison issue", ""},
        {{"--from", saved}, 0, "Comparison details (1)", ""},
        {{"--from", saved, "--scope", tree.path("b")},
         1,
         "",
         "This folder is not in the current scan."},
        {{"--from", saved, "--min-size", "lots"}, 1, "", "\"lots\" is not a size."},
        {{"--from", saved, "--min-size", "3MB"}, 0, "No duplicates found", ""},
        {{}, 2, "", "\"duplicates\" needs PATH, or --from FILE."},
    };
    for (const auto& c : cases) {
        std::vector<std::string> argv{cliPath(), "duplicates"};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        const auto r = runProcess(argv);
        EXPECT_EQ(r.exitCode, c.exitCode) << c.inOut << c.inErr << r.err;
        EXPECT_NE(r.out.find(c.inOut), std::string::npos) << r.out;
        EXPECT_NE(r.err.find(c.inErr), std::string::npos) << r.err;
    }
}

TEST(DuplicateCommands, ProgressOnATerminalUsesThePhaseTexts) {
    TempTree tree;
    const std::string text = randomBytes(1'500'000, 4);
    tree.fileWithText("x", text);
    tree.fileWithText("y", text);
    CancellationFlag flag;
    const std::string saved = tree.path("scan.json");
    ScanJson::writeFile(DiskScanner::scan(tree.root(), flag), saved);
    for (const bool terminal : {true, false}) {
        std::ostringstream out, err;
        ASSERT_EQ(cli::run({"duplicates", "--from", saved}, out, err, flag, terminal), cli::exitOk)
            << err.str();
        if (!terminal) {
            EXPECT_EQ(err.str(), "");
            continue;
        }
        for (const char* phase :
             {"Grouping files by size…", "Checking samples · 0 of 2 candidates",
              "Reading full contents · x · 0 bytes / 1.5 MB",
              "Verifying identical copies · y · 0 bytes / 1.5 MB", "Comparison complete"})
            EXPECT_NE(err.str().find(phase), std::string::npos) << phase << "\n" << err.str();
        EXPECT_NE(out.str().find("2 identical files · 1.5 MB each"), std::string::npos)
            << out.str();
    }

    CancellationFlag stopped;
    stopped.cancel();
    std::ostringstream out, err;
    EXPECT_EQ(cli::run({"duplicates", "--from", saved}, out, err, stopped, false),
              cli::exitCancelled);
    EXPECT_EQ(out.str(), "");
}
