#include <gtest/gtest.h>

#include <map>
#include <set>

#include "model/TextEncoding.h"
#include "storage/NcduJson.h"
#include "storage/ScanFile.h"
#include "support/Checks.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::runProcess;
using tarnbridge::test::TempTree;

namespace {

bool installed(const std::string& program)
{
    return runProcess({"sh", "-c", "command -v " + program}).exitCode == 0;
}

// The program's command line, run so that an unreadable folder stays unreadable for it too:
// root runs it without the capabilities that bypass file permissions.
std::vector<std::string> withoutAdminRights(std::vector<std::string> argv)
{
    if (!test::runningAsRoot())
        return argv;
    std::vector<std::string> out = {"setpriv", "--bounding-set", "-dac_override,-dac_read_search,-fowner", "--"};
    out.insert(out.end(), argv.begin(), argv.end());
    return out;
}

// Hard links within a folder and across folders, a sparse file, an unreadable folder, names
// that are not UTF-8, a symbolic link and an empty folder.
void makeTree(TempTree& tree)
{
    tree.fileWithText("a/f1", "hello\n");
    tree.hardLink("a/f1", "c/link1");
    tree.hardLink("a/f1", "a/b/link2");
    tree.file("links/x", 9000);
    tree.hardLink("links/x", "links/y");
    tree.file("a/b/data", 5000);
    tree.sparseFile("sparse", 10'000'000);
    tree.file("locked/secret", 300);
    tree.chmod("locked", 0);
    tree.file("bad\xffname", 12);
    tree.file("dir\xfe/in", 2);
    tree.symlink("a/f1", "sym");
    tree.folder("empty");
    // A name in a subfolder and one beside that subfolder: the export lists the subfolder's
    // contents first when the file system lists the subfolder first, a scan the other name.
    // Names differ from pair to pair, so the file system's order differs too.
    for (int i = 0; i < 8; ++i) {
        const std::string n = std::to_string(i);
        tree.file("pair" + n + "/sub" + n + "/one", 3000);
        tree.hardLink("pair" + n + "/sub" + n + "/one", "pair" + n + "/two" + n);
    }
}

struct Facts {
    std::int64_t logical, allocated;
    std::uint32_t files;
    bool operator==(const Facts&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Facts& f)
{
    return out << "{" << f.logical << ", " << f.allocated << ", " << f.files << "}";
}

// Every path below the root, with its sizes, spelled through `spell`.
template <class Spell>
std::map<std::string, Facts> everyPath(const ScanResult& scan, Spell spell)
{
    std::map<std::string, Facts> out;
    for (NodeId id = 0; id < scan.nodeCount(); ++id) {
        const NodeRecord& r = scan.data()[id];
        out[spell(scan.data().path(id))] = {r.logicalSize, r.allocatedSize, r.fileCount};
    }
    return out;
}
std::string asIs(const std::string& path) { return path; }
// gdu writes each byte that is not UTF-8 as U+FFFD.
std::string asGduSpellsIt(const std::string& path) { return displayText(path).toStdString(); }

} // namespace

TEST(NcduRealPrograms, AnNcduExportOpensAsOurScanOfTheTree)
{
    if (!installed("ncdu"))
        GTEST_SKIP() << "ncdu is not installed (scripts/setup installs it)";
    TempTree tree;
    makeTree(tree);
    TempTree elsewhere;
    const std::string file = elsewhere.path("ncdu.json");
    const auto ran = runProcess(withoutAdminRights({"ncdu", "--ignore-config", "-x", "-o", file, tree.root()}));
    ASSERT_EQ(ran.exitCode, 0) << ran.err;
    ScanResult ours;
    {
        test::WithoutAdminRights plain;
        ours = test::scanOf(tree);
    }
    const ScanResult theirs = ScanFile::open(file);

    EXPECT_EQ(theirs.rootPath(), ours.rootPath());
    EXPECT_EQ(theirs.root()->logicalSize, ours.root()->logicalSize);
    EXPECT_EQ(theirs.root()->allocatedSize, ours.root()->allocatedSize);
    EXPECT_EQ(theirs.root()->fileCount, ours.root()->fileCount);
    EXPECT_EQ(theirs.root()->folderCount, ours.root()->folderCount);
    // ncdu lists each folder in the order the file system gives, as our scan reads it: even the
    // name of a hard link that carries its blocks is the same.
    EXPECT_EQ(everyPath(theirs, asIs), everyPath(ours, asIs));
    ASSERT_EQ(theirs.issues().size(), 1u);
    EXPECT_EQ(theirs.issues()[0].path, tree.path("locked"));
    EXPECT_EQ(theirs.skippedCount(), ours.skippedCount());
}

TEST(NcduRealPrograms, AGduExportOpensAsOurScanOfTheTree)
{
    if (!installed("gdu"))
        GTEST_SKIP() << "gdu is not installed (scripts/setup installs it)";
    TempTree tree;
    makeTree(tree);
    TempTree elsewhere;
    const std::string file = elsewhere.path("gdu.json");
    const auto ran = runProcess(withoutAdminRights({"gdu", "-n", "-p", "-x", "-o", file, tree.root()}));
    ASSERT_EQ(ran.exitCode, 0) << ran.err;
    ScanResult ours;
    {
        test::WithoutAdminRights plain;
        ours = test::scanOf(tree);
    }
    const ScanResult theirs = ScanFile::open(file);

    EXPECT_EQ(theirs.root()->logicalSize, ours.root()->logicalSize);
    EXPECT_EQ(theirs.root()->allocatedSize, ours.root()->allocatedSize);
    EXPECT_EQ(theirs.root()->fileCount, ours.root()->fileCount);
    EXPECT_EQ(theirs.root()->folderCount, ours.root()->folderCount);
    // gdu walks folders in parallel and picks its own name of a hard link to carry the blocks:
    // those names and their folders are compared by logical size; every other path in full.
    std::set<std::string> linked = {"/a", "/a/f1", "/c", "/c/link1", "/a/b", "/a/b/link2", "/links/x", "/links/y", ""};
    for (int i = 0; i < 8; ++i) {
        const std::string n = std::to_string(i), pair = "/pair" + n;
        linked.insert({pair, pair + "/sub" + n, pair + "/sub" + n + "/one", pair + "/two" + n});
    }
    auto theirPaths = everyPath(theirs, asIs);
    const auto ourPaths = everyPath(ours, asGduSpellsIt);
    ASSERT_EQ(theirPaths.size(), ourPaths.size());
    for (const auto& [path, facts] : ourPaths) {
        const auto found = theirPaths.find(path);
        ASSERT_NE(found, theirPaths.end()) << path;
        const std::string relative = path.substr(tree.root().size());
        if (linked.contains(relative)) {
            EXPECT_EQ(found->second.logical, facts.logical) << path;
            EXPECT_EQ(found->second.files, facts.files) << path;
        } else {
            EXPECT_EQ(found->second, facts) << path;
        }
    }
    EXPECT_EQ(theirs.data()[theirs.find(tree.path("links"))].allocatedSize,
              ours.data()[ours.find(tree.path("links"))].allocatedSize);
}
