#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/FileIO.h"

namespace tarnbridge::platform {

// Where the Linux layer reads the running system from. Tests point these at canned copies.
struct SystemPaths {
    std::string proc = "/proc";
    std::string diskLabels = "/dev/disk/by-label";
};


// The aggregate "cpu" line of /proc/stat folded into four counters: interrupts and steal
// count as system time, iowait as idle.
struct CpuTicks {
    std::uint64_t user = 0;
    std::uint64_t system = 0;
    std::uint64_t idle = 0;
    std::uint64_t nice = 0;
};
std::optional<CpuTicks> parseCpuTicks(std::string_view procStat);

// /proc/meminfo in bytes. MemTotal and MemAvailable are required; the rest are 0 when absent.
struct MemoryCounts {
    std::int64_t total = 0;
    std::int64_t available = 0;
    std::int64_t unevictable = 0;
    std::int64_t zswap = 0;
    std::int64_t cached = 0;
};
std::optional<MemoryCounts> parseMemInfo(std::string_view meminfo);

// Physical links only: wired (en*, eth*), wireless (wl*) and mobile (ww*) interfaces.
bool isCountedLink(std::string_view interfaceName);

// Byte totals of the counted links in /proc/net/dev. A counted line that does not parse
// fails the whole reading, so a half-read interface can never make the total dip and then jump.
struct LinkTotals {
    std::uint64_t received = 0;
    std::uint64_t sent = 0;
};
std::optional<LinkTotals> parseNetDev(std::string_view netDev);

// One /proc/PID/stat. `cpuTicks` is utime + stime; `startTicks` tells a reused pid apart.
struct ProcessStat {
    int id = 0;
    std::string comm;
    std::uint64_t cpuTicks = 0;
    std::uint64_t startTicks = 0;
};
std::optional<ProcessStat> parseProcessStat(std::string_view stat);
// The resident page count of /proc/PID/statm.
std::optional<std::int64_t> parseResidentPages(std::string_view statm);

struct ProcessReading {
    ProcessStat stat;
    std::int64_t residentBytes = 0;
};
// Every process of `procRoot` that could be read, in pid order. A process that ends while it
// is read, or whose files do not parse, is left out. Throws std::system_error when the folder
// itself cannot be listed.
std::vector<ProcessReading> readProcesses(const std::string& procRoot);

std::optional<double> parseUptime(std::string_view uptime);
// Up to three leading values of /proc/loadavg (what getloadavg reads).
std::vector<double> parseLoadAverages(std::string_view loadavg);

struct MountEntry {
    std::string mountPoint;
    std::string type;
    std::string source;
};
// /proc/PID/mountinfo, in the kernel's order, escapes decoded; lines that do not parse are
// skipped.
std::vector<MountEntry> parseMountInfo(std::string_view mountinfo);
// The kernel's octal escapes of mount fields (\040 for a space).
std::string decodeMountField(std::string_view field);
// Kernel, memory and image file systems that hold no user data of their own.
bool isPseudoFileSystem(std::string_view type);

// File-system labels by resolved device path, from udev's by-label links (\xHH escapes decoded).
std::map<std::string, std::string> readDiskLabels(const std::string& folder);

} // namespace tarnbridge::platform
