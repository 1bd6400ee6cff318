#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstring>
#include <map>
#include <random>

#include "model/Errors.h"
#include "scan/DiskScanner.h"
#include "storage/GzipFile.h"
#include "storage/NcduJson.h"
#include "storage/ScanFile.h"
#include "storage/ScanJson.h"
#include "support/Checks.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::refusal;
using tarnbridge::test::TempTree;

namespace {

std::string header(const char* progname = "ncdu")
{
    return std::string("[1,2,{\"progname\":\"") + progname + "\",\"progver\":\"1.18\",\"timestamp\":1700000000},\n";
}

struct Sizes {
    std::int64_t logical;
    std::int64_t allocated;
    bool operator==(const Sizes&) const = default;
};

Sizes sizesAt(const ScanResult& scan, const std::string& path)
{
    const NodeId id = scan.find(path);
    if (id == kNoNode)
        return {-1, -1};
    return {scan.data()[id].logicalSize, scan.data()[id].allocatedSize};
}

// Every path of a scan with its sizes, file count and kind.
std::map<std::string, std::tuple<std::int64_t, std::int64_t, std::uint32_t, bool>> everyPath(const ScanResult& scan)
{
    std::map<std::string, std::tuple<std::int64_t, std::int64_t, std::uint32_t, bool>> out;
    for (NodeId id = 0; id < scan.nodeCount(); ++id) {
        const NodeRecord& r = scan.data()[id];
        out[scan.data().path(id)] = {r.logicalSize, r.allocatedSize, r.fileCount, r.isDirectory()};
    }
    return out;
}

// A small export with what the format allows: hard links, a read error, exclusions, a
// non-regular file, escapes, a name that is not UTF-8, and keys we do not use.
const std::string kSample = header() +
    "[{\"name\":\"/srv\",\"asize\":4096,\"dsize\":4096,\"dev\":2049,\"mtime\":1600000000},\n"
    "{\"name\":\"big\",\"asize\":10485760,\"dsize\":8192,\"uid\":0,\"gid\":0,\"mode\":33188,\"mtime\":1650000000},\n"
    "[{\"name\":\"a\",\"asize\":4096,\"dsize\":4096,\"extra\":{\"x\":[1,{\"y\":null}],\"z\":\"]\"}},\n"
    "{\"name\":\"one\",\"asize\":6,\"dsize\":4096,\"ino\":77,\"hlnkc\":true,\"nlink\":2},\n"
    "{\"name\":\"caf\xE9 \\\"q\\\" \\u00e9\\n\",\"asize\":1,\"dsize\":4096}],\n"
    "{\"name\":\"two\",\"asize\":6,\"dsize\":4096,\"ino\":77,\"hlnkc\":true,\"nlink\":2},\n"
    "{\"name\":\"other-dev\",\"asize\":6,\"dsize\":4096,\"ino\":77,\"hlnkc\":true,\"dev\":2050},\n"
    "[{\"name\":\"locked\",\"asize\":4096,\"dsize\":4096,\"read_error\":true}],\n"
    "[{\"name\":\"mnt\",\"dev\":39,\"excluded\":\"othfs\"}],\n"
    "{\"name\":\"skip.iso\",\"asize\":999,\"excluded\":\"pattern\"},\n"
    "{\"name\":\"gone\",\"read_error\":true},\n"
    "{\"name\":\"fifo\",\"notreg\":true},\n"
    "{\"name\":\"sym\",\"asize\":4,\"notreg\":true,\"mode\":41471}]]\n";

} // namespace

TEST(NcduJson, ReadsAnExportAsAScanWouldSeeTheTree)
{
    const ScanResult scan = NcduJson::parse(kSample);
    ASSERT_EQ(scan.rootPath(), "/srv");
    EXPECT_DOUBLE_EQ(scan.scannedAt(), 1700000000.0);
    // Folders own no bytes; "one" and "two" are one file (same dev and ino), counted once in
    // allocated size at the name a scan meets first ("two" sits in the root, read before "a"'s
    // contents), once per name in logical size. Another device's inode 77 is another file.
    const struct {
        const char* path;
        Sizes sizes;
    } cases[] = {
        {"/srv/big", {10485760, 8192}},
        {"/srv/a/one", {6, 0}},
        {"/srv/two", {6, 4096}},
        {"/srv/other-dev", {6, 4096}},
        {"/srv/a", {7, 4096}},
        {"/srv/locked", {0, 0}},
        {"/srv/fifo", {0, 0}},
        {"/srv/sym", {4, 0}},
        {"/srv", {10485760 + 6 + 1 + 6 + 6 + 4, 8192 + 4096 + 4096 + 4096}},
        {"/srv/mnt", {-1, -1}},
        {"/srv/skip.iso", {-1, -1}},
        {"/srv/gone", {-1, -1}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(sizesAt(scan, c.path), c.sizes) << c.path;

    EXPECT_EQ(scan.root()->fileCount, 7);
    EXPECT_EQ(scan.root()->folderCount, 2);
    // Names byte for byte: a raw byte that is not UTF-8 and JSON escapes.
    EXPECT_NE(scan.find("/srv/a/caf\xE9 \"q\" \xC3\xA9\n"), kNoNode);

    const NodeRecord& big = scan.data()[scan.find("/srv/big")];
    EXPECT_EQ(big.modifiedSeconds, 1650000000);
    EXPECT_EQ(big.mode, 33188);
    EXPECT_TRUE(big.isRegularFile());
    EXPECT_EQ(big.device, 2049); // inherited from the root
    // No date in the export: none made up.
    EXPECT_EQ(scan.data()[scan.find("/srv/two")].modifiedSeconds, 0);
    EXPECT_EQ(scan.data()[scan.find("/srv/two")].createdSeconds, 0);
    EXPECT_TRUE(scan.data()[scan.find("/srv/sym")].isSymbolicLink());
    EXPECT_FALSE(scan.data()[scan.find("/srv/fifo")].isRegularFile());

    const std::vector<ScanIssue> issues = {
        {"/srv/locked", NcduJson::kReadError},
        {"/srv/mnt", DiskScanner::kNestedVolume},
        {"/srv/skip.iso", NcduJson::kExcluded},
        {"/srv/gone", NcduJson::kReadError},
    };
    EXPECT_EQ(scan.issues(), issues);
    EXPECT_EQ(scan.skippedCount(), 4);
}

TEST(NcduJson, GduMarksOnlyTheLaterNamesOfAHardLink)
{
    // gdu writes "ino" and "hlnkc" on the second and later names only: the first carries the
    // blocks, the marked ones none.
    const std::string text = header("gdu") +
        "[{\"name\":\"/t\"},\n[{\"name\":\"a\"},\n{\"name\":\"f1\",\"asize\":6,\"dsize\":4096}],\n"
        "[{\"name\":\"c\"},\n{\"name\":\"link\",\"asize\":6,\"dsize\":4096,\"ino\":5,\"hlnkc\":true}]]]";
    const ScanResult gdu = NcduJson::parse(text);
    EXPECT_EQ(sizesAt(gdu, "/t"), (Sizes{12, 4096}));
    EXPECT_EQ(sizesAt(gdu, "/t/c/link"), (Sizes{6, 0}));

    // The same text from another program: a single marked name counts its blocks.
    std::string ncdu = text;
    ncdu.replace(ncdu.find("gdu"), 3, "ncdu");
    EXPECT_EQ(sizesAt(NcduJson::parse(ncdu), "/t"), (Sizes{12, 8192}));
}

TEST(NcduJson, KeepsEveryFolderTogetherWhateverTheNesting)
{
    // Deep and wide at once, in the depth-first order of the format.
    std::string text = header() + "[{\"name\":\"/r\"}";
    std::map<std::string, std::int64_t> expected;
    for (int i = 0; i < 30; ++i) {
        text += ",\n[{\"name\":\"d" + std::to_string(i) + "\"}";
        std::string inner = "/r/d" + std::to_string(i);
        for (int depth = 0; depth < i % 4; ++depth) {
            text += ",\n[{\"name\":\"s\"}";
            inner += "/s";
        }
        text += ",\n{\"name\":\"f\",\"asize\":" + std::to_string(i + 1) + "}";
        expected[inner + "/f"] = i + 1;
        text += std::string(std::size_t(i % 4), ']') + "]";
        text += ",\n{\"name\":\"g" + std::to_string(i) + "\",\"asize\":1000}";
        expected["/r/g" + std::to_string(i)] = 1000;
    }
    text += "]]";
    const ScanResult scan = NcduJson::parse(text);
    for (const auto& [path, size] : expected)
        EXPECT_EQ(sizesAt(scan, path).logical, size) << path;
    EXPECT_EQ(scan.root()->logicalSize, 30 * 31 / 2 + 30 * 1000);
    // Each child's parent link and each folder's range agree.
    for (NodeId id = 1; id < scan.nodeCount(); ++id) {
        const NodeRecord& parent = scan.data()[scan.data()[id].parent];
        EXPECT_GE(id, parent.firstChild);
        EXPECT_LT(id, parent.firstChild + parent.childCount);
    }
}

TEST(NcduJson, RoundTripsARealScan)
{
    TempTree tree;
    tree.file("plain/file.txt", 1234);
    tree.hardLink("plain/file.txt", "again");
    tree.hardLink("plain/file.txt", "deep/er/third");
    tree.symlink("plain", "link to plain");
    tree.folder("empty");
    tree.file("quotes \"and\" back\\slash", 3);
    tree.file("tab\there\nnewline\x01\x7f", 4);
    tree.file("emoji \xF0\x9F\x93\x81 caf\xC3\xA9", 5);
    tree.file("latin1 caf\xE9", 6);
    tree.sparseFile("sparse", 50'000'000);
    const ScanResult scan = test::scanOf(tree);

    const ScanResult back = NcduJson::parse(NcduJson::toString(scan));
    EXPECT_EQ(back.rootPath(), scan.rootPath());
    EXPECT_EQ(everyPath(back), everyPath(scan));
    const NodeRecord& file = back.data()[back.find(tree.path("plain/file.txt"))];
    EXPECT_EQ(file.modifiedSeconds, scan.data()[scan.find(tree.path("plain/file.txt"))].modifiedSeconds);
    EXPECT_EQ(file.linkCount, 3);
    EXPECT_TRUE(back.data()[back.find(tree.path("link to plain"))].isSymbolicLink());
    // Every name of a hard-linked file carries its blocks, as ncdu writes and counts them.
    const std::string text = NcduJson::toString(scan);
    std::size_t names = 0;
    for (std::size_t at = text.find("\"hlnkc\""); at != std::string::npos; at = text.find("\"hlnkc\"", at + 1)) {
        const std::size_t start = text.rfind('{', at);
        EXPECT_NE(text.substr(start, at - start).find("\"dsize\":4096"), std::string::npos) << text.substr(start, 120);
        ++names;
    }
    EXPECT_EQ(names, 3u);

    // gzip when the name ends in .gz, and ScanFile opens both kinds either way.
    for (const char* name : {"export.json", "export.json.gz"}) {
        const std::string path = tree.path(name);
        NcduJson::writeFile(scan, path);
        const std::string bytes = test::readText(path);
        EXPECT_EQ(isGzip(bytes), std::string_view(name).ends_with(".gz")) << name;
        const ScanResult opened = ScanFile::open(path);
        EXPECT_EQ(everyPath(opened), everyPath(scan)) << name;
    }
}

TEST(NcduJson, WritesWhatAScanLeftOutAsTheFormatSaysIt)
{
    TempTree tree;
    tree.file("x/f", 10);
    const ScanResult scan = test::scanOf(tree);
    // The same scan with issues: an unreadable folder and a nested volume.
    std::vector<DiskNode> nodes;
    for (NodeId id = 0; id < scan.nodeCount(); ++id)
        nodes.push_back(scan->node(id));
    const ScanResult withIssues = ScanResult::fromNodes(
        QUuid::createUuid(), scan.rootPath(), 5, 0, std::move(nodes),
        {{tree.path("x"), "Permission denied"}, {tree.path("mnt"), DiskScanner::kNestedVolume}}, 2);
    const std::string text = NcduJson::toString(withIssues);
    EXPECT_NE(text.find("\"name\":\"mnt\",\"excluded\":\"othfs\"}"), std::string::npos) << text;
    EXPECT_NE(text.find("\"read_error\":true"), std::string::npos) << text;
    const ScanResult back = NcduJson::parse(text);
    const std::vector<ScanIssue> issues = {{tree.path("x"), NcduJson::kReadError},
                                           {tree.path("mnt"), DiskScanner::kNestedVolume}};
    EXPECT_EQ(back.issues(), issues);
    EXPECT_EQ(back.root()->logicalSize, 10);
}

TEST(NcduJson, BadInputGetsAClearError)
{
    const struct {
        std::string text;
        const char* says;
    } cases[] = {
        {"", "neither"},
        {"hello", "neither"},
        {"[2,0,{},[{\"name\":\"/\"}]]", "format version 2"},
        {header() + "[{\"name\":\"/r\"},{\"name\":\"f\"}", "a folder is not closed"},
        {header() + "[{\"name\":\"/r\"},{\"name\":\"f\"}]]]", "more after the end"},
        {header() + "{\"name\":\"/r\"}]", "the root is not a folder"},
        {header() + "[{\"name\":\"/r\"},{\"asize\":3}]]", "no \"name\""},
        {header() + "[{\"name\":\"/r\"},{\"name\":\"a/b\"}]]", "not a file name"},
        {header() + "[{\"name\":\"/r\"},{\"name\":\"f\",\"asize\":-4}]]", "\"asize\" is not a number"},
        {header() + "[{\"name\":\"/r\"},{\"name\":\"f\",\"hlnkc\":yes}]]", "\"hlnkc\" is not true or false"},
        {header() + "[{\"name\":\"/r\"},{\"name\":\"f\\q\"}]]", "invalid escape"},
        {header() + "[{\"name\":\"/r\"},{\"name\":\"f\"}{\"name\":\"g\"}]]", "expected \",\" or \"]\""},
        {header() + "[{\"name\":\"/r\"},{\"name\":\"f\",\"extra\":[1,2}]]", "end of a list"},
    };
    TempTree tree;
    for (const auto& c : cases) {
        const std::string path = tree.fileWithText("case.json", c.text);
        const std::string message = refusal([&] { ScanFile::open(path); });
        EXPECT_NE(message.find(c.says), std::string::npos) << c.text << "\n-> " << message;
    }
    // Neither format: the message names both that were expected.
    tree.fileWithText("other.json", "\"just a string\"");
    const std::string message = refusal([&] { ScanFile::open(tree.path("other.json")); });
    EXPECT_NE(message.find("Tarnbridge scan file"), std::string::npos) << message;
    EXPECT_NE(message.find("ncdu or gdu export"), std::string::npos) << message;
}

TEST(NcduJson, DamagedFilesNeverCrash)
{
    // Every cut and many flipped bits of a real-looking export: a clear error or a scan, never
    // anything else.
    const std::string& text = kSample;
    for (std::size_t cut = 0; cut + 1 < text.size(); ++cut) {
        const std::string message = refusal([&] { NcduJson::parse(text.substr(0, cut)); });
        EXPECT_FALSE(message.empty()) << "a cut at " << cut << " was read";
    }
    std::mt19937 random(17);
    // Wrongly nested: a bracket, brace or comma put in or taken out anywhere.
    for (int round = 0; round < 2000; ++round) {
        std::string changed = text;
        const std::size_t at = random() % changed.size();
        if (round % 2)
            changed.insert(at, 1, "[]{},"[random() % 5]);
        else
            changed.erase(at, 1);
        try {
            NcduJson::parse(changed);
        } catch (const TarnbridgeError&) {
        }
    }
    for (int round = 0; round < 3000; ++round) {
        std::string flipped = text;
        const std::size_t at = random() % flipped.size();
        flipped[at] = char(flipped[at] ^ (1 << (random() % 8)));
        try {
            NcduJson::parse(flipped);
        } catch (const TarnbridgeError& error) {
            EXPECT_TRUE(std::string(error.what()).starts_with("This ncdu export ") ||
                        std::string(error.what()).starts_with("This file is not an ncdu"))
                << error.what();
        }
    }
}

namespace {
// Hands the text out a few bytes at a time, as a slow pipe does: every token straddles reads.
class Trickle : public ByteSource {
public:
    explicit Trickle(std::string_view text) : text_(text) {}
    std::size_t read(char* buffer, std::size_t size) override
    {
        const std::size_t n = std::min({size, text_.size(), std::size_t(1 + random_() % 7)});
        std::memcpy(buffer, text_.data(), n);
        text_.remove_prefix(n);
        return n;
    }

private:
    std::string_view text_;
    std::mt19937 random_{3};
};
} // namespace

TEST(NcduJson, ReadsTheSameHoweverTheBytesArrive)
{
    // The sample, and an export of several MiB whose names and numbers cross the reader's
    // buffer, escapes included.
    std::string big = header() + "[{\"name\":\"/big\"}";
    for (int i = 0; i < 40000; ++i) {
        big += ",\n[{\"name\":\"folder " + std::to_string(i) + " \\\"quoted\\\" \\u00e9\"}";
        big += ",\n{\"name\":\"" + std::string(std::size_t(1 + i % 90), 'n') + "\",\"asize\":" + std::to_string(i) +
               ",\"dsize\":4096,\"extra\":[\"]\",{\"a\":[]}],\"mtime\":" + std::to_string(1600000000 + i) + "}]";
    }
    big += "]]";
    ASSERT_GT(big.size(), std::size_t(5) << 20);
    for (const std::string* text : {&kSample, static_cast<const std::string*>(&big)}) {
        const ScanResult whole = NcduJson::parse(*text);
        Trickle trickle(*text);
        const ScanResult trickled = NcduJson::read(trickle);
        EXPECT_EQ(everyPath(trickled), everyPath(whole));
        EXPECT_EQ(trickled.issues(), whole.issues());
    }
    const ScanResult scan = NcduJson::parse(big);
    EXPECT_EQ(scan.nodeCount(), 80001u);
    EXPECT_EQ(scan.root()->logicalSize, std::int64_t(40000) * 39999 / 2);
    EXPECT_NE(scan.find("/big/folder 39999 \"quoted\" \xC3\xA9/" + std::string(1 + 39999 % 90, 'n')), kNoNode);
}

TEST(NcduJson, DamagedGzipGetsAClearError)
{
    TempTree tree;
    tree.file("f", 100);
    const ScanResult scan = test::scanOf(tree);
    const std::string path = tree.path("export.json.gz");
    NcduJson::writeFile(scan, path);
    const std::string whole = test::readText(path);

    tree.fileWithText("cut.json.gz", whole.substr(0, whole.size() - 12));
    EXPECT_NE(refusal([&] { ScanFile::open(tree.path("cut.json.gz")); }).find("ends too early"), std::string::npos);
    std::string broken = whole;
    for (std::size_t i = 12; i < 40 && i < broken.size(); ++i)
        broken[i] = char(broken[i] ^ 0x5a);
    tree.fileWithText("broken.json.gz", broken);
    EXPECT_NE(refusal([&] { ScanFile::open(tree.path("broken.json.gz")); }).find("compressed file"), std::string::npos);

    // Two gzip members one after the other read as one text, as gzip itself reads them.
    const std::string text = NcduJson::toString(scan);
    std::string twoMembers;
    {
        std::string first, second;
        GzipWriter a([](void* out, const char* d, std::size_t n) { static_cast<std::string*>(out)->append(d, n); }, &first);
        a.write(text.data(), 10);
        a.finish();
        GzipWriter b([](void* out, const char* d, std::size_t n) { static_cast<std::string*>(out)->append(d, n); }, &second);
        b.write(text.data() + 10, text.size() - 10);
        b.finish();
        twoMembers = first + second;
    }
    tree.fileWithText("two.json.gz", twoMembers);
    EXPECT_EQ(ScanFile::open(tree.path("two.json.gz")).root()->logicalSize, 100);
}

TEST(ScanFile, OpensOurOwnScanFilePlainOrCompressed)
{
    TempTree tree;
    tree.file("a/b", 4000);
    const ScanResult scan = test::scanOf(tree);
    ScanJson::writeFile(scan, tree.path("scan.json"));
    const ScanResult plain = ScanFile::open(tree.path("scan.json"));
    EXPECT_EQ(plain.id(), scan.id());

    std::string compressed;
    GzipWriter gzip([](void* out, const char* d, std::size_t n) { static_cast<std::string*>(out)->append(d, n); }, &compressed);
    const std::string text = ScanJson::toString(scan);
    gzip.write(text.data(), text.size());
    gzip.finish();
    tree.fileWithText("scan.json.gz", compressed);
    const ScanResult opened = ScanFile::open(tree.path("scan.json.gz"));
    EXPECT_EQ(opened.id(), scan.id());
    EXPECT_EQ(opened.root()->logicalSize, 4000);
    EXPECT_NE(refusal([&] { ScanFile::open(tree.path("a")); }).find("is a folder"), std::string::npos);
}
