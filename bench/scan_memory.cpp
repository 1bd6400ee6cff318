// Scans a folder quietly and reports the memory a finished scan holds per entry.
//
//   scan_memory PATH
//
// Resident growth is read from /proc/self/statm before and after; the arena's own count of
// bytes (records, names, lookup index) is printed beside it, and the peak resident size.

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>

#include "model/Errors.h"
#include "scan/DiskScanner.h"

namespace {

long residentBytes()
{
    std::ifstream statm("/proc/self/statm");
    long size = 0, resident = 0;
    statm >> size >> resident;
    return resident * ::sysconf(_SC_PAGESIZE);
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

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "Usage: scan_memory PATH\n");
        return 2;
    }
    try {
        const long before = residentBytes();
        const auto started = std::chrono::steady_clock::now();
        tarnbridge::CancellationFlag flag;
        const tarnbridge::ScanResult scan = tarnbridge::DiskScanner::scan(argv[1], flag);
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        // A lookup builds the index the app needs anyway; count it in.
        (void)scan.find(scan.rootPath() + "/x");
        const long after = residentBytes();
        const double entries = double(scan.nodeCount());
        std::printf("entries               %.0f\n", entries);
        std::printf("scan time             %.3f s\n", seconds);
        std::printf("resident per entry    %.1f bytes\n", double(after - before) / entries);
        std::printf("arena per entry       %.1f bytes\n", double(scan->memoryBytes()) / entries);
        std::printf("peak resident         %.1f MB\n", double(peakResidentKilobytes()) / 1000.0);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "scan_memory: %s\n", tarnbridge::describeError(e).c_str());
        return 1;
    }
    return 0;
}
