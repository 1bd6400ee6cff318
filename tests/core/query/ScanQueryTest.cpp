#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "model/PathText.h"
#include "query/FileCategory.h"
#include "query/FolderNavigationHistory.h"
#include "query/ScanQuery.h"
#include "support/FakeScan.h"

using namespace tarnbridge;
using tarnbridge::test::FakeEntry;
using tarnbridge::test::fakeScan;

namespace {

constexpr std::int64_t kNow = 1'700'000'000;

std::vector<std::string> pathsOf(const std::vector<DiskNode>& nodes)
{
    std::vector<std::string> out;
    for (const auto& n : nodes)
        out.push_back(n.path);
    return out;
}

} // namespace

TEST(FileCategory, ClassifiesByLowerCasedExtensionOnly)
{
    struct Case {
        const char* path;
        FileCategory expected;
    };
    const Case cases[] = {
        {"/a/movie.MOV", FileCategory::video}, {"/a/song.flac", FileCategory::audio},
        {"/a/pic.JPeG", FileCategory::image},  {"/a/report.numbers", FileCategory::document},
        {"/a/main.rs", FileCategory::developer}, {"/a/lib.a", FileCategory::developer},
        {"/a/x.tar.gz", FileCategory::archive}, {"/a/scan.tif", FileCategory::other},
        {"/a/slides.ppt", FileCategory::other}, {"/a/.bashrc", FileCategory::other},
        {"/a/notes.", FileCategory::other},     {"/a/README", FileCategory::other},
        {"/a/very.longextension", FileCategory::other},
    };
    for (const auto& c : cases)
        EXPECT_EQ(FileCategory::classify(c.path), c.expected) << c.path;
    EXPECT_EQ(FileCategory::allCases().size(), 7u);
    EXPECT_EQ(FileCategory(FileCategory::image).rawValue(), "Images");
    EXPECT_EQ(FileCategory(FileCategory::image).displayName(), "Image");
    EXPECT_EQ(FileCategory::fromRawValue("Archives"), FileCategory(FileCategory::archive));
    EXPECT_FALSE(FileCategory::fromRawValue("Image").has_value());
}

// The packed key is read eight bytes at a time; it must say what reading the name byte by
// byte says, at every length and position of the dot.
TEST(FileCategory, ExtensionKeyEqualsAPlainReadingOfTheName)
{
    auto reference = [](std::string_view name) -> std::uint64_t {
        const std::string_view extension = PathText::pathExtension(name);
        if (extension.empty() || extension.size() > 8)
            return 0;
        std::uint64_t key = 0;
        for (char c : extension)
            key = key << 8 | std::uint8_t(c >= 'A' && c <= 'Z' ? c + 32 : c);
        return key;
    };
    std::vector<std::string> names = {"abcdefgh.ijklmnop", "abcdefg.ijklmnop", ".abcdefgh", "x.ABCDEFGH",
                                      "name.tar.GZ",       "a........",        "\xC3\x89t\xC3\xA9.JPG",
                                      "@[`{.Z@[`{",        "photo.J\xC0G",     "..........", "ninechars"};
    std::mt19937_64 rng(5);
    const std::string alphabet = std::string("..aZzA@[`{09_-") + "\x80\xC3\xFF";
    for (int i = 0; i < 20000; ++i) {
        std::string name(1 + rng() % 24, 'x');
        for (char& c : name)
            c = alphabet[rng() % alphabet.size()];
        names.push_back(std::move(name));
    }
    for (const std::string& name : names)
        ASSERT_EQ(FileCategory::extensionKey(name), reference(name)) << name;
}

TEST(ScanQuery, TestsRunInOrderAtTheirBounds)
{
    const ScanResult scan = fakeScan("/r", {
        {".hidden/visible.txt", 100, 100, kNow - 10 * 86400},
        {"Photos/Summer.JPG", 2000, 4096, kNow - 86400},
        {"Photos/winter.png", 1999, 4096, kNow - 86400 + 1},
        {"Café/crème.txt", 5, 5, kNow},
    });
    auto passes = [&](const ScanQuery& q, const char* path) { return q.matches(*scan.node(path), kNow); };

    ScanQuery hidden;
    hidden.showHidden = false;
    EXPECT_FALSE(passes(hidden, "/r/.hidden"));
    EXPECT_TRUE(passes(hidden, "/r/.hidden/visible.txt")); // only the own name counts

    ScanQuery text;
    text.text = "summer";
    EXPECT_TRUE(passes(text, "/r/Photos/Summer.JPG"));
    EXPECT_FALSE(passes(text, "/r/Photos")); // folders above are not searched
    text.text = "CRÈME";
    EXPECT_TRUE(passes(text, "/r/Café/crème.txt"));

    ScanQuery size;
    size.minimumBytes = 2000;
    size.measure = SizeMeasure::logical;
    EXPECT_TRUE(passes(size, "/r/Photos/Summer.JPG"));
    EXPECT_FALSE(passes(size, "/r/Photos/winter.png"));
    EXPECT_TRUE(passes(size, "/r/Photos")); // a folder's total counts
    size.measure = SizeMeasure::allocated;
    EXPECT_TRUE(passes(size, "/r/Photos/winter.png"));

    ScanQuery images;
    images.category = FileCategory::image;
    EXPECT_TRUE(passes(images, "/r/Photos/Summer.JPG"));
    EXPECT_FALSE(passes(images, "/r/Photos"));
    EXPECT_FALSE(passes(images, "/r/Café/crème.txt"));

    ScanQuery old;
    old.modifiedBeforeDays = 1;
    EXPECT_TRUE(passes(old, "/r/Photos/Summer.JPG"));   // exactly one day old
    EXPECT_FALSE(passes(old, "/r/Photos/winter.png"));  // one second short
    old.modifiedBeforeDays = -1;
    EXPECT_TRUE(passes(old, "/r/Café/crème.txt"));

    // The arena form gives the same answers as the value form.
    for (const ScanQuery* q : {&hidden, &text, &size, &images, &old})
        for (NodeId id = 0; id < scan.nodeCount(); ++id)
            EXPECT_EQ(q->matches(scan.data(), id, kNow), q->matches(scan->node(id), kNow)) << scan->path(id);
}

TEST(ScanQuery, WalksDepthFirstLastChildFirstAndSearchesInsideFailingFolders)
{
    const ScanResult scan = fakeScan("/r", {{"a/x.png", 1}, {"a/y.txt", 2}, {"b.png", 3}, {"c/d/z.png", 4}});
    ScanQuery q;
    q.category = FileCategory::image;
    EXPECT_EQ(q.paths(scan, "/r", true), (std::vector<std::string>{"/r/c/d/z.png", "/r/b.png", "/r/a/x.png"}));
    EXPECT_EQ(q.paths(scan, "/r", false), std::vector<std::string>{"/r/b.png"});
    EXPECT_TRUE(q.paths(scan, "/elsewhere", true).empty());
    ScanQuery all;
    EXPECT_EQ(all.paths(scan, "/r/a", true), (std::vector<std::string>{"/r/a/y.txt", "/r/a/x.png"}));
    CancellationFlag cancelled;
    cancelled.cancel();
    EXPECT_THROW(all.items(scan, "/r", true, kNow, &cancelled), CancellationError);
}

TEST(ScanQuery, RankingEqualsAFullSortCutToTheLimit)
{
    std::mt19937_64 rng(11);
    for (int round = 0; round < 30; ++round) {
        // Random trees with many equal sizes, so that ties decide a lot.
        std::vector<FakeEntry> entries;
        const int count = 1 + int(rng() % 120);
        for (int i = 0; i < count; ++i) {
            std::string path;
            const int depth = int(rng() % 4);
            for (int d = 0; d < depth; ++d)
                path += "d" + std::to_string(rng() % 3) + "/";
            path += (rng() % 2 ? "F" : "f") + std::to_string(rng() % 50) + "-" + std::to_string(i);
            entries.push_back({path, std::int64_t(rng() % 4) * 1000, -1, kNow});
        }
        std::shuffle(entries.begin(), entries.end(), rng); // arena order differs each round
        const ScanResult scan = fakeScan("/r", entries);
        for (RankingScope scope : {RankingScope::current, RankingScope::files, RankingScope::folders}) {
            ScanQuery q;
            q.measure = SizeMeasure::logical;
            q.minimumBytes = round % 3 == 0 ? 1000 : 0;
            const auto everything = q.ranked(scan, "/r", scope);
            // Reference: every passing record, fully sorted by size then plain path order.
            std::vector<DiskNode> expected;
            for (NodeId id = 0; id < scan.nodeCount(); ++id) {
                const DiskNode n = scan->node(id);
                const bool inScope = scope == RankingScope::current ? n.parent == std::optional<std::string>("/r")
                                   : id != 0 && n.isDirectory == (scope == RankingScope::folders);
                if (inScope && q.matches(n, kNow))
                    expected.push_back(n);
            }
            std::sort(expected.begin(), expected.end(), [](const DiskNode& a, const DiskNode& b) {
                return a.logicalSize != b.logicalSize ? a.logicalSize > b.logicalSize
                                                      : PathText::compare(a.path, b.path) < 0;
            });
            ASSERT_EQ(pathsOf(everything), pathsOf(expected)) << "round " << round;
            for (std::int64_t limit : {0, 1, 3, 17}) {
                const RankedPage page = q.rankedPage(scan, "/r", scope, limit);
                EXPECT_EQ(page.count, std::int64_t(expected.size()));
                const auto cut = std::vector<DiskNode>(expected.begin(),
                                                       expected.begin() + std::min<std::size_t>(limit, expected.size()));
                EXPECT_EQ(pathsOf(page.rows), pathsOf(cut)) << "limit " << limit;
            }
        }
    }
}

TEST(ScanQuery, ScopesIgnoreOrHonourTheFocus)
{
    const ScanResult scan = fakeScan("/r", {{"a/b/c", 5}, {"a/d", 6}, {"e", 7}});
    ScanQuery q;
    EXPECT_EQ(q.rankedPage(scan, "/nowhere", RankingScope::current, 10).count, 0);
    EXPECT_EQ(q.rankedPage(scan, "/nowhere", RankingScope::files, 10).count, 3);
    const auto folders = pathsOf(q.ranked(scan, "/r/a/b", RankingScope::folders));
    EXPECT_EQ(folders, (std::vector<std::string>{"/r/a", "/r/a/b"})); // never the root
    const auto unfiltered = pathsOf(ScanQuery::items(RankingScope::files, scan, "/r", SizeMeasure::logical));
    EXPECT_EQ(unfiltered, (std::vector<std::string>{"/r/e", "/r/a/d", "/r/a/b/c"}));
    EXPECT_EQ(rawValue(RankingScope::files), "Biggest files anywhere");
}

TEST(FolderNavigationHistory, BackForwardAndTheHundredLimit)
{
    FolderNavigationHistory h;
    EXPECT_FALSE(h.goBack().has_value());
    h.visit("/0");
    h.visit("/0");
    EXPECT_TRUE(h.back.empty());
    for (int i = 1; i <= 101; ++i)
        h.visit("/" + std::to_string(i));
    EXPECT_EQ(h.back.size(), 100u);
    EXPECT_EQ(h.back.front(), "/1"); // "/0" fell off
    EXPECT_EQ(h.goBack(), "/100");
    EXPECT_EQ(h.goBack(), "/99");
    EXPECT_EQ(h.forward, (std::vector<std::string>{"/101", "/100"}));
    h.visit("/99"); // same folder: nothing changes, forward survives
    EXPECT_EQ(h.forward.size(), 2u);
    EXPECT_EQ(h.goForward(), "/100");
    h.visit("/new");
    EXPECT_TRUE(h.forward.empty());

    FolderNavigationHistory moved;
    moved.current = "/x/3";
    moved.back = {"/x/1", "/y/1", "/x/2", "/x/3"};
    moved.forward = {"/z"};
    const auto resolved = moved.resolvingPaths([](const std::string& p) -> std::optional<std::string> {
        if (p.rfind("/z", 0) == 0)
            return std::nullopt;
        return p.substr(0, 2); // "/x/1" and "/x/2" both become "/x"
    });
    EXPECT_EQ(resolved.current, "/x");
    EXPECT_EQ(resolved.back, (std::vector<std::string>{"/x", "/y"}));
    EXPECT_TRUE(resolved.forward.empty());
}
