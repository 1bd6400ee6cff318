#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "monitor/VolumeInfo.h"
#include "platform/ProcFs.h"

namespace tarnbridge {

struct ProcessInfoRow {
    int id = 0;
    std::string name; // the kernel's comm
    double cpu = 0;   // percent of one core since the last reading; above 100 on several cores
    std::int64_t memory = 0; // resident bytes
};

// One reading of the machine. A source that fails leaves its fields at 0 and adds an issue.
struct MonitorSample {
    std::chrono::system_clock::time_point date = std::chrono::system_clock::now();
    double cpu = 0; // percent busy since the last reading, nice time included
    double userCPU = 0;
    double systemCPU = 0;
    std::int64_t memoryUsed = 0;
    std::int64_t memoryTotal = 0;
    std::int64_t wired = 0;
    std::int64_t compressed = 0;
    std::int64_t cached = 0;
    std::vector<double> loadAverages; // 1, 5 and 15 minutes
    double uptime = 0;                // seconds
    std::int64_t download = 0;        // bytes per second
    std::int64_t upload = 0;
    std::int64_t received = 0; // bytes since this sampler began
    std::int64_t sent = 0;
    std::vector<ProcessInfoRow> processes; // busiest first; ties keep pid order
    std::vector<VolumeInfo> volumes;
    std::vector<std::string> issues;
};

// Turns the kernel's running counters into rates between two readings, so it keeps the last
// ones. One instance belongs to one thread at a time; it has no lock.
class SystemSampler {
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    SystemSampler();
    // `clock` times the intervals between readings (the steady clock by default).
    explicit SystemSampler(platform::SystemPaths system, Clock clock = {});

    // Never throws: what fails lands in `issues`. The first reading has all rates at 0.
    MonitorSample sample();

    // Snapshot names of `volume` from Snapper (.snapshots) and Timeshift (timeshift/snapshots),
    // oldest first; empty where there are none or they cannot be read.
    static std::vector<std::string> timeMachineSnapshots(const std::string& volume);

private:
    struct NetworkReading {
        std::uint64_t received = 0;
        std::uint64_t sent = 0;
        std::chrono::steady_clock::time_point at;
    };
    struct ProcessTimes {
        std::uint64_t cpuTicks = 0;
        std::uint64_t startTicks = 0;
    };

    void readProcessor(MonitorSample& sample);
    void readMemory(MonitorSample& sample);
    void readNetwork(MonitorSample& sample, std::chrono::steady_clock::time_point now);
    void readProcesses(MonitorSample& sample, std::chrono::steady_clock::time_point now);

    platform::SystemPaths system_;
    Clock clock_;
    std::string buffer_;
    std::optional<platform::CpuTicks> previousCPU_;
    std::optional<NetworkReading> previousNetwork_;
    std::uint64_t sessionReceived_ = 0;
    std::uint64_t sessionSent_ = 0;
    std::unordered_map<int, ProcessTimes> previousProcesses_;
    std::optional<std::chrono::steady_clock::time_point> previousProcessTime_;
};

} // namespace tarnbridge
