// Times the chart scenes: build(in:) of each chart for the root of a scan, labels included,
// and the painting of the biggest scene into a picture.
//
//   scene_bench PATH [--runs N] [--depth N] [--size WxH]     scan PATH first
//   scene_bench --from FILE [--runs N] …
//
// Prints the median of N warm runs (after one untimed run) for each chart, and the painting
// time of the scene with the most marks. Runs offscreen; no display needed.

#include <QGuiApplication>
#include <QImage>
#include <QPainter>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "model/Errors.h"
#include "scan/DiskScanner.h"
#include "storage/ScanJson.h"
#include "visual/GraphScene.h"

using namespace tarnbridge;

namespace {

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

template <class Work>
double millisecondsOf(Work&& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

// A scan of 60 folders of 110 files each, sizes spread over three orders of magnitude: its
// treemap fills the 6000-mark limit at 1600x1000.
ScanResult wideScan()
{
    std::vector<DiskNode> nodes;
    DiskNode root;
    root.path = "/wide";
    root.isDirectory = true;
    root.identity.mode = 040755;
    std::uint64_t inode = 2, seed = 12345;
    for (int f = 0; f < 60; ++f) {
        DiskNode folder;
        folder.path = "/wide/folder" + std::to_string(f);
        folder.parent = root.path;
        folder.isDirectory = true;
        folder.identity.mode = 040755;
        folder.identity.inode = inode++;
        for (int i = 0; i < 110; ++i) {
            DiskNode file;
            file.path = folder.path + "/file" + std::to_string(i) + ".bin";
            file.parent = folder.path;
            seed = seed * 6364136223846793005ull + 1442695040888963407ull;
            file.logicalSize = file.allocatedSize = file.ownLogicalSize = file.ownAllocatedSize =
                std::int64_t(1000 + (seed >> 33) % 1000000);
            file.fileCount = 1;
            file.identity.mode = 0100644;
            file.identity.inode = inode++;
            folder.logicalSize += file.logicalSize;
            folder.allocatedSize += file.allocatedSize;
            folder.fileCount += 1;
            folder.children.push_back(file.path);
            nodes.push_back(std::move(file));
        }
        root.logicalSize += folder.logicalSize;
        root.allocatedSize += folder.allocatedSize;
        root.fileCount += folder.fileCount;
        root.folderCount += 1;
        root.children.push_back(folder.path);
        nodes.push_back(std::move(folder));
    }
    nodes.push_back(std::move(root));
    return ScanResult::fromNodes(QUuid::createUuid(), "/wide", 0, 0, std::move(nodes), {}, 0);
}

} // namespace

int main(int argc, char** argv)
{
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QGuiApplication app(argc, argv);
    std::string path, from;
    int runs = 7, depth = 7, width = 1600, height = 1000;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--runs" && i + 1 < argc)
            runs = std::max(1, std::atoi(argv[++i]));
        else if (arg == "--depth" && i + 1 < argc)
            depth = std::clamp(std::atoi(argv[++i]), 1, 9);
        else if (arg == "--size" && i + 1 < argc && std::sscanf(argv[++i], "%dx%d", &width, &height) == 2)
            continue;
        else if (arg == "--from" && i + 1 < argc)
            from = argv[++i];
        else
            path = arg;
    }
    if (path.empty() && from.empty()) {
        std::fprintf(stderr, "usage: scene_bench PATH | --from FILE [--runs N] [--depth N] [--size WxH]\n");
        return 2;
    }
    try {
        CancellationFlag flag;
        const ScanResult scan = from.empty() ? DiskScanner::scan(path, flag) : ScanJson::readFile(from);
        std::printf("nodes                 %zu\n", scan.nodeCount());
        const QRectF rect(0, 0, width, height);
        GraphScene biggest;
        for (StorageView view : {StorageView::treemap, StorageView::sunburst, StorageView::flame,
                                 StorageView::bubbles, StorageView::mindMap}) {
            GraphLayoutInput input = GraphLayoutInput::withPaperColors(scan, scan.rootPath(), view, false);
            input.depth = depth;
            GraphScene scene = input.build(rect); // warm-up: fonts, caches
            std::vector<double> times;
            for (int r = 0; r < runs; ++r)
                times.push_back(millisecondsOf([&] { scene = input.build(rect); }));
            std::printf("%-10s build      %7.1f ms   %5zu marks  %4zu labels\n", std::string(rawValue(view)).c_str(),
                        median(times), scene.marks.size(), scene.labels.size());
            if (scene.marks.size() > biggest.marks.size())
                biggest = std::move(scene);
        }
        // Painting: the biggest scene above, a full 6000-mark treemap, and a sunburst of the same.
        const ScanResult wide = wideScan();
        GraphLayoutInput wideInput = GraphLayoutInput::withPaperColors(wide, "/wide", StorageView::treemap, false);
        const GraphScene full = wideInput.build(rect);
        wideInput.storageView = StorageView::sunburst;
        const GraphScene rings = wideInput.build(rect);
        for (const GraphScene* scene : std::vector<const GraphScene*>{&biggest, &full, &rings}) {
            QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
            std::vector<double> paints;
            for (int r = 0; r <= runs; ++r) {
                image.fill(Qt::white);
                const double ms = millisecondsOf([&] {
                    QPainter painter(&image);
                    paintScene(painter, *scene, true);
                });
                if (r > 0)
                    paints.push_back(ms);
            }
            std::printf("paint %5zu marks, %4zu labels into %dx%d: %6.1f ms\n", scene->marks.size(),
                        scene->labels.size(), width, height, median(paints));
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", describeError(error).c_str());
        return 1;
    }
    return 0;
}
