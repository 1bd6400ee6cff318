#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "model/Errors.h"
#include "scan/DiskScanner.h"
#include "storage/ScanJson.h"
#include "support/FakeScan.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::TempTree;

namespace {

ScanResult scanOf(const std::string& root)
{
    CancellationFlag flag;
    return DiskScanner::scan(root, flag);
}

void expectSameScan(const ScanResult& a, const ScanResult& b)
{
    EXPECT_EQ(a.id(), b.id());
    EXPECT_EQ(a.rootPath(), b.rootPath());
    EXPECT_DOUBLE_EQ(a.scannedAt(), b.scannedAt());
    EXPECT_DOUBLE_EQ(a.duration(), b.duration());
    EXPECT_EQ(a.issues(), b.issues());
    EXPECT_EQ(a.skippedCount(), b.skippedCount());
    ASSERT_EQ(a.nodeCount(), b.nodeCount());
    for (NodeId id = 0; id < a.nodeCount(); ++id) {
        const DiskNode node = a->node(id);
        const auto other = b.node(node.path);
        ASSERT_TRUE(other.has_value()) << node.path;
        EXPECT_EQ(node, *other) << node.path;
    }
}

std::string readText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

} // namespace

TEST(ScanJson, RoundTripsARealTreeByteForByte)
{
    TempTree tree;
    tree.file("plain/file.txt", 1234);
    tree.hardLink("plain/file.txt", "plain/again");
    tree.symlink("plain", "link to plain");
    tree.folder("empty");
    tree.file("quotes \"and\" back\\slash", 3);
    tree.file("tab\there\nnewline\x01", 4);
    tree.file("emoji \xF0\x9F\x93\x81 caf\xC3\xA9", 5);
    tree.file("latin1 caf\xE9", 6);          // not UTF-8
    tree.file("bytes/\xFF\xFE\x80", 7);       // not UTF-8 either, in a folder name's child
    tree.file("\xED\xA0\x80surrogate", 8);   // UTF-8-encoded surrogate: invalid too
    tree.chmod("empty", 0700);
    const ScanResult scan = scanOf(tree.root());
    ASSERT_GT(scan.nodeCount(), 10u);

    const std::string json = ScanJson::toString(scan);
    EXPECT_EQ(json.find('\n'), std::string::npos) << "no pretty printing";
    EXPECT_NE(json.find("\\udce9"), std::string::npos);
    const ScanResult back = ScanJson::parse(json);
    expectSameScan(scan, back);
    EXPECT_NE(back.find(tree.path("latin1 caf\xE9")), kNoNode);
    EXPECT_NE(back.find(tree.path("bytes/\xFF\xFE\x80")), kNoNode);
    // The id is written upper case, the root has no parent key at all.
    EXPECT_NE(json.find(scan.id().toString(QUuid::WithoutBraces).toUpper().toStdString()), std::string::npos);
    const std::string rootKey = "\"path\":\"" + tree.root() + "\",\"isDirectory\"";
    EXPECT_NE(json.find(rootKey), std::string::npos);

    // An independent reader accepts the file and sees the same number of nodes.
    const std::string file = tree.path("scan.json");
    ScanJson::writeFile(scan, file);
    const auto python = test::runProcess(
        {"python3", "-c", "import json,sys; d=json.load(open(sys.argv[1])); print(len(d['nodes']))", file});
    ASSERT_EQ(python.exitCode, 0) << python.err;
    EXPECT_EQ(std::stoul(python.out), scan.nodeCount());
    expectSameScan(scan, ScanJson::readFile(file));
}

TEST(ScanJson, ReadsKeysInAnyOrderAndIgnoresUnknownOnes)
{
    const std::string identity =
        R"({"linkCount":1,"mode":33188,"changedNanos":0,"changedSeconds":5,"modifiedNanos":0,)"
        R"("modifiedSeconds":978307300,"size":10,"inode":18446744073709551615,"device":-3,"extra":[1,2]})";
    const std::string json =
        R"({"skippedCount":2,"issues":[{"message":"Permission denied","path":"/r/x"}],)"
        R"("nodes":{"/r/a":{"identity":)" + identity +
        R"(,"accessed":100,"modified":100,"created":100,"children":[],"folderCount":0,"fileCount":1,)"
        R"("compressedSavings":0,"ownAllocatedSize":4096,"ownLogicalSize":10,"allocatedSize":4096,)"
        R"("logicalSize":10,"isCloudPlaceholder":false,"isSymbolicLink":false,"isDirectory":false,)"
        R"("parent":"/r","path":"/r/a","comment":"ignored"},)"
        R"("/r":{"path":"/r","parent":null,"isDirectory":true,"isSymbolicLink":false,"isCloudPlaceholder":false,)"
        R"("logicalSize":10,"allocatedSize":4096,"ownLogicalSize":0,"ownAllocatedSize":0,"compressedSavings":0,)"
        R"("fileCount":1,"folderCount":0,"children":["/r/a"],"created":0,"modified":0,"accessed":0,"identity":)" +
        identity + R"(}},"duration":1.5,"scannedAt":0.25,"rootPath":"/r","id":"6f1c9b9e-0b0a-4c1e-9d7e-2f9a3c4b5d6e"})";
    const ScanResult scan = ScanJson::parse(json);
    EXPECT_EQ(scan.rootPath(), "/r");
    EXPECT_EQ(scan.skippedCount(), 2);
    ASSERT_EQ(scan.issues().size(), 1u);
    EXPECT_EQ(scan.issues()[0].message, "Permission denied");
    EXPECT_DOUBLE_EQ(scan.scannedAt(), 978307200.25);
    const DiskNode a = *scan.node("/r/a");
    EXPECT_EQ(a.identity.inode, 18446744073709551615ull);
    EXPECT_EQ(a.identity.device, -3);
    EXPECT_EQ(a.accessed, 978307300);
    EXPECT_EQ(a.modified, 978307300);
    EXPECT_TRUE(a.isRegularFile());
    EXPECT_FALSE(scan.root()->parent.has_value());
    EXPECT_EQ(scan.id().toString(QUuid::WithoutBraces).toStdString(), "6f1c9b9e-0b0a-4c1e-9d7e-2f9a3c4b5d6e");
}

TEST(ScanJson, DamageIsReportedByTheKeyItConcerns)
{
    const ScanResult good = test::fakeScan("/r", {{"a/b", 10}, {"c", 20}});
    const std::string json = ScanJson::toString(good);
    ASSERT_NO_THROW(ScanJson::parse(json));
    auto replaced = [&](const std::string& from, const std::string& to) {
        std::string out = json;
        const auto at = out.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return out.replace(at, from.size(), to);
    };
    struct Case {
        std::string what;
        std::string text;
        std::string mentions;
    };
    const std::vector<Case> cases{
        {"missing node key", replaced("\"fileCount\":1,", ""), "has no \"fileCount\""},
        {"missing top key", replaced("\"skippedCount\":0", "\"skipped\":0"), "\"skippedCount\""},
        {"wrong type", replaced("\"logicalSize\":20", "\"logicalSize\":\"20\""), "\"logicalSize\" of the node \"/r/c\""},
        {"identity not an object", replaced("\"identity\":{\"device\":1,\"inode\":103",
                                            "\"identity\":7,\"x\":{\"device\":1,\"inode\":103"),
         "\"identity\""},
        {"child not a node", replaced("\"children\":[\"/r/a/b\"]", "\"children\":[\"/r/a/zz\"]"), "\"/r/a/zz\""},
        {"parent not a node", replaced("\"parent\":\"/r/a\"", "\"parent\":\"/r/q\""), "\"/r/q\""},
        {"root missing", replaced("\"rootPath\":\"/r\"", "\"rootPath\":\"/s\""), "\"/s\""},
        {"garbage", "this is not json", "not a Tarnbridge scan"},
        {"empty", "", "not a Tarnbridge scan"},
        {"an array", "[1,2,3]", "not a Tarnbridge scan"},
        {"bad escape", replaced("\"path\":\"/r/c\"", "\"path\":\"/r/\\ud800c\""), "escape"},
    };
    for (const auto& c : cases) {
        try {
            ScanJson::parse(c.text);
            ADD_FAILURE() << c.what << ": accepted";
        } catch (const TarnbridgeError& e) {
            EXPECT_NE(std::string(e.what()).find(c.mentions), std::string::npos) << c.what << ": " << e.what();
        }
    }
}

TEST(ScanJson, WriteFileIsAtomicAndLeavesNothingBehindOnFailure)
{
    TempTree tree;
    const ScanResult scan = test::fakeScan("/r", {{"a", 1}});
    const std::string file = tree.path("out/scan.json");
    tree.folder("out");
    ScanJson::writeFile(scan, file);
    const std::string first = readText(file);
    ScanJson::writeFile(test::fakeScan("/r", {{"b", 2}}), file);
    EXPECT_NE(readText(file), first);
    std::size_t entries = 0;
    for (const auto& entry : std::filesystem::directory_iterator(tree.path("out"))) {
        (void)entry;
        ++entries;
    }
    EXPECT_EQ(entries, 1u) << "no temporary left beside the file";

    EXPECT_THROW(ScanJson::writeFile(scan, tree.path("missing/scan.json")), std::system_error);
    const std::string before = readText(file);
    tree.chmod("out", 0500);
    {
        test::WithoutAdminRights user;
        try {
            ScanJson::writeFile(scan, file);
            ADD_FAILURE() << "wrote into a read-only folder";
        } catch (const std::system_error& e) {
            EXPECT_EQ(describeError(e), "Permission denied");
        }
    }
    EXPECT_EQ(readText(file), before);
    EXPECT_THROW(ScanJson::writeFile(scan, tree.path("out")), TarnbridgeError);
    EXPECT_NO_THROW(ScanJson::writeFile(scan, "/dev/null"));
    EXPECT_THROW(ScanJson::readFile(tree.path("nothing.json")), std::system_error);
}
