// Measures how fast a scan is written to and read back from a scan file.
//
//   scan_file_throughput PATH [--runs N]     scan PATH first
//   scan_file_throughput --from FILE [--runs N]
//
// Prints the file size and the median write and read rates (MB = 10^6 bytes). The file is
// written to a temporary folder beside the system's temporary files and removed afterwards.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "model/Errors.h"
#include "scan/DiskScanner.h"
#include "storage/ScanJson.h"

using namespace tarnbridge;

namespace {
double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}
} // namespace

int main(int argc, char** argv)
{
    std::string path, from;
    int runs = 5;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--runs" && i + 1 < argc)
            runs = std::max(1, std::atoi(argv[++i]));
        else if (arg == "--from" && i + 1 < argc)
            from = argv[++i];
        else
            path = arg;
    }
    if (path.empty() && from.empty()) {
        std::fprintf(stderr, "Usage: scan_file_throughput PATH|--from FILE [--runs N]\n");
        return 2;
    }
    try {
        CancellationFlag flag;
        const ScanResult scan = from.empty() ? DiskScanner::scan(path, flag) : ScanJson::readFile(from);
        char folder[] = "/tmp/tarnbridge-throughput-XXXXXX";
        if (!::mkdtemp(folder))
            throw systemError(errno);
        const std::string file = std::string(folder) + "/scan.json";
        std::vector<double> writes, reads;
        double megabytes = 0;
        for (int run = 0; run <= runs; ++run) { // run 0 warms the page cache and memory
            const auto t0 = std::chrono::steady_clock::now();
            ScanJson::writeFile(scan, file);
            const auto t1 = std::chrono::steady_clock::now();
            const ScanResult back = ScanJson::readFile(file);
            const auto t2 = std::chrono::steady_clock::now();
            struct stat info {};
            ::stat(file.c_str(), &info);
            megabytes = double(info.st_size) / 1e6;
            if (back.nodeCount() != scan.nodeCount()) {
                std::fprintf(stderr, "scan_file_throughput: read back %zu nodes of %zu\n", back.nodeCount(),
                             scan.nodeCount());
                return 1;
            }
            if (run == 0)
                continue;
            writes.push_back(megabytes / std::chrono::duration<double>(t1 - t0).count());
            reads.push_back(megabytes / std::chrono::duration<double>(t2 - t1).count());
        }
        ::unlink(file.c_str());
        ::rmdir(folder);
        std::printf("nodes                 %zu\n", scan.nodeCount());
        std::printf("scan file             %.1f MB\n", megabytes);
        std::printf("write (with fsync)    %.0f MB/s\n", median(writes));
        std::printf("read                  %.0f MB/s\n", median(reads));
    } catch (const std::exception& e) {
        std::fprintf(stderr, "scan_file_throughput: %s\n", describeError(e).c_str());
        return 1;
    }
    return 0;
}
