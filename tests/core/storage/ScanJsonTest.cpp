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
            EXPECT_EQ(describeError(e), "Could not save " + file + ": Permission denied.");
        }
    }
    EXPECT_EQ(readText(file), before);
    EXPECT_THROW(ScanJson::writeFile(scan, tree.path("out")), TarnbridgeError);
    EXPECT_NO_THROW(ScanJson::writeFile(scan, "/dev/null"));
    EXPECT_THROW(ScanJson::readFile(tree.path("nothing.json")), std::system_error);
}

namespace {

// A hand-written scan file: `nodes` holds the text of each node, keyed by its (escaped) path.
struct HandNode {
    std::string key;    // escaped as it stands in the file
    std::string parent; // escaped; empty for none
    std::vector<std::string> children;
    bool folder = false;
};

std::string handWritten(const std::string& root, const std::vector<HandNode>& nodes)
{
    const std::string identity =
        R"({"device":1,"inode":2,"size":3,"modifiedSeconds":4,"modifiedNanos":0,"changedSeconds":4,)"
        R"("changedNanos":0,"mode":33188,"linkCount":1})";
    std::string json = R"({"id":"6F1C9B9E-0B0A-4C1E-9D7E-2F9A3C4B5D6E","rootPath":")" + root +
                       R"(","scannedAt":1,"duration":0,"issues":[],"skippedCount":0,"nodes":{)";
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const HandNode& n = nodes[i];
        json += (i ? ",\"" : "\"") + n.key + "\":{\"path\":\"" + n.key + "\"";
        if (!n.parent.empty())
            json += ",\"parent\":\"" + n.parent + "\"";
        json += std::string(",\"isDirectory\":") + (n.folder ? "true" : "false");
        json += R"(,"isSymbolicLink":false,"isCloudPlaceholder":false,"logicalSize":0,"allocatedSize":0,)"
                R"("ownLogicalSize":0,"ownAllocatedSize":0,"compressedSavings":0,"fileCount":0,"folderCount":0,)"
                R"("created":0,"modified":0,"accessed":0,"identity":)" + identity + ",\"children\":[";
        for (std::size_t c = 0; c < n.children.size(); ++c)
            json += (c ? ",\"" : "\"") + n.children[c] + "\"";
        json += "]}";
    }
    return json + "}}";
}

std::string failureOf(const std::string& json)
{
    try {
        ScanJson::parse(json);
    } catch (const TarnbridgeError& e) {
        return e.what();
    }
    return "(accepted)";
}

} // namespace

TEST(ScanJson, EscapesEveryByteThatIsNotPlainUtf8)
{
    const std::vector<std::pair<std::string, std::string>> cases{
        {"plain name.txt", R"("plain name.txt")"},
        {"caf\xE9", R"("caf\udce9")"},
        {"\xFF\xFE", R"("\udcff\udcfe")"},
        {"\xF0\x9F\x93", R"("\udcf0\udc9f\udc93")"},        // a sequence cut short
        {"\xED\xA0\x80", R"("\udced\udca0\udc80")"},        // an encoded surrogate
        {"\xC0\xAF", R"("\udcc0\udcaf")"},                  // an overlong slash
        {"\xF0\x9F\x93\x81 caf\xC3\xA9", "\"\xF0\x9F\x93\x81 caf\xC3\xA9\""},
        {"\x01\x1F\t\n\r\b\f", R"("\u0001\u001f\t\n\r\b\f")"},
        {"say \"hi\" \\ there", R"("say \"hi\" \\ there")"},
        {"", R"("")"},
    };
    for (const auto& [bytes, expected] : cases) {
        std::string out;
        ScanJson::appendString(out, bytes);
        EXPECT_EQ(out, expected);
    }
}

TEST(ScanJson, ReadsEveryEscapeBackToItsBytes)
{
    const std::vector<std::pair<std::string, std::string>> cases{
        {R"(caf\udce9)", "caf\xE9"},
        {R"(caf\uDCE9)", "caf\xE9"},
        {R"(\udcff\udc80)", "\xFF\x80"},
        {R"(\ud83d\udcc1 folder)", "\xF0\x9F\x93\x81 folder"},
        {R"(\u00e9t\u00C9)", "\xC3\xA9t\xC3\x89"},
        {R"(\u20ac)", "\xE2\x82\xAC"},
        {R"(tab\there\u0001)", "tab\there\x01"},
        {R"(q\"x\\y)", "q\"x\\y"},
    };
    for (const auto& [escaped, bytes] : cases) {
        const std::string child = "/r/" + escaped;
        const ScanResult scan = ScanJson::parse(
            handWritten("/r", {{"/r", "", {child}, true}, {child, "/r", {}, false}}));
        ASSERT_EQ(scan.nodeCount(), 2u) << escaped;
        EXPECT_EQ(scan->name(1), bytes) << escaped;
        EXPECT_EQ(scan.find("/r/" + bytes), 1u) << escaped;
    }
    // "\/" is an escaped slash: fine within paths, a separator all the same.
    const ScanResult slashes = ScanJson::parse(
        handWritten(R"(\/r)", {{R"(\/r)", "", {R"(\/r\/x)"}, true}, {R"(\/r\/x)", R"(\/r)", {}, false}}));
    EXPECT_EQ(slashes.rootPath(), "/r");
    EXPECT_EQ(slashes.find("/r/x"), 1u);

    for (const std::string escaped : {R"(\udc41)", R"(\ud83d)", R"(\ud83dx)", R"(\ud83d\u0041)", R"(\x41)",
                                      R"(\u12g4)", R"(\udbff\udbff)"}) {
        const std::string child = "/r/" + escaped;
        EXPECT_NE(failureOf(handWritten("/r", {{"/r", "", {child}, true}, {child, "/r", {}, false}}))
                      .find("invalid escape"),
                  std::string::npos)
            << escaped;
    }
}

TEST(ScanJson, KeepsChildrenInTheOrderTheFileListsThem)
{
    const ScanResult scan = ScanJson::parse(handWritten(
        "/", {{"/z", "/", {"/z/2", "/z/1"}, true},
              {"/", "", {"/z", "/a"}, true},
              {"/z/1", "/z", {}, false},
              {"/a", "/", {}, false},
              {"/z/2", "/z", {}, false}}));
    ASSERT_EQ(scan.nodeCount(), 5u);
    EXPECT_EQ(scan.root()->children, (std::vector<std::string>{"/z", "/a"}));
    EXPECT_EQ(scan.node("/z")->children, (std::vector<std::string>{"/z/2", "/z/1"}));
    EXPECT_EQ(scan.node("/z/1")->parent, "/z");
    // Depth first: a folder's children are one range, its subfolders' children follow.
    EXPECT_EQ(scan.find("/z"), 1u);
    EXPECT_EQ(scan.find("/a"), 2u);
    EXPECT_EQ(scan.find("/z/2"), 3u);
    // And the root "/" writes children without a doubled slash, then reads back the same.
    const std::string text = ScanJson::toString(scan);
    EXPECT_EQ(text.find("//"), std::string::npos);
    expectSameScan(scan, ScanJson::parse(text));
}

TEST(ScanJson, BrokenTreesAreReportedByThePathsInvolved)
{
    struct Case {
        std::string what;
        std::vector<HandNode> nodes;
        std::vector<std::string> mentions;
    };
    const std::vector<Case> cases{
        {"child names another parent",
         {{"/r", "", {"/r/a", "/r/b"}, true}, {"/r/a", "/r", {}, true}, {"/r/b", "/r/a", {}, false}},
         {"\"/r/b\"", "does not name it as its parent"}},
        {"child path is not the folder's",
         {{"/r", "", {"/r/a", "/elsewhere/b"}, true}, {"/r/a", "/r", {}, false}, {"/elsewhere/b", "/r", {}, false}},
         {"\"/elsewhere/b\"", "\"/r\""}},
        {"child path a grandchild",
         {{"/r", "", {"/r/a/b"}, true}, {"/r/a/b", "/r", {}, false}},
         {"\"/r/a/b\""}},
        {"node nobody lists",
         {{"/r", "", {}, true}, {"/r/lost", "/r", {}, false}},
         {"\"/r/lost\"", "not among the children"}},
        {"listed twice",
         {{"/r", "", {"/r/a", "/r/a"}, true}, {"/r/a", "/r", {}, false}},
         {"\"/r/a\"", "twice"}},
        {"node key twice",
         {{"/r", "", {"/r/a"}, true}, {"/r/a", "/r", {}, false}, {"/r/a", "/r", {}, false}},
         {"\"/r/a\"", "listed twice"}},
        {"root with a parent",
         {{"/", "", {"/r"}, true}, {"/r", "/", {}, true}},
         {"root \"/r\"", "has a parent"}},
        {"child missing parent key",
         {{"/r", "", {"/r/a"}, true}, {"/r/a", "", {}, false}},
         {"\"/r/a\"", "does not name it as its parent"}},
        {"path differs from key",
         {{"/r", "", {}, true}},
         {}},
    };
    for (const auto& c : cases) {
        std::string json = handWritten("/r", c.nodes);
        if (c.what == "path differs from key") {
            json.replace(json.find("\"path\":\"/r\""), 11, "\"path\":\"/q\"");
            const std::string message = failureOf(json);
            EXPECT_NE(message.find("another \"path\""), std::string::npos) << message;
            continue;
        }
        const std::string message = failureOf(json);
        EXPECT_EQ(message.rfind("The scan file is damaged: ", 0), 0u) << c.what << ": " << message;
        for (const auto& mention : c.mentions)
            EXPECT_NE(message.find(mention), std::string::npos) << c.what << ": " << message;
    }
}

TEST(ScanJson, NestedKeysAreNamedWhenMissingOrMistyped)
{
    const ScanResult good = test::fakeScan("/r", {{"c", 20}});
    std::string json = ScanJson::toString(good);
    json.replace(json.find("\"issues\":[]"), 11, R"("issues":[{"path":"/r/x","message":"Permission denied"}])");
    ASSERT_NO_THROW(ScanJson::parse(json));
    auto replaced = [&](const std::string& from, const std::string& to) {
        std::string out = json;
        const auto at = out.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return at == std::string::npos ? out : out.replace(at, from.size(), to);
    };
    const std::vector<std::pair<std::string, std::string>> cases{
        {replaced("\"linkCount\":1", "\"links\":1"), "the identity of \"/r\" has no \"linkCount\""},
        {replaced("\"mode\":", "\"mode\":-"), "\"mode\" of the node \"/r\""},
        {replaced("\"inode\":", "\"inode\":\"1\",\"x\":"), "\"inode\" of the node \"/r\""},
        {replaced("\"isDirectory\":true", "\"isDirectory\":1"), "\"isDirectory\" of the node \"/r\""},
        {replaced("\"children\":[\"/r/c\"]", "\"children\":\"/r/c\""), "\"children\" of the node \"/r\""},
        {replaced("\"children\":[\"/r/c\"]", "\"children\":[7]"), "a child of the node \"/r\" is not a string"},
        {replaced("\"created\":", "\"created\":\"yesterday\",\"x\":"), "\"created\" of the node \"/r\""},
        {replaced("\"message\":\"Permission denied\"", "\"text\":\"x\""), "an issue has no \"message\""},
        {replaced("\"id\":\"", "\"id\":\"nope"), "\"id\" is not a UUID"},
        {replaced("\"scannedAt\":", "\"scannedAt\":null,\"x\":"), "\"scannedAt\" has the wrong type"},
        {replaced("\"nodes\":{", "\"nodes\":[],\"x\":{"), "\"nodes\" has the wrong type"},
        {replaced("\"skippedCount\":0", "\"skippedCount\":-1"), "\"skippedCount\""},
        {json.substr(0, json.size() / 2), "not a Tarnbridge scan"},
    };
    for (const auto& [text, mention] : cases) {
        const std::string message = failureOf(text);
        EXPECT_NE(message.find(mention), std::string::npos) << mention << " / " << message;
    }
}
