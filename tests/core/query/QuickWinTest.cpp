#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "model/PathText.h"
#include "query/ScanPresentation.h"
#include "support/FakeScan.h"

using namespace tarnbridge;
using tarnbridge::test::fakeScan;

namespace {

std::vector<std::string> pathsOf(const QuickWin& win)
{
    std::vector<std::string> out;
    for (const auto& n : win.nodes)
        out.push_back(n.path);
    std::sort(out.begin(), out.end());
    return out;
}

const QuickWin& winOf(const std::vector<QuickWin>& wins, QuickWinKind kind)
{
    return *std::find_if(wins.begin(), wins.end(), [&](const QuickWin& w) { return w.kind == kind; });
}

} // namespace

TEST(QuickWin, FirstRuleDecidesAndNestingReducesWithinAKind)
{
    const ScanResult scan = fakeScan("/Downloads", {
        {"Users/a/Downloads/file.bin", 10},
        {"Users/a/Library/Caches/Downloads/x", 5},   // rule 1 before rule 12
        {"Users/a/Library/Caches/app/y", 7},
        {"opt/Caches/z", 3},                          // no /Library/: no match
        {"x/build/build/out.o", 4},
        {"p/node_modules/x/build/o", 2},              // kept in builds too
        {"p/.cache/c", 1},
        {"v/disk.VMDK", 2},
        {"v/old.vmwarevm/", 0},
        {"m/a.mov", 100'000'000}, {"m/b.mov", 99'999'999}, {"m/c.zip", 200'000'000},
        {"home/u/.local/share/Trash/files/old", 9},
        {"media/usb/.Trash-1000/files/f", 8},
        {"var/log/journal/j", 6},
        {"dl/setup.AppImage", 3}, {"dl/tool.deb", 3}, {"dl/Old.SparseImage", 3}, {"dl/.sparseimage", 3},
        {"dl/not-an-installer.dmg/inside", 1},
        {"proj/.venv/lib", 2},
        {"home/u/.local/share/containers/storage", 4},
        {"vm/big.img", 1'000'000'001}, {"vm/small.img", 1'000'000'000},
    });
    const auto wins = QuickWin::discover(scan);
    ASSERT_EQ(wins.size(), 12u);
    EXPECT_EQ(wins.front().kind, QuickWinKind::downloads);
    using V = std::vector<std::string>;
    // The root itself never matches, even when it is named Downloads.
    EXPECT_EQ(pathsOf(winOf(wins, QuickWinKind::downloads)),
              (V{"/Downloads/Users/a/Downloads", "/Downloads/Users/a/Library/Caches/Downloads"}));
    EXPECT_EQ(pathsOf(winOf(wins, QuickWinKind::caches)),
              (V{"/Downloads/Users/a/Library/Caches", "/Downloads/p/.cache", "/Downloads/var/log/journal"}));
    EXPECT_EQ(pathsOf(winOf(wins, QuickWinKind::builds)),
              (V{"/Downloads/p/node_modules/x/build", "/Downloads/x/build"}));
    EXPECT_EQ(pathsOf(winOf(wins, QuickWinKind::dependencies)),
              (V{"/Downloads/p/node_modules", "/Downloads/proj/.venv"}));
    EXPECT_EQ(pathsOf(winOf(wins, QuickWinKind::virtualMachines)),
              (V{"/Downloads/home/u/.local/share/containers", "/Downloads/v/disk.VMDK",
                 "/Downloads/v/old.vmwarevm", "/Downloads/vm/big.img"}));
    EXPECT_EQ(pathsOf(winOf(wins, QuickWinKind::media)), V{"/Downloads/m/a.mov"});
    EXPECT_EQ(pathsOf(winOf(wins, QuickWinKind::trash)),
              (V{"/Downloads/home/u/.local/share/Trash", "/Downloads/media/usb/.Trash-1000"}));
    EXPECT_EQ(pathsOf(winOf(wins, QuickWinKind::installers)),
              (V{"/Downloads/dl/Old.SparseImage", "/Downloads/dl/setup.AppImage", "/Downloads/dl/tool.deb"}));
    EXPECT_TRUE(winOf(wins, QuickWinKind::mail).nodes.empty());
    // Biggest first within a kind.
    const auto& caches = winOf(wins, QuickWinKind::caches).nodes;
    EXPECT_TRUE(std::is_sorted(caches.begin(), caches.end(),
                               [](const DiskNode& a, const DiskNode& b) { return a.allocatedSize > b.allocatedSize; }));
}

TEST(QuickWin, UniqueBytesCountOverlapsOnce)
{
    const ScanResult scan = fakeScan("/r", {{"p/node_modules/a/build/x", 100}, {"p/node_modules/b", 50}, {"q/dist/y", 7}});
    const ScanPresentation p = ScanPresentation::make(scan);
    EXPECT_EQ(winOf(p.quickWins, QuickWinKind::builds).bytes(), 107);
    EXPECT_EQ(winOf(p.quickWins, QuickWinKind::dependencies).bytes(), 150);
    EXPECT_EQ(p.uniqueQuickWinBytes, 157);

    DiskNode root, child, other;
    root.path = "/";
    child.path = "/a";
    other.path = "/b";
    EXPECT_EQ(QuickWin::topmost({child, root, other}).size(), 1u);
    EXPECT_EQ(QuickWin::topmost({other, child, child}).front().path, "/a");
}

TEST(ScanPresentation, TypeTotalsByCategoryAndChildFolder)
{
    const ScanResult scan = fakeScan("/r", {{"top.png", 10, 4096}, {"f/a.mp4", 20, 8192}, {"f/deep/b.txt", 30, 4096},
                                            {"empty/"}, {"g/c.PNG", 5, 4096}});
    const TypeDistribution d = distribution(scan, "/r");
    EXPECT_EQ(d.total.logical.at(FileCategory::image), 15);
    EXPECT_EQ(d.total.allocated.at(FileCategory::image), 8192);
    EXPECT_EQ(d.total.logical.at(FileCategory::video), 20);
    EXPECT_EQ(d.total.logical.count(FileCategory::audio), 0u);
    ASSERT_EQ(d.folders.size(), 2u); // "empty" has no entry, "f/deep" is inside "f"
    EXPECT_EQ(d.folders.at("/r/f").logical.at(FileCategory::document), 30);
    EXPECT_EQ(d.folders.at("/r/g").values(SizeMeasure::allocated).at(FileCategory::image), 4096);
    EXPECT_TRUE(distribution(scan, "/missing").folders.empty());
    CancellationFlag cancelled;
    cancelled.cancel();
    const TypeDistribution none = distribution(scan, "/r", &cancelled);
    EXPECT_TRUE(none.total.allocated.empty());
    EXPECT_TRUE(none.folders.empty());

    const ScanResult kinds = fakeScan("/k", {{"Project.xcodeproj/x", 1}, {"plain/y", 1}, {"movie.mkv", 1}});
    const ScanData& k = kinds.data();
    EXPECT_EQ(kindName(k, kinds.find("/k/Project.xcodeproj")), "Application");
    EXPECT_EQ(kindName(k, kinds.find("/k/plain")), "Folder");
    EXPECT_EQ(kindName(k, kinds.find("/k/movie.mkv")), "Video");
    EXPECT_EQ(itemCount(k[ScanData::rootId]), 5);
    EXPECT_EQ(chartSymbol(k, kinds.find("/k/Project.xcodeproj")), "package-x-generic");
    EXPECT_EQ(chartSymbol(k, kinds.find("/k/plain")), "folder");
    EXPECT_EQ(chartSymbol(k, kinds.find("/k/movie.mkv")), "video-x-generic");
}

// Type totals are summed by one pass over the whole arena for a large part of the scan and by a
// walk of the subtree for a small one; both must agree with totals made path by path.
TEST(ScanPresentation, TypeTotalsEqualAPathByPathSumWhateverTheWalk)
{
    std::mt19937_64 rng(3);
    const char* const folders[] = {"big/", "big/a/", "big/a/b/", "big/c/", "small/", "small/d/", "e/"};
    const char* const extensions[] = {".mp4", ".PNG", ".txt", ".tar.gz", ".bin", "", ".flac", ".rs"};
    std::vector<test::FakeEntry> entries;
    for (int i = 0; i < 900; ++i) {
        const std::size_t folder = i < 6 ? 4 + i % 2 : (rng() % 20 == 0 ? 6 : rng() % 4);
        entries.push_back({std::string(folders[folder]) + "f" + std::to_string(i) + extensions[rng() % 8],
                           std::int64_t(rng() % 100'000), std::int64_t(rng() % 50) * 4096});
    }
    entries.push_back({"loose.jpg", 7, 4096});
    const ScanResult scan = fakeScan("/r", entries);
    const ScanData& d = scan.data();

    auto byPath = [&](const std::string& focus) {
        TypeDistribution out;
        for (NodeId id = 0; id < d.size(); ++id) {
            const std::string path = d.path(id);
            if (d[id].isDirectory() || !PathText::contains(path, focus) || path == focus)
                continue;
            const FileCategory category = FileCategory::classify(path);
            out.total.add(d[id], category);
            const std::string rest = path.substr(focus.size() + 1);
            if (const auto slash = rest.find('/'); slash != std::string::npos)
                out.folders[focus + "/" + rest.substr(0, slash)].add(d[id], category);
        }
        return out;
    };
    for (const std::string focus : {"/r", "/r/big", "/r/small", "/r/big/a", "/r/e"}) {
        const TypeDistribution got = distribution(scan, focus);
        const TypeDistribution want = byPath(focus);
        EXPECT_EQ(got.total, want.total) << focus;
        EXPECT_EQ(got.folders, want.folders) << focus;
    }
    const ScanPresentation p = ScanPresentation::make(scan);
    const TypeDistribution root = byPath("/r");
    EXPECT_EQ(p.types, root.total);
    EXPECT_EQ(p.folderTypes, root.folders);
}

// A scan large enough for the quick wins and type sums to be shared between two threads: what
// they find must be what the generator put there, whichever thread read the name.
TEST(ScanPresentation, LargeScansFindWhatWasPutInThem)
{
    auto data = std::make_shared<ScanData>();
    NodeRecord folder;
    folder.flags = NodeRecord::directory;
    folder.mode = 040755;
    data->addRoot("/big", folder);
    std::map<QuickWinKind, std::set<std::string>> expected;
    FileTypeTotals expectedTypes;
    const char* const extensions[] = {".mp4", ".PNG", ".txt", ".dmg", ".bin", "", ".deb", ".rs"};
    std::vector<NodeId> level1, level2;
    for (int i = 0; i < 300; ++i)
        level1.push_back(data->append(ScanData::rootId, folder, "top" + std::to_string(i)));
    for (NodeId parent : level1) {
        for (int i = 0; i < 40; ++i) {
            const std::size_t n = level2.size();
            std::string name = n % 97 == 5 ? "node_modules" : n % 89 == 7 ? "build" : "sub" + std::to_string(i);
            const NodeId id = data->append(parent, folder, name);
            level2.push_back(id);
            if (name == "node_modules")
                expected[QuickWinKind::dependencies].insert(data->path(id));
            else if (name == "build")
                expected[QuickWinKind::builds].insert(data->path(id));
        }
    }
    std::size_t count = 0;
    for (NodeId parent : level2) {
        for (int i = 0; i < 20; ++i, ++count) {
            NodeRecord file;
            file.flags = NodeRecord::regularFile;
            file.mode = 0100644;
            const std::string name = "f" + std::to_string(i) + extensions[count % 8];
            file.logicalSize = count % 1013 == 0 ? 150'000'000 : std::int64_t(count % 5000);
            file.allocatedSize = (file.logicalSize + 4095) / 4096 * 4096;
            const NodeId id = data->append(parent, file, name);
            const FileCategory category = FileCategory::classify(name);
            expectedTypes.add(file, category);
            if (name.ends_with(".dmg") || name.ends_with(".deb"))
                expected[QuickWinKind::installers].insert(data->path(id));
            else if (file.logicalSize >= 100'000'000 && (category == FileCategory::video || category == FileCategory::image))
                expected[QuickWinKind::media].insert(data->path(id));
        }
    }
    data->seal();
    const ScanResult scan(std::move(data));
    ASSERT_GT(scan.nodeCount(), 250'000u);

    const ScanPresentation p = ScanPresentation::make(scan);
    for (const auto& wins : {QuickWin::discover(scan), p.quickWins}) {
        for (const QuickWin& win : wins) {
            const std::vector<std::string> got = pathsOf(win);
            const std::set<std::string>& want = expected[win.kind];
            EXPECT_EQ(std::set<std::string>(got.begin(), got.end()), want) << info(win.kind).rawValue;
            EXPECT_EQ(got.size(), want.size());
        }
    }
    EXPECT_EQ(p.types, expectedTypes);
    EXPECT_EQ(p.folderTypes, distribution(scan, "/big").folders);
    EXPECT_EQ(p.folderTypes.size(), 300u);

    CancellationFlag cancelled;
    cancelled.cancel();
    EXPECT_THROW(ScanPresentation::make(scan, &cancelled), CancellationError);
}

// One made-up tree per rule, each holding what only that rule finds, and a near miss beside
// it that no rule takes. A rule that is dropped, or looks at the wrong name or place, leaves its
// tree unfound or finds the near miss.
TEST(QuickWin, EveryRuleFindsTheTreeMadeForIt)
{
    struct Case {
        std::string entry;   // what the tree holds
        std::string match;   // what the rule must find; "" = nothing
        QuickWinKind kind;
    };
    using K = QuickWinKind;
    std::vector<Case> cases{
        {"u/Downloads/a.bin", "u/Downloads", K::downloads},
        {"u/Library/Developer/Xcode/DerivedData/App-x/b", "u/Library/Developer/Xcode/DerivedData", K::derivedData},
        {"u/Developer/DerivedData/b", "", K::derivedData},
        {"u/Library/Developer/CoreSimulator/Devices/ID/data", "u/Library/Developer/CoreSimulator/Devices",
         K::simulators},
        {"u/Devices/ID/data", "", K::simulators},
        {"p/node_modules/left-pad/index.js", "p/node_modules", K::dependencies},
        {"p/.venv/lib/x.py", "p/.venv", K::dependencies},
        {"p/venv/lib/x.py", "p/venv", K::dependencies},
        {"p/.tox/py311/x", "p/.tox", K::dependencies},
        {"u/.android/avd/x", "u/.android", K::android},
        {"u/.gradle/caches/x", "u/.gradle", K::android},
        {"u/Android/Sdk/x", "u/Android", K::android},
        {"u/.colima/default/x", "u/.colima", K::virtualMachines},
        {"u/.orbstack/x", "u/.orbstack", K::virtualMachines},
        {"u/Virtual Machines.localized/x", "u/Virtual Machines.localized", K::virtualMachines},
        {"u/Library/Containers/com.docker.docker/x", "u/Library/Containers/com.docker.docker", K::virtualMachines},
        {"u/OrbStack/x", "u/OrbStack", K::virtualMachines},
        {"vm/disk.vmdk", "vm/disk.vmdk", K::virtualMachines},
        {"vm/disk.qcow2", "vm/disk.qcow2", K::virtualMachines},
        {"vm/disk.vhdx", "vm/disk.vhdx", K::virtualMachines},
        {"vm/Windows.pvm/x", "vm/Windows.pvm", K::virtualMachines},
        {"vm/Old.vmwarevm/x", "vm/Old.vmwarevm", K::virtualMachines},
        {"home/u/.local/share/containers/storage/x", "home/u/.local/share/containers", K::virtualMachines},
        {"srv/containers/x", "", K::virtualMachines},
        {"u/.Trash/old.txt", "u/.Trash", K::trash},
        {"home/u/.local/share/Trash/files/old.txt", "home/u/.local/share/Trash", K::trash},
        {"media/usb/.Trash-1000/files/old.txt", "media/usb/.Trash-1000", K::trash},
        {"u/Trash/old.txt", "", K::trash},
        {"media/usb/.Trash-me/old.txt", "", K::trash},
        {"u/Library/Mail/V10/x.emlx", "u/Library/Mail", K::mail},
        {"u/Mail/x.emlx", "", K::mail},
        {"u/.cache/thumbnails/x", "u/.cache", K::caches},
        {"u/.npm/_cacache/x", "u/.npm", K::caches},
        {"u/Library/Caches/com.example/x", "u/Library/Caches", K::caches},
        {"u/Library/Logs/x.log", "u/Library/Logs", K::caches},
        {"var/log/journal/id/system.journal", "var/log/journal", K::caches},
        {"u/Logs/x.log", "", K::caches},
        {"u/journal/x", "", K::caches},
        {"i/Setup.dmg", "i/Setup.dmg", K::installers},
        {"i/Setup.pkg", "i/Setup.pkg", K::installers},
        {"i/debian.iso", "i/debian.iso", K::installers},
        {"i/Disk.sparseimage", "i/Disk.sparseimage", K::installers},
        {"i/tool.deb", "i/tool.deb", K::installers},
        {"i/tool.rpm", "i/tool.rpm", K::installers},
        {"i/Tool.AppImage", "i/Tool.AppImage", K::installers},
        {"i/app.flatpak", "i/app.flatpak", K::installers},
        {"i/core.snap", "i/core.snap", K::installers},
        {"i/Setup.dmg.part", "", K::installers},
    };
    for (const char* name : {".build", "build", "dist", ".next", "target", ".nuxt", "__pycache__", ".pytest_cache",
                             ".dart_tool", "Pods", ".turbo", ".parcel-cache"})
        cases.push_back({std::string("w/") + name + "/out.o", std::string("w/") + name, K::builds});
    cases.push_back({"w/builds/out.o", "", K::builds});

    for (const Case& c : cases) {
        const ScanResult scan = fakeScan("/r", {{c.entry, 5'000}});
        const auto wins = QuickWin::discover(scan);
        ASSERT_EQ(wins.size(), 12u);
        const std::vector<std::string> expected = c.match.empty() ? std::vector<std::string>{}
                                                                  : std::vector<std::string>{"/r/" + c.match};
        EXPECT_EQ(pathsOf(winOf(wins, c.kind)), expected) << c.entry;
        // Nothing else claims the tree (".Trash-1000" and "u/Library/…" hold nothing else either).
        for (const QuickWin& win : wins) {
            if (win.kind != c.kind) {
                EXPECT_TRUE(win.nodes.empty()) << c.entry << " also in " << info(win.kind).rawValue;
            }
        }
    }

    // The size rules, by their thresholds.
    const ScanResult sized = fakeScan("/r", {{"m/film.mkv", 100'000'000}, {"m/song.flac", 150'000'000},
                                             {"m/photo.tiff", 120'000'000}, {"m/short.mp4", 99'999'999},
                                             {"d/disk.img", 1'000'000'001}, {"d/floppy.img", 1'000'000'000},
                                             {"d/vbox.vdi", 2'000'000'000}, {"d/small.vdi", 1'000}});
    const auto wins = QuickWin::discover(sized);
    EXPECT_EQ(pathsOf(winOf(wins, K::media)),
              (std::vector<std::string>{"/r/m/film.mkv", "/r/m/photo.tiff", "/r/m/song.flac"}));
    EXPECT_EQ(pathsOf(winOf(wins, K::virtualMachines)), (std::vector<std::string>{"/r/d/disk.img", "/r/d/vbox.vdi"}));
}
