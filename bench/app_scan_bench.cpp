// The desktop app while it scans a real tree: the longest stall of the GUI thread while the
// window shows the live chart, and the app's peak memory once the scan is installed, beside the
// peak of `tarnbridge-cli scan` of the same tree.
//
//   app_scan_bench TREE [--cli PATH] [--runs N]
//
// Budgets: no stall over 50 ms; app peak at most 1.3× the command line's.

#include <QApplication>
#include <QElapsedTimer>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "app/model/AppModel.h"
#include "app/model/ExploreState.h"
#include "app/model/ScanSession.h"
#include "app/shell/MainWindow.h"

using namespace tarnbridge::app;
using tarnbridge::SnapshotStore;

namespace {

// Peak resident size of this process so far, from the kernel, in bytes.
long long peakResident() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0)
            return std::atoll(line.c_str() + 6) * 1024;
    return 0;
}

// Runs the command line's scan of `tree` and returns its peak resident size in bytes.
long long cliPeak(const std::string& cli, const std::string& tree) {
    const pid_t child = fork();
    if (child == 0) {
        const int null = ::open("/dev/null", O_WRONLY);
        dup2(null, 1);
        execl(cli.c_str(), cli.c_str(), "scan", tree.c_str(), "--quiet", "--top", "0", nullptr);
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    if (wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "app_scan_bench: %s failed\n", cli.c_str());
        std::exit(1);
    }
    return usage.ru_maxrss * 1024LL;
}

// With APP_SCAN_BENCH_STALLS set, names each event that keeps the GUI thread over 20 ms.
class TimedApplication : public QApplication {
public:
    using QApplication::QApplication;
    bool notify(QObject* receiver, QEvent* event) override {
        if (!std::getenv("APP_SCAN_BENCH_STALLS"))
            return QApplication::notify(receiver, event);
        QElapsedTimer timer;
        timer.start();
        const int type = int(event->type());
        const bool done = QApplication::notify(receiver, event);
        const double ms = double(timer.nsecsElapsed()) / 1e6;
        if (ms > 20)
            std::printf("  event %d to %s (%s): %.1f ms\n", type, receiver->metaObject()->className(),
                        qPrintable(receiver->objectName()), ms);
        return done;
    }
};

struct Run {
    double scanSeconds = 0;
    double longestStallMs = 0;
    int ticks = 0;
};

// One scan of `tree` in the real window, live treemap shown, with a 5 ms timer that notes the
// longest gap between its ticks.
Run scanOnce(AppModel& model, MainWindow& window, const std::string& tree) {
    Run run;
    QElapsedTimer clock;
    qint64 last = 0;
    QTimer probe;
    probe.setInterval(5);
    probe.setTimerType(Qt::PreciseTimer);
    QObject::connect(&probe, &QTimer::timeout, [&] {
        const qint64 now = clock.nsecsElapsed();
        const double gap = double(now - last) / 1e6;
        run.longestStallMs = std::max(run.longestStallMs, gap);
        if (gap > 30 && std::getenv("APP_SCAN_BENCH_STALLS"))
            std::printf("  stall %.1f ms at %.2f s%s\n", gap, double(now) / 1e9, model.scanning() ? "" : " (after the scan)");
        last = now;
        ++run.ticks;
    });
    clock.start();
    probe.start();
    model.session().startScan(tree);
    while (model.scanning() || !model.session().scan())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    run.scanSeconds = double(clock.nsecsElapsed()) / 1e9;
    probe.stop();
    // Let the installed scan's chart build and paint.
    QElapsedTimer settle;
    settle.start();
    while (settle.elapsed() < 1500)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    window.repaint();
    return run;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: app_scan_bench TREE [--cli PATH] [--runs N]\n");
        return 2;
    }
    const std::string tree = argv[1];
    std::string cli = "build/bench/src/cli/tarnbridge-cli";
    int runs = 3;
    for (int i = 2; i + 1 < argc; i += 2) {
        if (!std::strcmp(argv[i], "--cli"))
            cli = argv[i + 1];
        else if (!std::strcmp(argv[i], "--runs"))
            runs = std::max(1, std::atoi(argv[i + 1]));
    }
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");

    // The command line first, in a child, so that its peak is its own.
    std::vector<long long> cliPeaks;
    for (int i = 0; i < runs; ++i)
        cliPeaks.push_back(cliPeak(cli, tree));
    std::sort(cliPeaks.begin(), cliPeaks.end());

    TimedApplication application(argc, argv);
    QTemporaryDir state;
    QSettings settings(state.filePath(QStringLiteral("settings.ini")), QSettings::IniFormat);
    AppModel model(SnapshotStore(state.filePath(QStringLiteral("Snapshots")).toStdString()),
                   state.path().toStdString(), false, settings);
    model.explore().setStorageView(StorageView::treemap);
    MainWindow window(model);
    window.resize(1600, 1000);
    window.show();
    // The window's first paint is not part of any scan.
    QElapsedTimer shown;
    shown.start();
    while (shown.elapsed() < 500)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    const long long baseline = peakResident();

    // The first scan has nothing installed before it; a rescan keeps the old result until the
    // new one is complete, so it holds two scans at its peak.
    long long firstPeak = 0;
    std::vector<double> stalls, seconds;
    for (int i = 0; i < runs; ++i) {
        const Run run = scanOnce(model, window, tree);
        if (i == 0)
            firstPeak = peakResident();
        std::printf("run %d: scan %.2f s, longest GUI stall %.1f ms over %d ticks\n", i + 1, run.scanSeconds,
                    run.longestStallMs, run.ticks);
        stalls.push_back(run.longestStallMs);
        seconds.push_back(run.scanSeconds);
    }
    const long long peak = firstPeak;
    std::printf("app peak over the rescans too        %8.1f MB\n", double(peakResident()) / 1e6);
    const long long cliPeakBytes = cliPeaks[cliPeaks.size() / 2];
    const double worstStall = *std::max_element(stalls.begin(), stalls.end());
    std::sort(seconds.begin(), seconds.end());
    std::printf("\nentries: %zu\n", model.session().scan()->nodeCount());
    std::printf("scan in the app (median)            %8.2f s\n", seconds[seconds.size() / 2]);
    std::printf("longest GUI stall (all runs)        %8.1f ms   budget 50 ms   %s\n", worstStall,
                worstStall <= 50 ? "ok" : "OVER");
    std::printf("app peak resident                   %8.1f MB   (window alone %.1f MB)\n", double(peak) / 1e6,
                double(baseline) / 1e6);
    std::printf("tarnbridge-cli scan peak (median)   %8.1f MB\n", double(cliPeakBytes) / 1e6);
    const double ratio = double(peak) / double(cliPeakBytes);
    std::printf("ratio                               %8.2f ×   budget 1.30 ×   %s\n", ratio,
                ratio <= 1.3 ? "ok" : "OVER");
    return 0;
}
