#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "../model/AppFixture.h"
#include "../model/Gate.h"
#include "app/model/ScanSession.h"
#include "app/views/GraphView.h"
#include "scan/DiskScanner.h"

namespace tarnbridge::test {

// A model over a small scanned tree in a private home, and a chart of it on screen.
//   Scan/Big/{a.bin 4 MB, b.bin 2 MB}  Scan/Medium/{c.bin 1 MB, inner/d.bin 500 kB}
//   Scan/loose.bin 1.5 MB  Scan/notes.txt 300 kB
struct ViewsFixture {
    AppFixture f;
    std::string root = f.tree().folder("home/Scan");
    std::string big = f.tree().folder("home/Scan/Big");
    std::string medium = f.tree().folder("home/Scan/Medium");
    std::string a = f.tree().file("home/Scan/Big/a.bin", 4'000'000);
    std::string b = f.tree().file("home/Scan/Big/b.bin", 2'000'000);
    std::string c = f.tree().file("home/Scan/Medium/c.bin", 1'000'000);
    std::string d = f.tree().file("home/Scan/Medium/inner/d.bin", 500'000);
    std::string loose = f.tree().file("home/Scan/loose.bin", 1'500'000);
    std::string notes = f.tree().file("home/Scan/notes.txt", 300'000);

    explicit ViewsFixture(app::AppServices services = {})
        : f(std::move(services)) {}

    app::AppModel& app() { return f.app(); }
    app::ScanSession& session() { return f.app().session(); }

    ::testing::AssertionResult scan() {
        session().startScan(root);
        if (!waitUntil([&] { return !session().scanning(); }))
            return ::testing::AssertionFailure() << "the scan did not finish";
        if (!session().scan() || session().scan()->rootPath() != root)
            return ::testing::AssertionFailure() << "no scan of " << root << " was installed";
        return ::testing::AssertionSuccess();
    }
};

// A scan that sends one progress record whose live preview charts the whole tree, then waits
// at a gate before it finishes.
struct PreviewingScanner {
    Gate gate;
    // Declared after the fixture, it opens the gate even when a test fails early, so that the
    // worker ends before the model waits for it.
    struct Release {
        Gate& gate;
        ~Release() { gate.open(); }
    };
    app::AppServices services() {
        app::AppServices s;
        s.scan = [this](const std::string& root, const CancellationFlag& flag, ScanNavigation*,
                        const ScanProgressCallback& progress) {
            ScanResult full = DiskScanner::scan(root, flag, nullptr, {});
            ScanProgress record;
            record.path = root;
            ScanFolderPreview browsing;
            browsing.rootPath = root;
            browsing.folder = *full.root();
            browsing.ancestors = {browsing.folder};
            browsing.chart = full;
            record.browsing = std::move(browsing);
            progress(record);
            gate.hold();
            return full;
        };
        return s;
    }
};

// Waits until the chart shows the scene of the model's current state.
inline ::testing::AssertionResult sceneReady(const app::GraphView& view) {
    if (!waitUntil([&] { return view.scene() && !view.isPending(); }))
        return ::testing::AssertionFailure() << "no scene for " << view.layoutKey();
    return ::testing::AssertionSuccess();
}

// The first mark drawn for `path`, or -1.
inline int markOf(const app::GraphView& view, const std::string& path) {
    const auto hit = view.scene()->pathsByNode.find(path);
    return hit == view.scene()->pathsByNode.end() || hit->second.empty() ? -1 : hit->second.front();
}

// A point where the mark of `path` lies on top; fails the test when there is none.
inline QPoint pointOf(const app::GraphView& view, const std::string& path) {
    const int mark = markOf(view, path);
    EXPECT_GE(mark, 0) << path << " has no mark";
    const auto point = view.pointOn(mark);
    EXPECT_TRUE(point) << path << " is covered everywhere";
    return point ? point->toPoint() : QPoint();
}

} // namespace tarnbridge::test
