// Times the tool screens of the desktop app offscreen, on the GUI thread:
//  - Monitor: a reading of 300 processes applied and the screen repainted;
//  - Snapshots: a comparison of 1,000,000 rows shown (first page drawn), then its filters;
//  - Duplicates: a report of 10,000 groups shown (first 30 groups drawn), then the name filter.
//
//   app_tools_bench [--runs N] [--rows N] [--groups N]
//
// Budgets: monitor 5 ms; change list 100 ms, filters 150 ms; duplicates 50 ms, filter 100 ms.

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QElapsedTimer>
#include <QSettings>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "BenchScan.h"
#include "app/model/ActivityMonitor.h"
#include "app/model/AppModel.h"
#include "app/model/DuplicateSearch.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"
#include "app/model/SnapshotFlow.h"
#include "app/tools/DuplicatesScreen.h"
#include "app/tools/MonitorScreen.h"
#include "app/tools/SnapshotsScreen.h"

using namespace tarnbridge;
using namespace tarnbridge::app;

namespace {

double medianMs(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double timeMs(const std::function<void()>& work)
{
    QElapsedTimer timer;
    timer.start();
    work();
    return double(timer.nsecsElapsed()) / 1e6;
}

bool waitFor(const std::function<bool()>& done, int ms = 600000)
{
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > ms)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return true;
}

void report(const char* what, double ms, double budget)
{
    std::printf("%-52s %9.2f ms   budget %5.0f ms   %s\n", what, ms, budget, ms <= budget ? "ok" : "OVER");
}

MonitorSample busyMachine(int processes, int round)
{
    MonitorSample sample;
    sample.cpu = 20 + round % 50;
    sample.loadAverages = {1.5, 1.2, 0.9};
    sample.memoryUsed = 6'000'000'000 + round * 1'000'000;
    sample.memoryTotal = 16'000'000'000;
    for (int i = 0; i < processes; ++i)
        sample.processes.push_back({i + 1, "process-" + std::to_string(i), double((i * 7 + round) % 300) / 3,
                                    std::int64_t((i * 13 + round) % 997) * 1'000'000});
    sample.volumes = {{"/", "System Disk", 500'000'000'000, 120'000'000'000 + round, 0}};
    return sample;
}

void monitorBench(AppModel& model, std::shared_ptr<MonitorSample> next, int runs)
{
    MonitorScreen screen(model);
    screen.resize(1400, 900);
    screen.show();
    model.monitor().setPeriod(std::chrono::milliseconds(1));
    std::vector<double> times;
    for (int round = 0; round < runs * 20; ++round) {
        *next = busyMachine(300, round);
        const std::size_t before = model.monitor().history().size();
        model.monitor().start();
        waitFor([&] { return model.monitor().history().size() > before || before == ActivityMonitor::kHistoryLimit; });
        model.monitor().stopWork();
        model.monitorPool().waitForDone();
        QCoreApplication::processEvents();
        times.push_back(timeMs([&] {
            screen.showSample();
            screen.repaint();
        }));
    }
    report("monitor: a reading of 300 processes, repainted", medianMs(times), 5);
}

// The current scan holds `rows` entries; the saved one holds the root alone, so that every
// entry is a change.
void snapshotBench(AppModel& model, std::size_t rows, int runs)
{
    const ScanResult scan = bench::syntheticScan(rows);
    model.session().installScan(scan, ScanPresentation::make(scan), scan.rootPath(), false);
    DiskNode root = *scan.root();
    root.children.clear();
    const ScanResult bare = ScanResult::fromNodes(QUuid::createUuid(), scan.rootPath(), 0, 0, {root}, {}, 0);
    const SnapshotRecord record = model.store().save(bare, "before");
    model.snapshots().readSnapshotCatalog();
    model.snapshots().compareSnapshot(record);
    if (!waitFor([&] { return !model.snapshots().busy(); }) || model.snapshots().changes().empty()) {
        std::printf("snapshots: the comparison did not arrive\n");
        return;
    }
    std::printf("snapshots: %zu changes\n", model.snapshots().changes().size());
    std::vector<double> first;
    std::vector<double> filters;
    for (int run = 0; run < runs; ++run) {
        std::unique_ptr<SnapshotsScreen> screen;
        first.push_back(timeMs([&] {
            screen = std::make_unique<SnapshotsScreen>(model);
            screen->resize(1400, 900);
            screen->show();
            screen->repaint();
        }));
        filters.push_back(timeMs([&] {
            screen->minimumChange()->setCurrentIndex(1);
            screen->topLevelOnly()->setChecked(true);
            screen->repaint();
        }) / 2);
        screen->minimumChange()->setCurrentIndex(0);
        screen->topLevelOnly()->setChecked(false);
    }
    report("snapshots: first rows of the change list", medianMs(first), 100);
    report("snapshots: one filter applied", medianMs(filters), 150);
}

DuplicateReport manyGroups(std::size_t groups)
{
    DuplicateReport report;
    report.groups.reserve(groups);
    for (std::size_t i = 0; i < groups; ++i) {
        DuplicateGroup group;
        group.id = std::to_string(i);
        for (int copy = 0; copy < 2 + int(i % 3); ++copy) {
            DiskNode node;
            node.path = "/bench/folder" + std::to_string(copy) + "/file-" + std::to_string(i) + ".bin";
            node.logicalSize = node.allocatedSize = 1'000'000 + std::int64_t(i);
            group.files.push_back(std::move(node));
        }
        report.groups.push_back(std::move(group));
    }
    report.checked = std::int64_t(groups) * 3;
    return report;
}

void duplicatesBench(AppModel& model, std::size_t groups, int runs)
{
    const DuplicateReport canned = manyGroups(groups);
    model.duplicates().setFinder([&canned](const ScanResult&, std::int64_t, const std::optional<std::string>&,
                                           const CancellationFlag&, const DuplicateFinder::DetailProgress&) { return canned; });
    model.duplicates().findDuplicates(std::nullopt);
    if (!waitFor([&] { return !model.duplicates().findingDuplicates() && model.duplicates().duplicateReport(); })) {
        std::printf("duplicates: the report did not arrive\n");
        return;
    }
    std::vector<double> first;
    std::vector<double> filter;
    for (int run = 0; run < runs; ++run) {
        std::unique_ptr<DuplicatesScreen> screen;
        first.push_back(timeMs([&] {
            screen = std::make_unique<DuplicatesScreen>(model);
            screen->resize(1400, 900);
            screen->show();
            screen->repaint();
        }));
        filter.push_back(timeMs([&] {
            model.explore().setFilter(QStringLiteral("file-99"));
            screen->repaint();
        }));
        model.explore().setFilter({});
    }
    std::printf("duplicates: %zu groups\n", groups);
    report("duplicates: first 30 groups", medianMs(first), 50);
    report("duplicates: the name filter", medianMs(filter), 100);
}

} // namespace

int main(int argc, char** argv)
{
    int runs = 5;
    std::size_t rows = 1'000'000;
    std::size_t groups = 10'000;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!std::strcmp(argv[i], "--runs"))
            runs = std::max(1, std::atoi(argv[i + 1]));
        else if (!std::strcmp(argv[i], "--rows"))
            rows = std::size_t(std::atoll(argv[i + 1]));
        else if (!std::strcmp(argv[i], "--groups"))
            groups = std::size_t(std::atoll(argv[i + 1]));
    }
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    QTemporaryDir state;
    QSettings settings(state.filePath(QStringLiteral("settings.ini")), QSettings::IniFormat);
    auto next = std::make_shared<MonitorSample>();
    AppServices services;
    services.makeSampler = [next] { return std::function<MonitorSample()>([next] { return *next; }); };
    services.systemSnapshots = [](const std::string&) { return std::vector<std::string>{}; };
    AppModel model(SnapshotStore(state.filePath(QStringLiteral("Snapshots")).toStdString()), state.path().toStdString(),
                   false, settings, services);

    monitorBench(model, next, runs);
    snapshotBench(model, rows, runs); // installs the scan the duplicate search needs
    duplicatesBench(model, groups, runs);
    return 0;
}
