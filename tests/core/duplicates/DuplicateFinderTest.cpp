#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <map>
#include <set>

#include "duplicates/DuplicateFinder.h"
#include "model/Errors.h"
#include "support/Checks.h"
#include "support/TempTree.h"

using namespace tarnbridge;
using tarnbridge::test::randomBytes;
using tarnbridge::test::runProcess;
using tarnbridge::test::scanOf;
using tarnbridge::test::TempTree;
using Phase = DuplicateProgress::Phase;

namespace tarnbridge {
// Reaches the finder's private steps, to act inside the gaps a real race would hit.
struct DuplicateFinderTestAccess {
    static ino_t openInode(const DiskNode& node, const std::function<void()>& between = {}) {
        const auto handle = DuplicateFinder::openVerified(node, between);
        struct stat st {};
        ::fstat(handle.fd(), &st);
        return st.st_ino;
    }
    static std::string digest(const DiskNode& node, bool wholeContent, const CancellationFlag& flag,
                              const DuplicateFinder::BytesProgress& progress = {}) {
        DuplicateFinder::ReadBuffers buffers;
        return DuplicateFinder::digest(node, flag,
                                       wholeContent ? DuplicateFinder::Extent::wholeContent
                                                    : DuplicateFinder::Extent::prefixOnly,
                                       progress, buffers);
    }
    static bool equal(const DiskNode& a, const DiskNode& b,
                      const DuplicateFinder::BytesProgress& progress = {}) {
        CancellationFlag flag;
        DuplicateFinder::ReadBuffers buffers;
        return DuplicateFinder::equal(a, b, flag, progress, buffers);
    }
};
} // namespace tarnbridge

using Access = tarnbridge::DuplicateFinderTestAccess;

namespace {

struct Outcome {
    DuplicateReport report;
    std::vector<DuplicateProgress> records;
    std::vector<std::pair<std::int64_t, std::int64_t>> counts;
};

Outcome find(const ScanResult& scan, std::int64_t minimum = 0,
             const std::optional<std::string>& scope = {},
             const std::function<void(const DuplicateProgress&)>& also = {}) {
    Outcome o;
    CancellationFlag flag;
    o.report = DuplicateFinder().find(
        scan, minimum, scope, flag,
        [&](const DuplicateProgress& p) {
            o.records.push_back(p);
            if (also)
                also(p);
        },
        [&](std::int64_t checked, std::int64_t total) { o.counts.emplace_back(checked, total); });
    return o;
}

// Each group as paths relative to the tree, in the report's order.
std::vector<std::vector<std::string>> groups(const DuplicateReport& report, const TempTree& tree) {
    std::vector<std::vector<std::string>> out;
    for (const DuplicateGroup& g : report.groups) {
        out.emplace_back();
        for (const DiskNode& f : g.files)
            out.back().push_back(f.path.substr(tree.root().size() + 1));
    }
    return out;
}

std::set<Phase> phases(const Outcome& o) {
    std::set<Phase> out;
    for (const auto& r : o.records)
        out.insert(r.phase);
    return out;
}

// The checks every finished run has to pass, whatever the tree.
void expectConsistent(const Outcome& o) {
    ASSERT_GE(o.records.size(), 2u);
    EXPECT_EQ(o.records.front(), DuplicateProgress{});
    const DuplicateProgress& last = o.records.back();
    EXPECT_EQ(last.phase, Phase::complete);
    EXPECT_EQ(last.checked, o.report.checked);
    EXPECT_EQ(last.total, o.report.checked);
    EXPECT_TRUE(last.fileName.empty());
    EXPECT_EQ(last.bytesRead + last.fileSize, 0);
    ASSERT_EQ(o.counts.size(), std::size_t(o.report.checked));
    for (std::size_t i = 0; i < o.counts.size(); ++i)
        EXPECT_EQ(o.counts[i], std::make_pair(std::int64_t(i + 1), o.report.checked));
    for (const auto& g : o.report.groups) {
        EXPECT_GE(g.files.size(), 2u);
        EXPECT_TRUE(std::is_sorted(g.files.begin(), g.files.end(),
                                   [](const auto& a, const auto& b) { return a.path < b.path; }));
    }
    for (std::size_t i = 1; i < o.report.groups.size(); ++i)
        EXPECT_GE(o.report.groups[i - 1].reclaimable(), o.report.groups[i].reclaimable());
    EXPECT_LE(o.report.issues.size(), std::size_t(o.report.skipped));
}

std::string sha256sum(const std::string& path, std::optional<std::size_t> head = {}) {
    const auto r =
        head ? runProcess(
                   {"sh", "-c", "head -c " + std::to_string(*head) + " \"$0\" | sha256sum", path})
             : runProcess({"sha256sum", path});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    return r.out.substr(0, 64);
}

std::int64_t allocatedOnDisk(const std::string& path) {
    struct stat st {};
    ::lstat(path.c_str(), &st);
    return std::int64_t(st.st_blocks) * 512;
}

} // namespace

TEST(DuplicateFinder, GroupsHoldProvenCopiesWithTheirDigestAndReclaimableBytes) {
    TempTree tree;
    const std::string small = randomBytes(200'000, 1), large = randomBytes(2'500'000, 2);
    for (const char* p : {"a/photo.jpg", "b/photo copy.jpg", "c/deep/photo.jpg"})
        tree.fileWithText(p, small);
    tree.fileWithText("a/archive.zip", large);
    tree.fileWithText("z/archive.zip", large);
    tree.fileWithText("a/same size, other bytes", randomBytes(200'000, 3));
    tree.fileWithText("a/\xff\xfe not UTF-8", randomBytes(5'000, 4));
    tree.fileWithText("b/\xff\xfe not UTF-8 either", randomBytes(5'000, 4));
    tree.fileWithText("a/alone", randomBytes(777, 5));
    const ScanResult scan = scanOf(tree);

    const Outcome o = find(scan);
    expectConsistent(o);
    EXPECT_EQ(groups(o.report, tree),
              (std::vector<std::vector<std::string>>{
                  {"a/archive.zip", "z/archive.zip"},
                  {"a/photo.jpg", "b/photo copy.jpg", "c/deep/photo.jpg"},
                  {"a/\xff\xfe not UTF-8", "b/\xff\xfe not UTF-8 either"}}));
    EXPECT_EQ(o.report.checked, 8); // the file of unique size never enters sampling
    EXPECT_EQ(o.report.skipped, 0);
    EXPECT_TRUE(o.report.issues.empty());
    for (const DuplicateGroup& g : o.report.groups) {
        EXPECT_EQ(g.id, sha256sum(g.files.front().path));
        std::int64_t extra = 0;
        for (std::size_t i = 1; i < g.files.size(); ++i)
            extra += allocatedOnDisk(g.files[i].path);
        EXPECT_EQ(g.reclaimable(), extra);
    }
    EXPECT_EQ(DuplicateGroup{}.reclaimable(), 0);
    EXPECT_EQ((DuplicateGroup{"x", {o.report.groups[0].files[0]}}.reclaimable()), 0);

    // Byte counts of the records belong to the file named and never exceed it.
    for (const auto& r : o.records) {
        EXPECT_LE(r.bytesRead, r.fileSize);
        if (r.phase == Phase::sampling) {
            EXPECT_EQ(r.bytesRead, 0);
        }
        if (r.phase == Phase::hashing || r.phase == Phase::verifying) {
            EXPECT_FALSE(r.fileName.empty());
        }
    }
}

TEST(DuplicateFinder, NothingToCompareGivesTwoRecords) {
    TempTree empty;
    TempTree uniqueSizes;
    uniqueSizes.file("a", 10);
    uniqueSizes.file("b", 11);
    uniqueSizes.file("sub/c", 12);
    TempTree emptyFiles;
    emptyFiles.file("a", 0);
    emptyFiles.file("b", 0);
    emptyFiles.file("c/d", 0);
    const std::vector<std::pair<const char*, ScanResult>> cases{
        {"no scan", ScanResult()},
        {"empty folder", scanOf(empty)},
        {"unique sizes", scanOf(uniqueSizes)},
        {"empty files", scanOf(emptyFiles)},
    };
    for (const auto& [name, scan] : cases) {
        const Outcome o = find(scan);
        EXPECT_TRUE(o.report.groups.empty()) << name;
        EXPECT_EQ(o.report.checked, 0) << name;
        EXPECT_EQ(o.report.skipped, 0) << name;
        DuplicateProgress complete;
        complete.phase = Phase::complete;
        EXPECT_EQ(o.records, (std::vector<DuplicateProgress>{DuplicateProgress{}, complete}))
            << name;
        EXPECT_TRUE(o.counts.empty()) << name;
    }
}

TEST(DuplicateFinder, CandidatesFollowSizeScopeAndFileType) {
    TempTree tree;
    tree.file("a/k1000", 1000, 'k');
    tree.file("b/k1000", 1000, 'k');
    tree.file("a/n999", 999, 'n');
    tree.file("ab/n999", 999, 'n');
    tree.file("a/e", 0);
    tree.file("ab/e", 0);
    tree.symlink(tree.path("a/k1000"), "ab/link to k1000");
    const ScanResult scan = scanOf(tree);
    using Groups = std::vector<std::vector<std::string>>;
    struct Case {
        std::int64_t minimum;
        std::optional<std::string> scope;
        Groups expected;
    };
    const std::vector<Case> cases{
        {0, {}, {{"a/k1000", "b/k1000"}, {"a/n999", "ab/n999"}}},
        {-5, {}, {{"a/k1000", "b/k1000"}, {"a/n999", "ab/n999"}}},
        {999, {}, {{"a/k1000", "b/k1000"}, {"a/n999", "ab/n999"}}},
        {1000, {}, {{"a/k1000", "b/k1000"}}},
        {1001, {}, {}},
        // "a" is not a prefix of "ab": no pair is complete below either folder alone.
        {0, tree.path("a"), {}},
        {0, tree.path("ab"), {}},
        {0, tree.path("a") + "/", {}},
        {0, tree.root(), {{"a/k1000", "b/k1000"}, {"a/n999", "ab/n999"}}},
    };
    for (const auto& c : cases) {
        const Outcome o = find(scan, c.minimum, c.scope);
        expectConsistent(o);
        Groups got = groups(o.report, tree);
        std::sort(got.begin(), got.end());
        EXPECT_EQ(got, c.expected) << c.minimum << " " << c.scope.value_or("-");
    }

    // A record marked as content elsewhere is left out before anything is read.
    std::vector<DiskNode> nodes{*scan.root()};
    for (DiskNode& n : scan.descendants(scan.rootPath())) {
        n.isCloudPlaceholder = n.path == tree.path("b/k1000");
        nodes.push_back(std::move(n));
    }
    const ScanResult marked = ScanResult::fromNodes(scan.id(), scan.rootPath(), 0, 0, nodes, {}, 0);
    const Outcome o = find(marked, 1000);
    EXPECT_TRUE(o.report.groups.empty());
    EXPECT_EQ(o.report.checked, 0);

    for (const std::string& scope :
         {tree.path("nowhere"), tree.path("a/k1000"), tree.path("ab/link to k1000")}) {
        CancellationFlag flag;
        try {
            DuplicateFinder().find(scan, 0, scope, flag);
            ADD_FAILURE() << scope;
        } catch (const TarnbridgeError& e) {
            EXPECT_STREQ(e.what(), kFolderNotInScan);
        }
    }
}

TEST(DuplicateFinder, HardLinksAreNeverDuplicatesOfEachOther) {
    struct Case {
        const char* name;
        std::vector<std::string> links; // hard links to "m/original"
        std::vector<std::string> copies;
        std::vector<std::string> expected;
        std::int64_t total;
    };
    const std::vector<Case> cases{
        {"two links only", {"n/link"}, {}, {}, 0},
        {"link sorts first", {"a/link"}, {"z/copy"}, {"a/link", "z/copy"}, 2},
        {"original sorts first", {"x/link", "y/link"}, {"b/copy"}, {"b/copy", "m/original"}, 2},
        {"two copies", {"n/link"}, {"b/copy", "c/copy"}, {"b/copy", "c/copy", "m/original"}, 3},
    };
    for (const auto& c : cases) {
        TempTree tree;
        const std::string text = randomBytes(70'000, 9);
        tree.fileWithText("m/original", text);
        for (const auto& l : c.links)
            tree.hardLink("m/original", l);
        for (const auto& copy : c.copies)
            tree.fileWithText(copy, text);
        const Outcome o = find(scanOf(tree));
        expectConsistent(o);
        EXPECT_EQ(o.report.checked, c.total) << c.name;
        if (c.expected.empty()) {
            EXPECT_TRUE(o.report.groups.empty()) << c.name;
        } else {
            EXPECT_EQ(groups(o.report, tree), std::vector<std::vector<std::string>>{c.expected})
                << c.name;
        }
    }
}

TEST(DuplicateFinder, OnlyFilesAlikeInTheirHeadAreReadInFull) {
    const std::string head = randomBytes(65'536, 11);
    struct Case {
        const char* name;
        std::string first, second;
        bool hashed, grouped;
    };
    const std::vector<Case> cases{
        {"differ in the first byte", "A" + head, "B" + head, false, false},
        {"differ in the last byte", head + "A", head + "B", true, false},
        {"differ after the first MiB", head + randomBytes(1'200'000, 12) + "A",
         head + randomBytes(1'200'000, 12) + "B", true, false},
        {"small and equal", head.substr(0, 3000), head.substr(0, 3000), true, true},
        {"large and equal", head + randomBytes(3'000'000, 13), head + randomBytes(3'000'000, 13), true,
         true},
    };
    for (const auto& c : cases) {
        TempTree tree;
        tree.fileWithText("one", c.first);
        tree.fileWithText("two", c.second);
        const Outcome o = find(scanOf(tree));
        expectConsistent(o);
        EXPECT_EQ(o.report.checked, 2) << c.name;
        EXPECT_EQ(phases(o).count(Phase::hashing), c.hashed ? 1u : 0u) << c.name;
        EXPECT_EQ(phases(o).count(Phase::verifying), c.grouped ? 1u : 0u) << c.name;
        EXPECT_EQ(o.report.groups.size(), c.grouped ? 1u : 0u) << c.name;
        EXPECT_EQ(o.report.skipped, 0) << c.name;
    }
}

TEST(DuplicateFinder, DigestsAreSha256OfTheHeadOrOfEverything) {
    TempTree tree;
    for (std::size_t size : {1ul, 65'535ul, 65'536ul, 65'537ul, 1'048'576ul, 2'500'001ul}) {
        const std::string path =
            tree.fileWithText("f" + std::to_string(size), randomBytes(size, unsigned(size)));
        const ScanResult scan = scanOf(tree);
        const DiskNode node = *scan.node(path);
        CancellationFlag flag;
        std::vector<std::int64_t> reported;
        EXPECT_EQ(Access::digest(node, false, flag), sha256sum(path, 65'536)) << size;
        EXPECT_EQ(Access::digest(node, true, flag, [&](std::int64_t b) { reported.push_back(b); }),
                  sha256sum(path))
            << size;
        // One report per read of at most 1 MiB, the last one the whole size.
        ASSERT_FALSE(reported.empty());
        EXPECT_EQ(reported.back(), std::int64_t(size));
        EXPECT_EQ(reported.size(),
                  (size + DuplicateFinder::kReadBytes - 1) / DuplicateFinder::kReadBytes);
    }
}

TEST(DuplicateFinder, FilesChangedOrGoneAfterTheScanAreSkipped) {
    struct Case {
        const char* name;
        std::function<void(TempTree&)> change; // applied to "b/twin" after the scan
        std::string message;
    };
    const std::vector<Case> cases{
        {"rewritten", [](TempTree& t) { t.fileWithText("b/twin", randomBytes(90'000, 21)); },
         std::string(kFileChangedOrCloud) + "twin"},
        {"chmod", [](TempTree& t) { t.chmod("b/twin", 0755); },
         std::string(kFileChangedOrCloud) + "twin"},
        {"new hard link", [](TempTree& t) { t.hardLink("b/twin", "elsewhere"); },
         std::string(kFileChangedOrCloud) + "twin"},
        {"vanished", [](TempTree& t) { t.remove("b/twin"); }, "No such file or directory"},
        {"replaced by a link",
         [](TempTree& t) {
             t.remove("b/twin");
             t.symlink(t.path("a/twin"), "b/twin");
         },
         std::string(kFileChangedOrCloud) + "twin"},
    };
    for (const auto& c : cases) {
        for (const bool third : {true, false}) {
            TempTree tree;
            const std::string text = randomBytes(90'000, 20);
            tree.fileWithText("a/twin", text);
            tree.fileWithText("b/twin", text);
            if (third)
                tree.fileWithText("c/twin", text);
            // An old date: a rewrite within the same clock tick still shows as a change.
            for (const char* p : {"a/twin", "b/twin", "c/twin"})
                if (third || p[0] != 'c')
                    tree.setModified(p, 1'600'000'000);
            const ScanResult scan = scanOf(tree);
            c.change(tree);
            const Outcome o = find(scan);
            expectConsistent(o);
            EXPECT_EQ(o.report.checked, third ? 3 : 2) << c.name;
            EXPECT_EQ(o.report.skipped, 1) << c.name;
            EXPECT_EQ(o.report.issues, std::vector<std::string>{c.message}) << c.name;
            if (third) {
                EXPECT_EQ(groups(o.report, tree),
                          (std::vector<std::vector<std::string>>{{"a/twin", "c/twin"}}))
                    << c.name;
            } else {
                EXPECT_TRUE(o.report.groups.empty()) << c.name;
            }
        }
    }
}

TEST(DuplicateFinder, UnreadableFilesAreSkippedWithTheSystemsWords) {
    TempTree tree;
    const std::string text = randomBytes(4'000, 30);
    tree.fileWithText("a", text);
    tree.fileWithText("b", text);
    tree.fileWithText("c", text);
    tree.chmod("b", 0);
    const ScanResult scan = scanOf(tree);
    test::WithoutAdminRights user;
    const Outcome o = find(scan);
    expectConsistent(o);
    EXPECT_EQ(o.report.issues, std::vector<std::string>{"Permission denied"});
    EXPECT_EQ(groups(o.report, tree), (std::vector<std::vector<std::string>>{{"a", "c"}}));
}

TEST(DuplicateFinder, APathReplacedBetweenCheckAndOpenIsRefused) {
    struct Case {
        const char* name;
        std::function<void(TempTree&)> swap; // between the status check of "file" and its open
    };
    const std::vector<Case> cases{
        // Same content behind the link: only the open itself can tell.
        {"link to an identical file",
         [](TempTree& t) {
             t.remove("file");
             t.symlink(t.path("twin"), "file");
         }},
        {"another regular file",
         [](TempTree& t) {
             ASSERT_EQ(::rename(t.path("twin").c_str(), t.path("file").c_str()), 0);
         }},
        {"a pipe",
         [](TempTree& t) {
             t.remove("file");
             ASSERT_EQ(::mkfifo(t.path("file").c_str(), 0600), 0);
         }},
    };
    for (const auto& c : cases) {
        TempTree tree;
        const std::string text = randomBytes(10'000, 40);
        tree.fileWithText("file", text);
        tree.fileWithText("twin", text);
        const DiskNode node = *scanOf(tree).node(tree.path("file"));
        EXPECT_EQ(Access::openInode(node), node.identity.inode) << c.name;
        try {
            Access::openInode(node, [&] { c.swap(tree); });
            ADD_FAILURE() << c.name;
        } catch (const TarnbridgeError& e) {
            EXPECT_EQ(e.what(), std::string(kFileChangedWhileOpening) + "file") << c.name;
        }
    }
}

TEST(DuplicateFinder, ChangesWhileReadingAreCaught) {
    TempTree tree;
    const std::string text = randomBytes(2'200'000, 50);
    tree.fileWithText("one", text);
    tree.fileWithText("two", text);
    tree.fileWithText("three", randomBytes(2'200'000, 51));
    tree.fileWithText("four", randomBytes(2'200'000, 51));
    const ScanResult scan = scanOf(tree);
    const DiskNode one = *scan.node(tree.path("one")), two = *scan.node(tree.path("two")),
                   three = *scan.node(tree.path("three")), four = *scan.node(tree.path("four"));

    std::vector<std::int64_t> compared;
    EXPECT_TRUE(Access::equal(one, two, [&](std::int64_t b) { compared.push_back(b); }));
    // One report per read, the last one for the read that found the end of both files.
    EXPECT_EQ(compared, (std::vector<std::int64_t>{0, 1'048'576, 2'097'152, 2'200'000, 2'200'000}));
    EXPECT_FALSE(Access::equal(one, three));

    // A status change while the bytes are compared: the answer is "not equal", not a failure.
    EXPECT_FALSE(Access::equal(one, two, [&](std::int64_t b) {
        if (b == 0)
            tree.chmod("two", 0755);
    }));
    // "two" is no longer the file of its record: opening it for a comparison fails.
    EXPECT_THROW(Access::equal(two, one), TarnbridgeError);

    // A status change while a file is hashed makes the digest fail with its name.
    CancellationFlag flag;
    try {
        Access::digest(one, true, flag, [&](std::int64_t) { tree.chmod("one", 0755); });
        ADD_FAILURE();
    } catch (const TarnbridgeError& e) {
        EXPECT_EQ(e.what(), std::string(kFileChangedDuringComparison) + "one");
    }

    // Bytes added once the record's size has been read: the comparison and the digest must not
    // take the longer file for the one that was scanned.
    const auto append = [&](const char* name) {
        std::ofstream(tree.path(name), std::ios::app) << "more";
    };
    EXPECT_TRUE(Access::equal(three, four));
    EXPECT_FALSE(Access::equal(three, four, [&](std::int64_t b) {
        if (b == 2'200'000)
            append("four");
    }));
    try {
        Access::digest(three, true, flag, [&](std::int64_t b) {
            if (b == 2'200'000)
                append("three");
        });
        ADD_FAILURE();
    } catch (const TarnbridgeError& e) {
        EXPECT_EQ(e.what(), std::string(kFileChangedDuringComparison) + "three");
    }
}

TEST(DuplicateFinder, ACopyChangedDuringVerificationLeavesTheGroupSilently) {
    TempTree tree;
    const std::string text = randomBytes(300'000, 60);
    for (const char* p : {"a", "b", "c", "d"})
        tree.fileWithText(p, text);
    const ScanResult scan = scanOf(tree);
    const Outcome o = find(scan, 0, {}, [&](const DuplicateProgress& p) {
        if (p.phase == Phase::verifying && p.fileName == "b" && p.bytesRead == 0)
            tree.chmod("b", 0755);
    });
    expectConsistent(o);
    EXPECT_EQ(o.report.skipped, 0);
    EXPECT_TRUE(o.report.issues.empty());
    EXPECT_EQ(groups(o.report, tree), (std::vector<std::vector<std::string>>{{"a", "c", "d"}}));

    // The reference changes while it is compared with "b": "b" leaves silently, and every
    // later comparison of the bucket fails on the reference, each one counted.
    const ScanResult again = scanOf(tree);
    bool changed = false;
    const Outcome r = find(again, 0, {}, [&](const DuplicateProgress& p) {
        if (p.phase == Phase::verifying && !changed) {
            tree.chmod("a", 0700);
            changed = true;
        }
    });
    expectConsistent(r);
    EXPECT_TRUE(r.report.groups.empty());
    EXPECT_EQ(r.report.skipped, 2);
    EXPECT_EQ(r.report.issues, std::vector<std::string>(2, std::string(kFileChangedOrCloud) + "a"));
}

TEST(DuplicateFinder, StagesRunPerSizeBucketAndRecordsAreThrottled) {
    TempTree tree;
    for (std::size_t size : {10'000ul, 20'000ul, 30'000ul}) {
        tree.fileWithText("one/" + std::to_string(size), randomBytes(size, unsigned(size)));
        tree.fileWithText("two/" + std::to_string(size), randomBytes(size, unsigned(size)));
    }
    const Outcome o = find(scanOf(tree));
    expectConsistent(o);
    std::vector<Phase> sequence;
    for (const auto& r : o.records)
        if (sequence.empty() || sequence.back() != r.phase)
            sequence.push_back(r.phase);
    // Every change of phase is sent: one size bucket is done before the next one starts.
    EXPECT_EQ(sequence, (std::vector<Phase>{Phase::grouping, Phase::sampling, Phase::hashing,
                                            Phase::verifying, Phase::sampling, Phase::hashing,
                                            Phase::verifying, Phase::sampling, Phase::hashing,
                                            Phase::verifying, Phase::complete}));
    EXPECT_EQ(o.report.groups.size(), 3u);

    // Thousands of small files: within one phase no two records come closer than the interval.
    TempTree many;
    for (int i = 0; i < 3000; ++i)
        many.fileWithText("f" + std::to_string(i), randomBytes(64, unsigned(i)));
    const ScanResult scan = scanOf(many);
    std::vector<std::pair<Phase, std::chrono::steady_clock::time_point>> sent;
    const Outcome m = find(scan, 0, {}, [&](const DuplicateProgress& p) {
        sent.emplace_back(p.phase, std::chrono::steady_clock::now());
    });
    expectConsistent(m);
    EXPECT_EQ(m.report.checked, 3000);
    EXPECT_EQ(m.counts.size(), 3000u);
    EXPECT_LT(sent.size(), 100u);
    for (std::size_t i = 1; i < sent.size(); ++i)
        if (sent[i].first == sent[i - 1].first) {
            EXPECT_GE(sent[i].second - sent[i - 1].second, std::chrono::milliseconds(149)) << i;
        }
}

TEST(DuplicateFinder, IssuesStopAtOneHundredWhileSkipsCountOn) {
    TempTree tree;
    auto name = [](int i) {
        const std::string digits = std::to_string(i);
        return "f" + std::string(3 - digits.size(), '0') + digits;
    };
    for (int i = 0; i < 130; ++i)
        tree.file(name(i), 100, 'x');
    const ScanResult scan = scanOf(tree);
    for (int i = 0; i < 130; ++i)
        tree.chmod(name(i), 0755);
    const Outcome o = find(scan);
    expectConsistent(o);
    EXPECT_EQ(o.report.checked, 130);
    EXPECT_EQ(o.report.skipped, 130);
    ASSERT_EQ(o.report.issues.size(), DuplicateFinder::kIssueLimit);
    for (std::size_t i = 0; i < o.report.issues.size(); ++i) // first come, first kept
        EXPECT_EQ(o.report.issues[i], std::string(kFileChangedOrCloud) + name(int(i)));
}

TEST(DuplicateFinder, ResultsDoNotDependOnTheOrderOfTheScan) {
    TempTree tree;
    const std::int64_t mib = 1 << 20;
    // Five copies of 1 MiB give back more than two copies of 3 MiB.
    for (const char* p : {"p/1", "q/2", "r/3", "s/4", "t/5"})
        tree.fileWithText(p, randomBytes(std::size_t(mib), 70));
    for (const char* p : {"big/x", "big/y"})
        tree.fileWithText(p, randomBytes(std::size_t(3 * mib), 71));
    // Two groups of equal worth: their order is left open.
    for (const char* p : {"tie/a1", "tie/a2", "other/a3"})
        tree.fileWithText(p, randomBytes(40'000, 72));
    for (const char* p : {"tie/b1", "other/b2", "tie/b3"})
        tree.fileWithText(p, randomBytes(40'000, 73));
    tree.fileWithText("tie/c", randomBytes(40'000, 74));
    tree.file("t/sparse-a", 0);
    tree.hardLink("p/1", "z/link");
    const ScanResult scan = scanOf(tree);

    // The same records again, every folder's children and the node list in reverse.
    std::vector<DiskNode> nodes{*scan.root()};
    for (DiskNode& n : scan.descendants(scan.rootPath()))
        nodes.push_back(std::move(n));
    for (DiskNode& n : nodes)
        std::reverse(n.children.begin(), n.children.end());
    std::reverse(nodes.begin(), nodes.end());
    const ScanResult reversed =
        ScanResult::fromNodes(scan.id(), scan.rootPath(), 0, 0, nodes, {}, 0);

    const Outcome a = find(scan), b = find(reversed);
    expectConsistent(a);
    expectConsistent(b);
    ASSERT_EQ(a.report.groups.size(), 4u);
    EXPECT_EQ(groups(a.report, tree)[0],
              (std::vector<std::string>{"p/1", "q/2", "r/3", "s/4", "t/5"}));
    EXPECT_EQ(groups(a.report, tree)[1], (std::vector<std::string>{"big/x", "big/y"}));
    EXPECT_EQ(a.report.checked, b.report.checked);
    // Up to the order of equal amounts, the same groups.
    auto byWorth = [](const DuplicateReport& r) {
        std::multimap<std::int64_t, std::pair<std::string, std::vector<std::string>>,
                      std::greater<>>
            out;
        for (const auto& g : r.groups) {
            std::vector<std::string> paths;
            for (const auto& f : g.files)
                paths.push_back(f.path);
            out.emplace(g.reclaimable(), std::make_pair(g.id, paths));
        }
        return out;
    };
    const auto left = byWorth(a.report), right = byWorth(b.report);
    ASSERT_EQ(left.size(), right.size());
    for (auto it = left.begin(); it != left.end(); it = left.upper_bound(it->first)) {
        const auto [l0, l1] = left.equal_range(it->first);
        const auto [r0, r1] = right.equal_range(it->first);
        std::set<std::pair<std::string, std::vector<std::string>>> ls, rs;
        for (auto i = l0; i != l1; ++i)
            ls.insert(i->second);
        for (auto i = r0; i != r1; ++i)
            rs.insert(i->second);
        EXPECT_EQ(ls, rs) << it->first;
    }
}

TEST(DuplicateFinder, CancellationAtAnyStageGivesNoReport) {
    TempTree tree;
    const std::string text = randomBytes(3'500'000, 80);
    tree.fileWithText("a", text);
    tree.fileWithText("b", text);
    tree.fileWithText("c", text);
    const ScanResult scan = scanOf(tree);

    struct Case {
        const char* name;
        std::function<bool(const DuplicateProgress*, std::int64_t checked)> cancelWhen;
    };
    const std::vector<Case> cases{
        {"before the start", [](const DuplicateProgress*, std::int64_t) { return true; }},
        {"while grouping",
         [](const DuplicateProgress* p, std::int64_t) { return p && p->phase == Phase::grouping; }},
        {"while sampling",
         [](const DuplicateProgress* p, std::int64_t) { return p && p->phase == Phase::sampling; }},
        {"after the first sample",
         [](const DuplicateProgress* p, std::int64_t checked) { return !p && checked == 1; }},
        {"while hashing",
         [](const DuplicateProgress* p, std::int64_t) { return p && p->phase == Phase::hashing; }},
        {"while verifying", [](const DuplicateProgress* p,
                               std::int64_t) { return p && p->phase == Phase::verifying; }},
    };
    for (const auto& c : cases) {
        CancellationFlag flag;
        if (c.name == std::string("before the start"))
            flag.cancel();
        std::vector<DuplicateProgress> after; // records that came after the flag was set
        std::int64_t countsAfter = 0;
        EXPECT_THROW(DuplicateFinder().find(
                         scan, 0, {}, flag,
                         [&](const DuplicateProgress& p) {
                             if (flag.isCancelled())
                                 after.push_back(p);
                             else if (c.cancelWhen(&p, 0))
                                 flag.cancel();
                         },
                         [&](std::int64_t checked, std::int64_t) {
                             if (flag.isCancelled())
                                 ++countsAfter;
                             else if (c.cancelWhen(nullptr, checked))
                                 flag.cancel();
                         }),
                     CancellationError)
            << c.name;
        // The next check point comes before any further read. Only the announcement of the
        // next sample may slip through, when the flag was set between two files.
        for (const auto& p : after)
            EXPECT_TRUE(p.phase == Phase::sampling &&
                        c.name == std::string("after the first sample"))
                << c.name << " " << int(p.phase);
        EXPECT_EQ(countsAfter, 0) << c.name;
    }
}

// The byte comparison is what a group finally rests on: a difference in any block keeps two
// files apart, whatever their digests said.
TEST(DuplicateFinder, TheByteComparisonReadsEveryBlock) {
    TempTree tree;
    constexpr std::size_t kMiB = 1 << 20;
    const std::string original = randomBytes(kMiB + kMiB / 2, 60);
    tree.fileWithText("original", original);
    struct Case {
        const char* what;
        std::string bytes;
        bool equal;
    };
    auto flipped = [&](std::size_t at) {
        std::string bytes = original;
        bytes[at] = char(bytes[at] ^ 1);
        return bytes;
    };
    const std::vector<Case> cases{
        {"same", original, true},
        {"first byte", flipped(0), false},
        {"inside the first block", flipped(70'000), false},
        {"end of the first block", flipped(kMiB - 1), false},
        {"second block", flipped(kMiB), false},
        {"one byte more", original + "!", false},
    };
    for (std::size_t i = 0; i < cases.size(); ++i)
        tree.fileWithText("copy" + std::to_string(i), cases[i].bytes);
    const ScanResult scan = scanOf(tree);
    const DiskNode first = *scan.node(tree.path("original"));
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const DiskNode other = *scan.node(tree.path("copy" + std::to_string(i)));
        EXPECT_EQ(Access::equal(first, other), cases[i].equal) << cases[i].what;
        EXPECT_EQ(Access::equal(other, first), cases[i].equal) << cases[i].what;
    }
}
