// Times the age map on a synthetic scan of 1,000,000 entries, offscreen, with the view shown:
// from a change of its key (a filter) to the summary ready and painted, the 70 ms debounce
// included; the summary's computation alone; and a click on a bar to its listing shown.
//
//   app_agemap_bench [--entries N] [--runs N]
//
// Budget: the summary ready under 250 ms.

#include <QApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QSettings>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

#include "BenchScan.h"
#include "app/model/AgeMapState.h"
#include "app/model/AppModel.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"
#include "app/screens/AgeMapView.h"

using namespace tarnbridge;
using namespace tarnbridge::app;

namespace {

double medianMs(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void report(const char* what, double ms, double budget)
{
    if (budget > 0)
        std::printf("%-52s %9.2f ms   budget %5.0f ms   %s\n", what, ms, budget, ms <= budget ? "ok" : "OVER");
    else
        std::printf("%-52s %9.2f ms\n", what, ms);
}

// Runs the event loop from `change` until `done` holds; the time taken, or -1.
double untilReady(const std::function<void()>& change, const std::function<bool()>& done)
{
    QElapsedTimer timer;
    timer.start();
    change();
    QDeadlineTimer deadline(60'000);
    while (!done()) {
        if (deadline.hasExpired())
            return -1;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
    }
    QCoreApplication::processEvents(); // the view's repaint
    return double(timer.nsecsElapsed()) / 1e6;
}

} // namespace

int main(int argc, char** argv)
{
    std::size_t entries = 1'000'000;
    int runs = 7;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!std::strcmp(argv[i], "--entries"))
            entries = std::size_t(std::atoll(argv[i + 1]));
        else if (!std::strcmp(argv[i], "--runs"))
            runs = std::max(1, std::atoi(argv[i + 1]));
    }
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    QTemporaryDir state;
    QSettings settings(state.filePath(QStringLiteral("settings.ini")), QSettings::IniFormat);

    const ScanResult scan = bench::syntheticScan(entries);
    const ScanPresentation presentation = ScanPresentation::make(scan);
    std::printf("synthetic scan: %zu entries\n\n", scan.nodeCount());

    AppModel model(SnapshotStore(state.filePath(QStringLiteral("Snapshots")).toStdString()),
                   state.path().toStdString(), false, settings, {});
    model.session().installScan(scan, presentation, "/bench", false);
    AgeMapView view(model);
    view.resize(1280, 800);
    view.show();
    ExploreState& explore = model.explore();
    AgeMapState& ageMap = explore.ageMap();
    const auto ready = [&] { return ageMap.preparedKey() && !ageMap.pending(); };

    std::vector<double> summary;
    summary.push_back(untilReady([&] { explore.setStorageView(StorageView::ageMap); }, ready));
    for (int i = 1; i < runs; ++i)
        summary.push_back(untilReady([&] { explore.setShowHidden(i % 2 == 0); }, ready));
    if (std::find(summary.begin(), summary.end(), -1.0) != summary.end())
        std::printf("  (a summary never arrived: the figures are not valid)\n");
    report("summary ready and shown, after a key change", medianMs(summary), 250);
    std::printf("  (%zu files summarised, slowest run %.2f ms)\n", ageMap.summary().entries.size(),
                *std::max_element(summary.begin(), summary.end()));

    std::vector<double> compute;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        MonthCalendar calendar;
        const AgeSummary made = AgeSummary::make(scan, "/bench", explore.queryFilter(), currentTime(), calendar);
        compute.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    report("AgeSummary::make alone", medianMs(compute), 0);

    std::vector<double> click;
    for (int i = 0; i < runs; ++i)
        click.push_back(untilReady([&] { ageMap.selectRange(AgeRange(i % 6)); }, ready));
    report("a click on a bar to its listing shown", medianMs(click), 0);
    return 0;
}
