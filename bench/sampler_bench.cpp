// Times one reading of the system monitor over the real /proc.
//
//   sampler_bench [--runs N] [--processes N]
//
// Before timing, idle child processes are started until the machine shows at least
// --processes (default 300), so that the figure stands for a busy desktop even on a quiet
// machine; 0 leaves the machine as it is. After one untimed warm-up (which also gives every
// later reading its rates), prints the median, fastest and slowest of --runs readings
// (default 50) and the process count of the last one. Budget: median under 20 ms at 300
// processes.

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "monitor/SystemSampler.h"

using namespace tarnbridge;

namespace {

std::size_t visibleProcesses()
{
    return SystemSampler().sample().processes.size();
}

// Children that only wait; they die with this program even if it is killed.
std::vector<pid_t> startIdleChildren(std::size_t count)
{
    std::vector<pid_t> children;
    for (std::size_t i = 0; i < count; ++i) {
        const pid_t pid = ::fork();
        if (pid < 0)
            break;
        if (pid == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            ::pause();
            ::_exit(0);
        }
        children.push_back(pid);
    }
    return children;
}

} // namespace

int main(int argc, char** argv)
{
    int runs = 50;
    std::size_t wanted = 300;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--runs") == 0)
            runs = std::max(1, std::atoi(argv[i + 1]));
        else if (std::strcmp(argv[i], "--processes") == 0)
            wanted = std::size_t(std::max(0, std::atoi(argv[i + 1])));
    }

    const std::size_t present = visibleProcesses();
    const auto children = startIdleChildren(wanted > present ? wanted - present : 0);

    SystemSampler sampler;
    sampler.sample();
    std::vector<double> times;
    std::size_t processes = 0;
    std::size_t volumes = 0;
    for (int i = 0; i < runs; ++i) {
        const auto start = std::chrono::steady_clock::now();
        const MonitorSample sample = sampler.sample();
        times.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                .count());
        processes = sample.processes.size();
        volumes = sample.volumes.size();
    }

    for (const pid_t child : children)
        ::kill(child, SIGKILL);
    for (const pid_t child : children)
        ::waitpid(child, nullptr, 0);

    std::sort(times.begin(), times.end());
    std::printf("processes             %zu (%zu started for the run)\n", processes,
                children.size());
    std::printf("volumes               %zu\n", volumes);
    std::printf("sample, median        %.2f ms over %d runs\n", times[times.size() / 2], runs);
    std::printf("sample, fastest       %.2f ms\n", times.front());
    std::printf("sample, slowest       %.2f ms\n", times.back());
    return 0;
}
