#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "model/TextEncoding.h"
#include "storage/GzipFile.h"
#include "storage/ScanFile.h"
#include "storage/ScanJson.h"
#include "support/Checks.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::cliPath;
using tarnbridge::test::runProcess;
using tarnbridge::test::TempTree;

namespace {

bool installed(const std::string& program)
{
    return runProcess({"sh", "-c", "command -v " + program}).exitCode == 0;
}

void makeTree(TempTree& tree)
{
    tree.fileWithText("a/f1", "hello\n");
    tree.hardLink("a/f1", "c/link1");
    tree.hardLink("a/f1", "a/b/link2");
    tree.file("a/b/data", 5000);
    tree.sparseFile("sparse", 10'000'000);
    tree.file("bad\xffname", 12);
    tree.file("dir\xfe/in", 2);
    tree.file("quo\"te\\back\ttab", 7);
    tree.symlink("a/f1", "sym");
    tree.folder("empty");
}

std::map<std::string, std::tuple<std::int64_t, std::int64_t, std::uint32_t>> everyPath(const ScanResult& scan)
{
    std::map<std::string, std::tuple<std::int64_t, std::int64_t, std::uint32_t>> out;
    for (NodeId id = 0; id < scan.nodeCount(); ++id) {
        const NodeRecord& r = scan.data()[id];
        out[scan.data().path(id)] = {r.logicalSize, r.allocatedSize, r.fileCount};
    }
    return out;
}

// Our scan of a tree saved both ways, as `scan --json` and `scan --ncdu-json` write them.
struct Saved {
    std::string ours, exported;
};
Saved scanAndExport(const TempTree& tree, const TempTree& out, const std::string& exportName)
{
    Saved saved{out.path("ours.json"), out.path(exportName)};
    const auto ran = runProcess({cliPath(), "scan", tree.root(), "--quiet", "--top", "0", "--json", saved.ours,
                                 "--ncdu-json", saved.exported});
    EXPECT_EQ(ran.exitCode, 0) << ran.err;
    return saved;
}

} // namespace

TEST(NcduExportCommand, NcduReadsOurExportAndGivesTheSameTotalsBack)
{
    if (!installed("ncdu"))
        GTEST_SKIP() << "ncdu is not installed (scripts/setup installs it)";
    TempTree tree, out;
    makeTree(tree);
    for (const std::string name : {"export.json", "export.json.gz"}) {
        const Saved saved = scanAndExport(tree, out, name);
        const bool gzip = name.ends_with(".gz");
        EXPECT_EQ(isGzip(test::readText(saved.exported)), gzip) << name;
        // ncdu 1.x reads a plain file: a compressed one goes in through gzip, as people do.
        const std::string back = out.path("back.json");
        const auto ran = gzip ? runProcess({"sh", "-c", "gzip -dc \"$0\" | ncdu --ignore-config -f - -o \"$1\"",
                                            saved.exported, back})
                              : runProcess({"ncdu", "--ignore-config", "-f", saved.exported, "-o", back});
        ASSERT_EQ(ran.exitCode, 0) << name << ": " << ran.err;
        EXPECT_EQ(trimmed(ran.err), "") << name; // ncdu ends its progress with a newline

        const ScanResult ours = ScanJson::readFile(saved.ours);
        const ScanResult again = ScanFile::open(back);
        EXPECT_EQ(again.root()->logicalSize, ours.root()->logicalSize) << name;
        EXPECT_EQ(again.root()->allocatedSize, ours.root()->allocatedSize) << name;
        EXPECT_EQ(again.root()->fileCount, ours.root()->fileCount) << name;
        EXPECT_EQ(again.root()->folderCount, ours.root()->folderCount) << name;
        // Through ncdu and back, every name byte for byte and every size.
        EXPECT_EQ(everyPath(again), everyPath(ours)) << name;
    }
}

TEST(NcduExportCommand, GduReadsOurExport)
{
    if (!installed("gdu"))
        GTEST_SKIP() << "gdu is not installed (scripts/setup installs it)";
    TempTree tree, out;
    makeTree(tree);
    const Saved saved = scanAndExport(tree, out, "export.json");
    const auto ran = runProcess({"gdu", "-f", saved.exported, "-n", "-p", "-a", "--no-prefix"});
    ASSERT_EQ(ran.exitCode, 0) << ran.err;
    EXPECT_EQ(ran.err, "");
    // gdu lists the root's entries with their apparent sizes; a file's is its logical size
    // (gdu gives folders sizes of its own).
    const ScanResult ours = ScanJson::readFile(saved.ours);
    const NodeRecord& root = ours.data()[ScanData::rootId];
    ASSERT_GT(root.childCount, 5u);
    for (NodeId id = root.firstChild; id < root.firstChild + root.childCount; ++id) {
        const std::string name = displayText(ours.data().name(id)).toStdString();
        bool listed = false;
        std::istringstream lines(ran.out);
        for (std::string line; std::getline(lines, line);) {
            if (!line.ends_with(" " + name) && !line.ends_with(" /" + name))
                continue;
            listed = true;
            if (!ours.data()[id].isDirectory()) {
                std::istringstream fields(line.substr(line.find_first_not_of(" @")));
                std::int64_t size = -1;
                fields >> size;
                EXPECT_EQ(size, ours.data()[id].logicalSize) << line;
            }
        }
        EXPECT_TRUE(listed) << name << " is missing from:\n" << ran.out;
    }
}

TEST(NcduExportCommand, EveryFromAcceptsAnExportOrOurScanFile)
{
    if (!installed("ncdu"))
        GTEST_SKIP() << "ncdu is not installed (scripts/setup installs it)";
    TempTree tree, out;
    makeTree(tree);
    tree.file("a/big.iso", 3'000'000);
    const std::string ncdu = out.path("from-ncdu.json");
    ASSERT_EQ(runProcess({"ncdu", "--ignore-config", "-x", "-o", ncdu, tree.root()}).exitCode, 0);
    const Saved saved = scanAndExport(tree, out, "export.json.gz");
    const auto cut = [](const std::string& text) { return text.substr(0, text.find("Scan time")); };
    const struct {
        std::vector<std::string> args;
    } commands[] = {
        {{"show"}},
        {{"top", "--from"}},
        {{"types", "--from"}},
    };
    for (const auto& c : commands) {
        std::vector<std::string> args = {cliPath()};
        args.insert(args.end(), c.args.begin(), c.args.end());
        auto run = [&](const std::string& file) {
            std::vector<std::string> line = args;
            line.push_back(file);
            if (line[1] != "show")
                line.push_back(tree.root());
            return runProcess(line);
        };
        const auto fromOurs = run(saved.ours);
        ASSERT_EQ(fromOurs.exitCode, 0) << c.args[0] << ": " << fromOurs.err;
        for (const std::string& file : {ncdu, saved.exported}) {
            const auto result = run(file);
            ASSERT_EQ(result.exitCode, 0) << c.args[0] << " " << file << ": " << result.err;
            EXPECT_EQ(cut(result.out), cut(fromOurs.out)) << c.args[0] << " " << file;
        }
    }
    // Through a pipe, as "ssh host ncdu -o- / | tarnbridge-cli show /dev/stdin" gives it.
    const auto fromOurs = runProcess({cliPath(), "show", saved.ours});
    for (const std::string& file : {ncdu, saved.exported}) {
        const auto piped = runProcess({cliPath(), "show", "/dev/stdin"}, test::readText(file));
        ASSERT_EQ(piped.exitCode, 0) << file << ": " << piped.err;
        EXPECT_EQ(cut(piped.out), cut(fromOurs.out)) << file;
    }
    // Neither kind of file: a clear refusal naming both.
    const std::string other = out.fileWithText("notes.txt", "shopping list\n");
    const auto refused = runProcess({cliPath(), "show", other});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("neither a Tarnbridge scan file nor an ncdu or gdu export"), std::string::npos)
        << refused.err;
}
