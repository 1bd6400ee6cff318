// Times the chart of the desktop app on a synthetic scan of 1,000,000 entries, offscreen at
// 1600×1000 and depth 7: for each of the five charts the scene build and the first paint, one
// hover step (hit test and outline over the cached picture), and the switch back to a scene
// that is still kept.
//
//   app_chart_bench [--entries N] [--runs N] [--pictures FOLDER]
//
// Budgets: build + first paint under 150 ms; a hover step under 2 ms; switching back under 16 ms.

#include <QApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QMouseEvent>
#include <QPainter>
#include <QSettings>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

#include "app/model/AppModel.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"
#include "app/views/ChartEnums.h"
#include "app/views/GraphView.h"
#include "BenchScan.h"

using namespace tarnbridge::app;
using tarnbridge::GraphLayoutInput;
using tarnbridge::GraphScene;
using tarnbridge::ScanPresentation;
using tarnbridge::ScanResult;
using tarnbridge::SnapshotStore;

namespace {

constexpr int kWidth = 1600;
constexpr int kHeight = 1000;
constexpr int kDepth = 7;

double medianMs(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double timeMs(const std::function<void()>& work) {
    QElapsedTimer timer;
    timer.start();
    work();
    return double(timer.nsecsElapsed()) / 1e6;
}

void report(const QString& what, double ms, double budget) {
    std::printf("%-44s %9.2f ms   budget %5.0f ms   %s\n", what.toUtf8().constData(), ms, budget,
                ms <= budget ? "ok" : "OVER");
}

bool waitFor(const std::function<bool()>& done, int ms = 60000) {
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > ms)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return true;
}

// What the view's worker does for a scene, timed here alone: the build, then the marks painted
// into the picture the GUI thread will only copy.
double buildMs(const ScanResult& scan, StorageView view) {
    GraphLayoutInput input =
        GraphLayoutInput::withPaperColors(scan, "/bench", chartView(view), false);
    input.depth = kDepth;
    input.now = double(QDateTime::currentSecsSinceEpoch());
    GraphScene scene;
    const double build = timeMs([&] { scene = input.build(QRectF(0, 0, kWidth, kHeight)); });
    QImage picture(kWidth, kHeight, QImage::Format_ARGB32_Premultiplied);
    const double paint = timeMs([&] {
        picture.fill(Qt::white);
        QPainter painter(&picture);
        tarnbridge::paintScene(painter, scene, true);
    });
    std::printf("  %zu marks, %zu labels: build %.1f ms, paint %.1f ms\n", scene.marks.size(), scene.labels.size(),
                build, paint);
    return build + paint;
}

// Pointer moves from mark to mark, each followed by the repaint it asks for.
double hoverStepMs(GraphView& view, int steps) {
    std::vector<QPointF> points;
    const std::size_t marks = view.scene()->marks.size();
    for (std::size_t i = 0; i < marks && int(points.size()) < steps;
         i += std::max<std::size_t>(1, marks / steps))
        if (const auto point = view.pointOn(int(i)))
            points.push_back(*point);
    std::vector<double> times;
    for (int round = 0; round < 3; ++round)
        for (const QPointF& at : points) {
            times.push_back(timeMs([&] {
                QMouseEvent move(QEvent::MouseMove, at, view.mapToGlobal(at), Qt::NoButton,
                                 Qt::NoButton, {});
                QApplication::sendEvent(&view, &move);
                QCoreApplication::processEvents();
            }));
        }
    if (view.hoveredMark() < 0)
        std::printf("  (the pointer found no mark: the figure below is not valid)\n");
    return times.empty() ? 0 : medianMs(times);
}

} // namespace

int main(int argc, char** argv) {
    std::size_t entries = 1'000'000;
    int runs = 3;
    QString pictures; // where to write a PNG of each chart, to look at
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!std::strcmp(argv[i], "--entries"))
            entries = std::size_t(std::atoll(argv[i + 1]));
        else if (!std::strcmp(argv[i], "--runs"))
            runs = std::max(1, std::atoi(argv[i + 1]));
        else if (!std::strcmp(argv[i], "--pictures"))
            pictures = QString::fromLocal8Bit(argv[i + 1]);
    }
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    QTemporaryDir state;
    QSettings settings(state.filePath(QStringLiteral("settings.ini")), QSettings::IniFormat);

    const ScanResult scan = tarnbridge::bench::syntheticScan(entries);
    const ScanPresentation presentation = ScanPresentation::make(scan);
    std::printf("synthetic scan: %zu entries, chart %dx%d, depth %d\n\n", scan.nodeCount(), kWidth,
                kHeight, kDepth);

    AppModel model(SnapshotStore(state.filePath(QStringLiteral("Snapshots")).toStdString()),
                   state.path().toStdString(), false, settings);
    model.session().installScan(scan, presentation, "/bench", false);
    ExploreState& explore = model.explore();
    explore.setVisualizationDepth(kDepth);
    // No chart until the loop asks for one, so that no build is under way when it starts.
    explore.setStorageView(StorageView::table);

    GraphView view(model);
    view.resize(kWidth, kHeight);
    view.show();

    const StorageView charts[] = {StorageView::treemap, StorageView::sunburst, StorageView::flame,
                                  StorageView::bubbles, StorageView::mindMap};
    for (StorageView chart : charts) {
        const QString name = viewTitle(chart);
        std::printf("%s\n", name.toUtf8().constData());
        std::vector<double> builds;
        for (int i = 0; i < runs; ++i)
            builds.push_back(buildMs(scan, chart));
        // Through the view: the pause, the worker, the delivery; the first paint is timed
        // as the scene arrives, before the event loop can paint it.
        double paint = -1;
        const auto connection = QObject::connect(&view, &GraphView::sceneShown, &view, [&] {
            // The worker painted the marks: the GUI thread only copies them.
            const int before = view.pictureBuilds();
            paint = timeMs([&] { view.repaint(); });
            if (view.pictureBuilds() != before)
                paint = -1;
        });
        QElapsedTimer shown;
        shown.start();
        explore.setStorageView(chart);
        if (!waitFor([&] { return view.scene() && !view.isPending(); }) || paint < 0) {
            std::printf("  the scene never came, or the GUI thread painted its marks itself\n");
            return 1;
        }
        QObject::disconnect(connection);
        const double delivered = double(shown.nsecsElapsed()) / 1e6 - GraphView::kBuildDelayMs;
        report(name + QStringLiteral(": build + paint on the worker"), medianMs(builds), 150);
        report(name + QStringLiteral(": first paint on the GUI thread"), paint, 16);
        report(name + QStringLiteral(": ready on screen"), medianMs(builds) + paint, 150);
        report(name + QStringLiteral(": through the view, less the pause"), delivered, 150);
        report(name + QStringLiteral(": hover step"), hoverStepMs(view, 200), 2);
        if (!pictures.isEmpty())
            view.grab().save(pictures + QStringLiteral("/bench-") + name + QStringLiteral(".png"));
        std::printf("\n");
    }

    // The three latest scenes are kept: flame, bubbles and mind map.
    for (StorageView chart : {StorageView::flame, StorageView::bubbles, StorageView::mindMap}) {
        std::vector<double> times;
        for (int i = 0; i < runs; ++i) {
            explore.setStorageView(chart == StorageView::flame ? StorageView::mindMap
                                                               : StorageView::flame);
            view.repaint();
            times.push_back(timeMs([&] {
                explore.setStorageView(chart);
                view.repaint();
            }));
            if (view.isPending())
                std::printf("  (%s was not kept: the figure below is not valid)\n",
                            viewTitle(chart).toUtf8().constData());
        }
        report(QStringLiteral("switch back to ") + viewTitle(chart), medianMs(times), 16);
    }
    return 0;
}
