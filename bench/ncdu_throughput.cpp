// Measures how fast a scan is written to and read back from an ncdu export, and the peak
// memory of reading one.
//
//   ncdu_throughput PATH|--from FILE [--runs N]   write and read rates
//   ncdu_throughput --peak FILE                   read FILE once: peak resident per entry
//
// Rates are of the uncompressed text (MB = 10^6 bytes), medians of N runs after a warm-up. The
// export is written to a temporary folder and removed afterwards. --peak is meant to be set
// beside `scan_memory PATH` of the same tree: both print the peak resident size per entry.

#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "model/Errors.h"
#include "scan/DiskScanner.h"
#include "storage/NcduJson.h"
#include "storage/ScanFile.h"

using namespace tarnbridge;

namespace {

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

long peakResidentKilobytes()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0)
            return std::stol(line.substr(6));
    return 0;
}

double cpuSeconds()
{
    timespec t{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) / 1e9;
}

int peak(const std::string& file)
{
    const auto started = std::chrono::steady_clock::now();
    const double cpuStarted = cpuSeconds();
    const ScanResult scan = ScanFile::open(file);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    const double cpu = cpuSeconds() - cpuStarted;
    (void)scan.find(scan.rootPath() + "/x"); // the lookup index, as scan_memory counts it
    const double entries = double(scan.nodeCount());
    std::printf("entries               %.0f\n", entries);
    std::printf("read time             %.3f s (CPU %.3f s)\n", seconds, cpu);
    std::printf("peak resident         %.1f MB\n", double(peakResidentKilobytes()) / 1000.0);
    std::printf("peak per entry        %.1f bytes\n", double(peakResidentKilobytes()) * 1024.0 / entries);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    std::string path, from, peakOf;
    int runs = 5;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--runs" && i + 1 < argc)
            runs = std::max(1, std::atoi(argv[++i]));
        else if (arg == "--from" && i + 1 < argc)
            from = argv[++i];
        else if (arg == "--peak" && i + 1 < argc)
            peakOf = argv[++i];
        else
            path = arg;
    }
    if (path.empty() && from.empty() && peakOf.empty()) {
        std::fprintf(stderr, "Usage: ncdu_throughput PATH|--from FILE [--runs N] | --peak FILE\n");
        return 2;
    }
    try {
        if (!peakOf.empty())
            return peak(peakOf);
        CancellationFlag flag;
        const ScanResult scan = from.empty() ? DiskScanner::scan(path, flag) : ScanFile::open(from);
        char folder[] = "/tmp/tarnbridge-ncdu-XXXXXX";
        if (!::mkdtemp(folder))
            throw systemError(errno);
        const std::string file = std::string(folder) + "/export.json";
        struct Cleanup {
            std::string file, folder;
            ~Cleanup()
            {
                ::unlink(file.c_str());
                ::rmdir(folder.c_str());
            }
        } cleanup{file, folder};
        std::vector<double> writes, reads, encodes;
        double megabytes = 0;
        for (int run = 0; run <= runs; ++run) { // run 0 warms the page cache and memory
            // The encoder alone, into a sink that only counts: the disk left out.
            std::size_t encoded = 0;
            const auto e0 = std::chrono::steady_clock::now();
            NcduJson::write(scan, [&encoded](const char*, std::size_t size) { encoded += size; });
            const auto e1 = std::chrono::steady_clock::now();
            const auto t0 = std::chrono::steady_clock::now();
            NcduJson::writeFile(scan, file);
            const auto t1 = std::chrono::steady_clock::now();
            const ScanResult back = NcduJson::readFile(file);
            const auto t2 = std::chrono::steady_clock::now();
            struct stat info {};
            ::stat(file.c_str(), &info);
            megabytes = double(info.st_size) / 1e6;
            if (back.nodeCount() != scan.nodeCount()) {
                std::fprintf(stderr, "ncdu_throughput: read back %zu nodes of %zu\n", back.nodeCount(), scan.nodeCount());
                return 1;
            }
            if (run == 0)
                continue;
            writes.push_back(megabytes / std::chrono::duration<double>(t1 - t0).count());
            encodes.push_back(double(encoded) / 1e6 / std::chrono::duration<double>(e1 - e0).count());
            reads.push_back(megabytes / std::chrono::duration<double>(t2 - t1).count());
        }
        std::printf("nodes                 %zu\n", scan.nodeCount());
        std::printf("ncdu export           %.1f MB\n", megabytes);
        std::printf("write (with fsync)    %.0f MB/s\n", median(writes));
        std::printf("encode (no disk)      %.0f MB/s\n", median(encodes));
        std::printf("read                  %.0f MB/s\n", median(reads));
    } catch (const std::exception& e) {
        std::fprintf(stderr, "ncdu_throughput: %s\n", describeError(e).c_str());
        return 1;
    }
    return 0;
}
