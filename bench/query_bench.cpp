// Times the queries on a synthetic scan of 1,000,000 entries held in memory, as ratios to a
// plain pass that reads every record's size once, measured in the same run.
//
//   query_bench [--entries N] [--only TEXT] [--repeat N]
//
// --only runs just the rows whose name contains TEXT and --repeat runs each N more times
// first, for profiling one query.
// Also how long each query takes to stop once its cancellation flag is set.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "BenchScan.h"

#include "query/AgeSummary.h"
#include "query/ScanPresentation.h"
#include "query/ScanQuery.h"

using namespace tarnbridge;
using Clock = std::chrono::steady_clock;

namespace {

using tarnbridge::bench::syntheticScan;

double secondsOf(const std::function<void()>& work, int repeats = 3)
{
    std::vector<double> times;
    for (int i = 0; i < repeats; ++i) {
        const auto start = Clock::now();
        work();
        times.push_back(std::chrono::duration<double>(Clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

// Milliseconds from setting the flag to the query giving up.
double stopLatency(const std::function<void(const CancellationFlag&)>& work)
{
    CancellationFlag flag;
    Clock::time_point cancelled;
    std::thread worker([&] {
        try {
            work(flag);
        } catch (const CancellationError&) {
        }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    cancelled = Clock::now();
    flag.cancel();
    worker.join();
    return std::chrono::duration<double, std::milli>(Clock::now() - cancelled).count();
}

} // namespace

int main(int argc, char** argv)
{
    std::size_t entries = 1'000'000;
    std::string only;
    int repeat = 0;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::string(argv[i]) == "--entries")
            entries = std::strtoull(argv[i + 1], nullptr, 10);
        else if (std::string(argv[i]) == "--only")
            only = argv[i + 1];
        else if (std::string(argv[i]) == "--repeat")
            repeat = std::atoi(argv[i + 1]);
    }
    const ScanResult scan = syntheticScan(entries);
    const ScanData& d = scan.data();
    std::printf("synthetic scan: %zu entries\n\n", scan.nodeCount());

    volatile std::int64_t sink = 0;
    const double plain = secondsOf([&] {
        std::int64_t sum = 0;
        for (NodeId id = 0; id < d.size(); ++id)
            sum += d[id].allocatedSize;
        sink = sum;
    }, 7);
    std::printf("%-44s %9.1f ms\n\n", "plain pass over every record", plain * 1000);

    struct Row {
        const char* what;
        double budget;
        std::function<void(const CancellationFlag*)> work;
    };
    const ScanQuery query;
    const std::int64_t now = currentTime();
    MonthCalendar calendar;
    const AgeSummary summary = AgeSummary::make(scan, "/bench", query, now, calendar);
    const std::vector<Row> rows{
        {"rankedPage, files, limit 200", 3,
         [&](const CancellationFlag* f) { query.rankedPage(scan, "/bench", RankingScope::files, 200, f); }},
        // The table asks for ids and builds paths only for the rows it shows.
        {"sortedIds by name, recursive", 40,
         [&](const CancellationFlag* f) {
             query.sortedIds(scan, "/bench", true, ScanSortField::name, SortOrder::ascending, f);
         }},
        {"sortedIds by size, recursive", 15,
         [&](const CancellationFlag* f) {
             query.sortedIds(scan, "/bench", true, ScanSortField::allocatedSize, SortOrder::descending, f);
         }},
        {"AgeSummary::make over the root", 15,
         [&](const CancellationFlag* f) {
             MonthCalendar c;
             AgeSummary::make(scan, "/bench", query, now, c, f);
         }},
        {"AgeSummary listing (one class)", 2,
         [&](const CancellationFlag* f) { summary.listing(AgeRange::older, std::nullopt, f); }},
        // The presentation runs the quick-win discovery inside its one pass over the scan;
        // it is what the app and `tarnbridge-cli wins` call.
        {"ScanPresentation::make (quick wins in it)", 5,
         [&](const CancellationFlag* f) { ScanPresentation::make(scan, f); }},
        {"  QuickWin::discover on its own", 0, [&](const CancellationFlag*) { QuickWin::discover(scan); }},
        {"  discover, then make (quick wins twice)", 0,
         [&](const CancellationFlag* f) {
             QuickWin::discover(scan);
             ScanPresentation::make(scan, f);
         }},
    };
    std::printf("%-44s %9s %8s %8s %12s\n", "query", "time", "ratio", "budget", "stops in");
    for (const Row& row : rows) {
        if (!only.empty() && std::string(row.what).find(only) == std::string::npos)
            continue;
        for (int i = 0; i < repeat; ++i)
            row.work(nullptr);
        const double seconds = secondsOf([&] { row.work(nullptr); });
        const double latency = stopLatency([&](const CancellationFlag& f) { row.work(&f); });
        if (row.budget > 0)
            std::printf("%-44s %7.1f ms %7.1fx %7.0fx %9.1f ms\n", row.what, seconds * 1000, seconds / plain,
                        row.budget, latency);
        else
            std::printf("%-44s %7.1f ms %7.1fx %8s %9.1f ms\n", row.what, seconds * 1000, seconds / plain, "-",
                        latency);
    }
    return 0;
}
