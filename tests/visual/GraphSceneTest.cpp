#include <gtest/gtest.h>

#include <QImage>
#include <QPainter>
#include <QTransform>

#include <algorithm>
#include <cmath>
#include <functional>
#include <set>

#include "model/PathText.h"
#include "support/FakeScan.h"
#include "visual/ChartText.h"
#include "visual/GraphScene.h"

using namespace tarnbridge;
using tarnbridge::test::FakeEntry;
using tarnbridge::test::fakeScan;

namespace {

const std::vector<StorageView> kCharts{StorageView::treemap, StorageView::sunburst, StorageView::flame,
                                       StorageView::bubbles, StorageView::mindMap};

// A tree of folders `fanout` wide and `levels` deep with files of falling sizes in each.
ScanResult wideTree(int fanout, int levels, int filesPerFolder)
{
    std::vector<FakeEntry> entries;
    std::function<void(const std::string&, int)> grow = [&](const std::string& prefix, int level) {
        for (int f = 0; f < filesPerFolder; ++f)
            entries.push_back({prefix + "file" + std::to_string(f) + ".bin", 1000 + (f * 7919) % 100000});
        if (level == levels)
            return;
        for (int d = 0; d < fanout; ++d)
            grow(prefix + "dir" + std::to_string(d) + "/", level + 1);
    };
    grow("", 0);
    return fakeScan("/r", entries);
}

GraphLayoutInput inputFor(const ScanResult& scan, StorageView view, int depth = 7)
{
    GraphLayoutInput in = GraphLayoutInput::withPaperColors(scan, scan.rootPath(), view, false);
    in.depth = depth;
    in.now = 1.8e9;
    return in;
}

int depthBelow(const std::string& path, const std::string& root)
{
    if (path == root)
        return 0;
    return int(std::count(path.begin() + std::ptrdiff_t(root.size()), path.end(), '/'));
}

int deepestMark(const GraphScene& scene, const std::string& root)
{
    int deepest = 0;
    for (const auto& mark : scene.marks)
        deepest = std::max(deepest, depthBelow(mark.node.path, root));
    return deepest;
}

// The box a placed label took, as label placement computes it.
QRectF takenBox(const GraphLabel& label)
{
    const bool twoLines = label.bytes.has_value();
    const double titleWidth = std::min(double(label.title.size()) * label.fontSize * 0.57, label.titleRect.width());
    const double width = twoLines ? std::max(titleWidth, 46.0) : titleWidth;
    const double left = (label.align & Qt::AlignRight) ? label.titleRect.right() - width : label.titleRect.x();
    const QRectF box(left, label.titleRect.y(), width, twoLines ? 31 : 14);
    QTransform turn;
    turn.translate(label.anchor.x(), label.anchor.y());
    turn.rotateRadians(label.rotation);
    turn.translate(-label.anchor.x(), -label.anchor.y());
    return turn.mapRect(box).adjusted(-2, -2, 2, 2);
}

bool overlaps(const QRectF& a, const QRectF& b)
{
    return a.left() < b.right() && b.left() < a.right() && a.top() < b.bottom() && b.top() < a.bottom();
}

} // namespace

TEST(GraphScene, TooSmallCancelledOrEmptyGiveEmptyScenes)
{
    const ScanResult scan = fakeScan("/r", {{"a/x.bin", 5000}, {"b.bin", 3000}, {"empty.bin", 0}});
    for (StorageView view : kCharts) {
        SCOPED_TRACE(std::string(rawValue(view)));
        const GraphLayoutInput in = inputFor(scan, view);
        EXPECT_TRUE(in.build(QRectF(0, 0, 31, 400)).marks.empty());
        EXPECT_FALSE(in.build(QRectF(0, 0, 32, 400)).marks.empty());
        EXPECT_TRUE(in.build(QRectF(0, 0, std::nan(""), 400)).marks.empty());
        CancellationFlag stop;
        stop.cancel();
        const GraphScene cancelled = in.build(QRectF(0, 0, 800, 600), &stop);
        EXPECT_TRUE(cancelled.marks.empty());
        EXPECT_TRUE(cancelled.items.empty());
        // Zero-byte files never get a mark, though the item list still names them.
        const GraphScene scene = in.build(QRectF(0, 0, 800, 600));
        for (const auto& mark : scene.marks)
            EXPECT_NE(mark.node.path, "/r/empty.bin");
        EXPECT_EQ(scene.items.size(), 3u);
    }
    // Only empty files: no visible children, so no marks in any chart.
    const ScanResult hollow = fakeScan("/r", {{"zero.txt", 0}, {"none/", 0}});
    for (StorageView view : kCharts) {
        const GraphScene scene = inputFor(hollow, view).build(QRectF(0, 0, 800, 600));
        EXPECT_TRUE(scene.marks.empty()) << rawValue(view);
        EXPECT_EQ(scene.items.size(), 2u);
    }
    EXPECT_TRUE(inputFor(scan, StorageView::table).build(QRectF(0, 0, 800, 600)).marks.empty());
}

TEST(GraphScene, DepthAndMarkLimitsPerChart)
{
    const ScanResult scan = wideTree(4, 6, 6); // 5461 folders, 32766 files
    const QRectF big(0, 0, 4000, 3000);
    struct Limit {
        StorageView view;
        std::size_t marks;
    };
    for (const Limit& limit : {Limit{StorageView::treemap, 6000}, Limit{StorageView::sunburst, 6000},
                               Limit{StorageView::flame, 6000}, Limit{StorageView::bubbles, 3000 + 60},
                               Limit{StorageView::mindMap, 1600 + 2 * (16 + 4 * 10)}}) {
        SCOPED_TRACE(std::string(rawValue(limit.view)));
        const GraphScene scene = inputFor(scan, limit.view, 9).build(big);
        EXPECT_LE(scene.marks.size(), limit.marks);
        EXPECT_GT(scene.marks.size(), 50u);
        // Every mark is indexed under its record, in painting order.
        std::size_t indexed = 0;
        for (const auto& [path, marks] : scene.pathsByNode) {
            indexed += marks.size();
            for (int m : marks)
                EXPECT_EQ(scene.marks[std::size_t(m)].node.path, path);
        }
        EXPECT_EQ(indexed, scene.marks.size());
        EXPECT_EQ(scene.hitIndex.rectangles().size(), scene.marks.size());
    }
    // Depth 1: only the first level, and the treemap opens nothing.
    const ScanResult shallow = wideTree(4, 1, 6);
    for (StorageView view : {StorageView::treemap, StorageView::flame, StorageView::sunburst}) {
        const GraphScene scene = inputFor(shallow, view, 1).build(big);
        EXPECT_EQ(deepestMark(scene, "/r"), 1) << rawValue(view);
        const std::size_t roots = view == StorageView::treemap ? 0 : 1; // flame bar, sunburst disc
        EXPECT_EQ(scene.marks.size(), 4 + 6 + roots) << rawValue(view);
    }
    // The marks limit is checked as each level starts, so the mind map passes it by at most
    // the siblings still in progress (a connector and a dot each); the others stop exactly.
    // The mind map never goes below five levels, or below the depth asked for.
    EXPECT_EQ(deepestMark(inputFor(scan, StorageView::mindMap, 9).build(big), "/r"), 5);
    EXPECT_EQ(deepestMark(inputFor(scan, StorageView::mindMap, 2).build(big), "/r"), 2);
    EXPECT_EQ(deepestMark(inputFor(scan, StorageView::bubbles, 3).build(big), "/r"), 3);
}

TEST(GraphScene, FiltersAndGeometry)
{
    const ScanResult scan = fakeScan("/r", {{"only/inner.bin", 8000},
                                            {"photo.png", 5000},
                                            {"song.mp3", 4000},
                                            {"pics/deep.png", 9000},
                                            {".hidden.png", 3000}});
    // A category shows only the root's direct files of that kind.
    GraphLayoutInput images = inputFor(scan, StorageView::treemap);
    images.categoryFilter = FileCategory::image;
    std::set<std::string> shown;
    for (const auto& mark : images.build(QRectF(0, 0, 800, 600)).marks)
        shown.insert(mark.node.path);
    EXPECT_EQ(shown, (std::set<std::string>{"/r/photo.png", "/r/.hidden.png"}));
    images.showHidden = false;
    EXPECT_EQ(images.build(QRectF(0, 0, 800, 600)).marks.size(), 1u);
    images.categoryFilter = FileCategory::video;
    EXPECT_TRUE(images.build(QRectF(0, 0, 800, 600)).marks.empty());

    // One child holding everything: its flame bar is the parent's width less 2.
    const ScanResult single = fakeScan("/r", {{"only/inner.bin", 8000}});
    const GraphScene flame = inputFor(single, StorageView::flame).build(QRectF(0, 0, 600, 400));
    ASSERT_GE(flame.marks.size(), 3u);
    EXPECT_NEAR(flame.marks[1].path.boundingRect().width(), 590 - 2, 1e-6); // area is 600 - 2 * 5
    EXPECT_NEAR(flame.marks[2].path.boundingRect().width(), 590 - 2, 1e-6); // the share, not the bar

    // Treemap tiles lie inside the scene and a folder's children inside it, below its title.
    const GraphScene treemap = inputFor(scan, StorageView::treemap).build(QRectF(0, 0, 800, 600));
    const QRectF area(5, 8, 790, 584);
    for (const auto& mark : treemap.marks) {
        const QRectF box = mark.path.boundingRect();
        EXPECT_TRUE(area.adjusted(-1e-6, -1e-6, 1e-6, 1e-6).contains(box)) << mark.node.path;
        if (mark.node.parent && *mark.node.parent != "/r") {
            const auto& parent = treemap.marks[std::size_t(treemap.pathsByNode.at(*mark.node.parent).front())];
            EXPECT_GE(box.top(), parent.path.boundingRect().top() + 17);
        }
    }
}

TEST(GraphScene, HitTestingUsesTheTrueShape)
{
    const ScanResult scan = fakeScan("/r", {{"a.bin", 5000}, {"b.bin", 5000}, {"c.bin", 5000}});
    const GraphScene scene = inputFor(scan, StorageView::sunburst).build(QRectF(0, 0, 600, 600));
    ASSERT_EQ(scene.marks.size(), 4u);
    ASSERT_TRUE(scene.center);
    const QPointF c = scene.center->center();
    // Three wedges of 120 degrees from the top, clockwise: a ends and b starts at 30 degrees.
    // There both bounding boxes hold the point, but the gap between the wedges is neither's.
    const double hole = scene.center->width() / 2 + 3, outer = 584 * 0.5 - 8 - 2;
    const double ring = (hole + outer) / 2;
    const auto at = [&](double degrees) {
        const double a = degrees * M_PI / 180;
        return QPointF(c.x() + ring * std::cos(a), c.y() + ring * std::sin(a));
    };
    EXPECT_GE(scene.hitIndex.candidates(at(30)).size(), 2u);
    EXPECT_EQ(scene.markAt(at(30)), -1);
    EXPECT_EQ(scene.marks[std::size_t(scene.markAt(at(-30)))].node.path, "/r/a.bin");
    EXPECT_EQ(scene.marks[std::size_t(scene.markAt(at(90)))].node.path, "/r/b.bin");
    EXPECT_EQ(scene.marks[std::size_t(scene.markAt(at(200)))].node.path, "/r/c.bin");
    EXPECT_EQ(scene.markAt(c), 0); // the centre disc
}

TEST(GraphScene, LabelsNeverOverlapAndBiggerItemsWin)
{
    const ScanResult scan = wideTree(5, 4, 8);
    for (StorageView view : kCharts) {
        SCOPED_TRACE(std::string(rawValue(view)));
        const QRectF rect(0, 0, 1200, 800);
        const GraphScene scene = inputFor(scan, view).build(rect);
        ASSERT_FALSE(scene.labels.empty());
        std::vector<QRectF> boxes;
        for (const auto& label : scene.labels) {
            const QRectF box = takenBox(label);
            EXPECT_TRUE(rect.contains(box));
            for (const QRectF& other : boxes)
                EXPECT_FALSE(overlaps(box, other));
            boxes.push_back(box);
        }
    }
    // Bigger items win: a mark with room for a label that did not get one was blocked by the
    // label of an item at least as big (or its box would leave the scene).
    for (StorageView view : {StorageView::treemap, StorageView::sunburst, StorageView::bubbles}) {
        SCOPED_TRACE(std::string(rawValue(view)));
        const QRectF rect(0, 0, 900, 700);
        const GraphScene scene = inputFor(scan, view).build(rect);
        std::vector<std::pair<QRectF, std::int64_t>> placed;
        std::set<std::pair<double, double>> anchors;
        for (const auto& label : scene.labels)
            anchors.insert({label.anchor.x(), label.anchor.y()});
        for (const auto& mark : scene.marks)
            if (anchors.count({mark.label.center().x(), mark.label.center().y()}))
                for (const auto& label : scene.labels)
                    if (label.anchor == mark.label.center())
                        placed.push_back({takenBox(label), mark.node.allocatedSize});
        int checked = 0;
        for (const auto& mark : scene.marks) {
            const QRectF area = mark.label;
            if (area.width() <= 38 || area.height() <= 17 || anchors.count({area.center().x(), area.center().y()}))
                continue;
            GraphLabel probe;
            probe.fontSize = area.width() < 80 ? 9 : 11;
            probe.title = ChartText::fit(QString::fromStdString(std::string(PathText::name(mark.node.path))),
                                         area.width() - 10, probe.fontSize);
            const double offset = area.height() > 38 ? 17 : 7;
            probe.titleRect = QRectF(area.left() + 5, area.center().y() - offset, area.width() - 10, 16);
            if (area.height() > 38)
                probe.bytes = QString();
            probe.rotation = mark.rotation;
            probe.anchor = area.center();
            const QRectF box = takenBox(probe);
            if (!rect.contains(box))
                continue;
            ++checked;
            const bool blocked = std::any_of(placed.begin(), placed.end(), [&](const auto& p) {
                return overlaps(p.first, box) && p.second >= mark.node.allocatedSize;
            });
            EXPECT_TRUE(blocked) << mark.node.path;
        }
        if (view == StorageView::treemap) {
            EXPECT_GT(checked, 0); // nested titles compete there, so some must lose
        }
    }
    // A sunburst whose rings are 18 points or thinner labels no wedge.
    const GraphScene thin = inputFor(wideTree(3, 8, 2), StorageView::sunburst, 9).build(QRectF(0, 0, 300, 300));
    EXPECT_FALSE(thin.marks.empty());
    EXPECT_TRUE(thin.labels.empty());
}

TEST(GraphScene, PaintsEveryMarkIntoAPicture)
{
    const ScanResult scan = wideTree(3, 3, 4);
    const GraphScene scene = inputFor(scan, StorageView::treemap).build(QRectF(0, 0, 400, 300));
    QImage image(400, 300, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::white);
    {
        QPainter painter(&image);
        paintScene(painter, scene, true);
    }
    // The middle of the biggest tile carries its fill colour.
    const auto& first = scene.marks.front();
    const QColor at = image.pixelColor(first.path.boundingRect().center().toPoint() + QPoint(0, 40));
    EXPECT_NE(at, QColor(Qt::white));
    // Labels change pixels that the marks alone leave alone.
    QImage bare(400, 300, QImage::Format_ARGB32_Premultiplied);
    bare.fill(Qt::white);
    {
        QPainter painter(&bare);
        paintScene(painter, scene, false);
    }
    EXPECT_NE(bare, image);
}

TEST(GraphScene, FlatChartsPaintTheSameAsTranslucentFills)
{
    const ScanResult scan = wideTree(4, 4, 5);
    for (StorageView view : {StorageView::sunburst, StorageView::flame}) {
        SCOPED_TRACE(std::string(rawValue(view)));
        const GraphLayoutInput in = inputFor(scan, view);
        GraphScene scene = in.build(QRectF(0, 0, 500, 400));
        ASSERT_TRUE(scene.flatBackground);
        const auto paint = [&](const GraphScene& s) {
            QImage image(500, 400, QImage::Format_ARGB32_Premultiplied);
            image.fill(in.background);
            QPainter painter(&image);
            paintScene(painter, s, false);
            painter.end();
            return image;
        };
        const QImage fast = paint(scene);
        scene.flatBackground.reset();
        const QImage exact = paint(scene);
        int worst = 0;
        for (int y = 0; y < 400; ++y)
            for (int x = 0; x < 500; ++x) {
                const QColor a = fast.pixelColor(x, y), b = exact.pixelColor(x, y);
                worst = std::max({worst, std::abs(a.red() - b.red()), std::abs(a.green() - b.green()),
                                  std::abs(a.blue() - b.blue())});
            }
        EXPECT_LE(worst, 4); // rounding at antialiased edges only
    }
    EXPECT_FALSE(inputFor(scan, StorageView::bubbles).build(QRectF(0, 0, 500, 400)).flatBackground);
}

namespace {

// Labels left of their dot in the mind map end next to the dot; those on the right start there.
TEST(MindMapLabels, HugTheirDotOnEitherSide)
{
    const ScanResult scan = wideTree(8, 2, 2);
    const GraphScene scene = inputFor(scan, StorageView::mindMap).build(QRectF(0, 0, 1600, 1000));
    int left = 0, right = 0;
    for (const GraphLabel& label : scene.labels) {
        const auto mark = std::find_if(scene.marks.begin(), scene.marks.end(), [&](const GraphMark& m) {
            return !m.label.isNull() && m.label.center() == label.anchor;
        });
        ASSERT_NE(mark, scene.marks.end());
        if (mark->node.path == scan.rootPath())
            continue; // the centre names itself inside its disc
        const QRectF dot = mark->path.boundingRect();
        const QRectF text = takenBox(label);
        if (label.align & Qt::AlignRight) {
            ++left;
            EXPECT_LT(text.right(), dot.left() + 1) << label.title.toStdString();
            EXPECT_GT(text.right(), dot.left() - 16) << label.title.toStdString() << " stands apart from its dot";
        } else {
            ++right;
            EXPECT_GT(text.left(), dot.right() - 1) << label.title.toStdString();
            EXPECT_LT(text.left(), dot.right() + 16) << label.title.toStdString();
        }
    }
    EXPECT_GT(left, 0);
    EXPECT_GT(right, 0);
}

} // namespace
