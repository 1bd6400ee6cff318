#include "monitor/SystemSampler.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <limits>

#include "model/Errors.h"
#include "model/PathText.h"

namespace tarnbridge {

namespace {

using TimePoint = std::chrono::steady_clock::time_point;

// Kernel counters only grow; one that went down (a reset, an interface that went away, the
// known iowait dips) gives no change rather than a wild one.
std::uint64_t growth(std::uint64_t current, std::uint64_t previous)
{
    return current >= previous ? current - previous : 0;
}

// Readings a moment apart still divide by something sensible.
double secondsBetween(TimePoint from, TimePoint to)
{
    return std::max(0.01, std::chrono::duration<double>(to - from).count());
}

std::int64_t clampedSigned(std::uint64_t value)
{
    return std::int64_t(std::min<std::uint64_t>(value, std::numeric_limits<std::int64_t>::max()));
}

std::int64_t perSecond(std::uint64_t amount, double seconds)
{
    const double rate = double(amount) / seconds;
    // Doubles just below 2^63 still convert; anything above is out of range for the cast.
    return rate >= 9.2e18 ? std::numeric_limits<std::int64_t>::max() : std::int64_t(rate);
}

std::int64_t physicalMemory()
{
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long pageSize = ::sysconf(_SC_PAGESIZE);
    return pages > 0 && pageSize > 0 ? std::int64_t(pages) * pageSize : 0;
}

bool isDecimal(const std::string& text)
{
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Snapper numbers its snapshots, Timeshift names them by date: both sort oldest first this way.
bool snapshotBefore(const std::string& a, const std::string& b)
{
    const bool numberA = isDecimal(a);
    const bool numberB = isDecimal(b);
    if (numberA && numberB && a.size() != b.size())
        return a.size() < b.size();
    if (numberA != numberB)
        return numberA;
    return a < b;
}

} // namespace

SystemSampler::SystemSampler()
    : SystemSampler(platform::SystemPaths{})
{
}

SystemSampler::SystemSampler(platform::SystemPaths system, Clock clock)
    : system_(std::move(system))
    , clock_(clock ? std::move(clock) : Clock([] { return std::chrono::steady_clock::now(); }))
{
}

MonitorSample SystemSampler::sample()
{
    MonitorSample sample;
    const TimePoint now = clock_();
    if (platform::readWholeFile(system_.proc + "/uptime", buffer_) == 0)
        sample.uptime = platform::parseUptime(buffer_).value_or(0);
    // What getloadavg reads, taken from the same root as the rest.
    if (platform::readWholeFile(system_.proc + "/loadavg", buffer_) == 0)
        sample.loadAverages = platform::parseLoadAverages(buffer_);
    readProcessor(sample);
    readMemory(sample);
    readNetwork(sample, now);
    readProcesses(sample, now);
    sample.volumes = VolumeInfo::mounted(system_);
    return sample;
}

void SystemSampler::readProcessor(MonitorSample& sample)
{
    std::optional<platform::CpuTicks> ticks;
    if (platform::readWholeFile(system_.proc + "/stat", buffer_) == 0)
        ticks = platform::parseCpuTicks(buffer_);
    if (!ticks) {
        sample.issues.emplace_back("CPU statistics are unavailable.");
        return;
    }
    if (previousCPU_) {
        const double user = double(growth(ticks->user, previousCPU_->user));
        const double system = double(growth(ticks->system, previousCPU_->system));
        const double idle = double(growth(ticks->idle, previousCPU_->idle));
        const double nice = double(growth(ticks->nice, previousCPU_->nice));
        const double total = user + system + idle + nice;
        if (total > 0) {
            sample.userCPU = user / total * 100;
            sample.systemCPU = system / total * 100;
            sample.cpu = (user + system + nice) / total * 100;
        }
    }
    previousCPU_ = ticks;
}

void SystemSampler::readMemory(MonitorSample& sample)
{
    std::optional<platform::MemoryCounts> counts;
    if (platform::readWholeFile(system_.proc + "/meminfo", buffer_) == 0)
        counts = platform::parseMemInfo(buffer_);
    if (!counts) {
        sample.memoryTotal = physicalMemory();
        sample.issues.emplace_back("Memory statistics are unavailable.");
        return;
    }
    sample.memoryTotal = counts->total;
    sample.wired = counts->unevictable;
    sample.compressed = counts->zswap;
    sample.cached = counts->cached;
    sample.memoryUsed =
        std::clamp<std::int64_t>(counts->total - counts->available, 0, sample.memoryTotal);
}

void SystemSampler::readNetwork(MonitorSample& sample, TimePoint now)
{
    std::optional<platform::LinkTotals> totals;
    if (platform::readWholeFile(system_.proc + "/net/dev", buffer_) == 0)
        totals = platform::parseNetDev(buffer_);
    if (!totals) {
        sample.issues.emplace_back("Network statistics are unavailable.");
        return;
    }
    if (previousNetwork_) {
        const double elapsed = secondsBetween(previousNetwork_->at, now);
        const std::uint64_t in = growth(totals->received, previousNetwork_->received);
        const std::uint64_t out = growth(totals->sent, previousNetwork_->sent);
        sample.download = perSecond(in, elapsed);
        sample.upload = perSecond(out, elapsed);
        sessionReceived_ += in;
        sessionSent_ += out;
    }
    sample.received = clampedSigned(sessionReceived_);
    sample.sent = clampedSigned(sessionSent_);
    previousNetwork_ = NetworkReading{totals->received, totals->sent, now};
}

void SystemSampler::readProcesses(MonitorSample& sample, TimePoint now)
{
    std::vector<platform::ProcessReading> readings;
    try {
        readings = platform::readProcesses(system_.proc);
    } catch (const std::exception& error) {
        sample.issues.push_back(describeError(error));
        return;
    }
    static const double ticksPerSecond = double(std::max(1L, ::sysconf(_SC_CLK_TCK)));
    const double elapsed = previousProcessTime_ ? secondsBetween(*previousProcessTime_, now) : 0;

    std::unordered_map<int, ProcessTimes> times;
    times.reserve(readings.size());
    sample.processes.reserve(readings.size());
    for (auto& reading : readings) {
        const auto& stat = reading.stat;
        ProcessInfoRow row;
        row.id = stat.id;
        row.memory = reading.residentBytes;
        // A pid seen before with another start time is a new process: no rate yet.
        const auto before = previousProcesses_.find(stat.id);
        if (elapsed > 0 && before != previousProcesses_.end() &&
            before->second.startTicks == stat.startTicks)
            row.cpu = double(growth(stat.cpuTicks, before->second.cpuTicks)) / ticksPerSecond /
                      elapsed * 100;
        times.emplace(stat.id, ProcessTimes{stat.cpuTicks, stat.startTicks});
        row.name = std::move(reading.stat.comm);
        sample.processes.push_back(std::move(row));
    }
    std::stable_sort(
        sample.processes.begin(), sample.processes.end(),
        [](const ProcessInfoRow& a, const ProcessInfoRow& b) { return a.cpu > b.cpu; });
    previousProcesses_ = std::move(times);
    previousProcessTime_ = now;
}

std::vector<std::string> SystemSampler::timeMachineSnapshots(const std::string& volume)
{
    namespace fs = std::filesystem;
    std::vector<std::string> out;
    for (const char* folder : {".snapshots", "timeshift/snapshots"}) {
        std::vector<std::string> names;
        std::error_code error;
        for (fs::directory_iterator it(PathText::join(volume, folder), error), end;
             !error && it != end; it.increment(error)) {
            std::error_code typeError;
            std::string name = it->path().filename().string();
            if (!name.empty() && name.front() != '.' && it->is_directory(typeError))
                names.push_back(std::move(name));
        }
        std::sort(names.begin(), names.end(), snapshotBefore);
        out.insert(out.end(), names.begin(), names.end());
    }
    return out;
}

} // namespace tarnbridge
