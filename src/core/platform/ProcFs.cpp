#include "platform/ProcFs.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "model/Errors.h"
#include "model/TextEncoding.h"

namespace tarnbridge::platform {

namespace {

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

// Splits at runs of whitespace, with no empty pieces.
std::vector<std::string_view> words(std::string_view text)
{
    std::vector<std::string_view> out;
    std::size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && isSpace(text[i]))
            ++i;
        const std::size_t start = i;
        while (i < text.size() && !isSpace(text[i]))
            ++i;
        if (i > start)
            out.push_back(text.substr(start, i - start));
    }
    return out;
}


// Calls `f` with each line, without its newline.
template <typename F> void forEachLine(std::string_view text, F&& f)
{
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        f(text.substr(0, end));
        if (end == std::string_view::npos)
            break;
        text.remove_prefix(end + 1);
    }
}

// The whole piece must be the number: "12x" is not 12.
template <typename T> std::optional<T> number(std::string_view text)
{
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

bool startsWith(std::string_view text, std::string_view prefix)
{
    return text.substr(0, prefix.size()) == prefix;
}

} // namespace

std::optional<CpuTicks> parseCpuTicks(std::string_view procStat)
{
    std::optional<CpuTicks> result;
    forEachLine(procStat, [&](std::string_view line) {
        if (result || !startsWith(line, "cpu "))
            return;
        const auto pieces = words(line);
        // user nice system idle, then iowait irq softirq steal on any kernel since 2.6.11;
        // guest time is already inside user and nice.
        if (pieces.size() < 5)
            return;
        std::array<std::uint64_t, 8> v{};
        const std::size_t count = std::min<std::size_t>(pieces.size() - 1, v.size());
        for (std::size_t i = 0; i < count; ++i) {
            const auto value = number<std::uint64_t>(pieces[i + 1]);
            if (!value)
                return;
            v[i] = *value;
        }
        CpuTicks ticks;
        ticks.user = v[0];
        ticks.nice = v[1];
        ticks.system = v[2] + v[5] + v[6] + v[7];
        ticks.idle = v[3] + v[4];
        result = ticks;
    });
    return result;
}

std::optional<MemoryCounts> parseMemInfo(std::string_view meminfo)
{
    MemoryCounts counts;
    bool haveTotal = false;
    bool haveAvailable = false;
    forEachLine(meminfo, [&](std::string_view line) {
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos)
            return;
        const std::string_view key = line.substr(0, colon);
        std::int64_t* target = nullptr;
        if (key == "MemTotal")
            target = &counts.total;
        else if (key == "MemAvailable")
            target = &counts.available;
        else if (key == "Unevictable")
            target = &counts.unevictable;
        else if (key == "Zswap")
            target = &counts.zswap;
        else if (key == "Cached")
            target = &counts.cached;
        if (!target)
            return;
        const auto pieces = words(line.substr(colon + 1));
        if (pieces.empty() || pieces.size() > 2)
            return;
        auto value = number<std::int64_t>(pieces[0]);
        if (!value || *value < 0)
            return;
        if (pieces.size() == 2) {
            if (pieces[1] != "kB" || *value > std::numeric_limits<std::int64_t>::max() / 1024)
                return;
            *value *= 1024;
        }
        *target = *value;
        haveTotal |= target == &counts.total;
        haveAvailable |= target == &counts.available;
    });
    if (!haveTotal || !haveAvailable)
        return std::nullopt;
    return counts;
}

bool isCountedLink(std::string_view name)
{
    return startsWith(name, "en") || startsWith(name, "eth") || startsWith(name, "wl") ||
           startsWith(name, "ww");
}

std::optional<LinkTotals> parseNetDev(std::string_view netDev)
{
    if (!startsWith(netDev, "Inter-|"))
        return std::nullopt;
    LinkTotals totals;
    bool ok = true;
    forEachLine(netDev, [&](std::string_view line) {
        const std::size_t colon = line.find(':');
        if (!ok || colon == std::string_view::npos)
            return;
        if (!isCountedLink(trimmed(line.substr(0, colon))))
            return;
        const auto pieces = words(line.substr(colon + 1));
        // Eight receive columns, then transmitted bytes.
        const auto received = pieces.size() >= 9 ? number<std::uint64_t>(pieces[0]) : std::nullopt;
        const auto sent = pieces.size() >= 9 ? number<std::uint64_t>(pieces[8]) : std::nullopt;
        if (!received || !sent) {
            ok = false;
            return;
        }
        totals.received += *received;
        totals.sent += *sent;
    });
    if (!ok)
        return std::nullopt;
    return totals;
}

std::optional<ProcessStat> parseProcessStat(std::string_view stat)
{
    // comm may hold spaces, parentheses and even newlines: it runs from the first "(" to the
    // last ")", and the fixed fields follow.
    const std::size_t open = stat.find('(');
    const std::size_t close = stat.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open)
        return std::nullopt;
    const auto id = number<int>(trimmed(stat.substr(0, open)));
    if (!id || *id <= 0)
        return std::nullopt;
    const auto fields = words(stat.substr(close + 1));
    // state is field 3 of the manual; utime 14, stime 15, starttime 22. Fields up to rss (24)
    // must be there, so that a file cut inside the start time is not read as a smaller number.
    constexpr std::size_t kState = 3;
    if (fields.size() < 24 - kState + 1)
        return std::nullopt;
    const auto user = number<std::uint64_t>(fields[14 - kState]);
    const auto system = number<std::uint64_t>(fields[15 - kState]);
    const auto start = number<std::uint64_t>(fields[22 - kState]);
    if (!user || !system || !start)
        return std::nullopt;
    ProcessStat out;
    out.id = *id;
    out.comm = std::string(stat.substr(open + 1, close - open - 1));
    out.cpuTicks = *user + *system;
    out.startTicks = *start;
    return out;
}

std::optional<std::int64_t> parseResidentPages(std::string_view statm)
{
    const auto pieces = words(statm);
    if (pieces.size() < 2)
        return std::nullopt;
    const auto pages = number<std::int64_t>(pieces[1]);
    if (!pages || *pages < 0)
        return std::nullopt;
    return pages;
}

std::vector<ProcessReading> readProcesses(const std::string& procRoot)
{
    const int dirfd = ::open(procRoot.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirfd < 0)
        throw systemError(errno);
    DIR* dir = ::fdopendir(dirfd);
    if (!dir) {
        const int error = errno;
        ::close(dirfd);
        throw systemError(error);
    }
    std::vector<int> ids;
    errno = 0;
    while (const dirent* entry = ::readdir(dir)) {
        if (const auto id = number<int>(entry->d_name); id && *id > 0)
            ids.push_back(*id);
    }
    const int listError = errno;
    if (listError != 0) {
        ::closedir(dir);
        throw systemError(listError);
    }
    std::sort(ids.begin(), ids.end());

    static const std::int64_t pageSize = ::sysconf(_SC_PAGESIZE);
    std::vector<ProcessReading> out;
    out.reserve(ids.size());
    std::string text;
    char relative[32];
    for (const int id : ids) {
        // Any process may end between the listing and here; its files then fail to open or
        // read, and it is simply not part of this reading.
        std::snprintf(relative, sizeof relative, "%d/stat", id);
        if (readWholeFileAt(dirfd, relative, text) != 0)
            continue;
        auto stat = parseProcessStat(text);
        if (!stat || stat->id != id)
            continue;
        std::snprintf(relative, sizeof relative, "%d/statm", id);
        if (readWholeFileAt(dirfd, relative, text) != 0)
            continue;
        const auto pages = parseResidentPages(text);
        if (!pages || *pages > std::numeric_limits<std::int64_t>::max() / pageSize)
            continue;
        out.push_back({std::move(*stat), *pages * pageSize});
    }
    ::closedir(dir);
    return out;
}

std::optional<double> parseUptime(std::string_view uptime)
{
    const auto pieces = words(uptime);
    if (pieces.empty())
        return std::nullopt;
    const auto seconds = number<double>(pieces[0]);
    if (!seconds || !(*seconds >= 0))
        return std::nullopt;
    return seconds;
}

std::vector<double> parseLoadAverages(std::string_view loadavg)
{
    std::vector<double> out;
    for (const auto piece : words(loadavg)) {
        const auto value = number<double>(piece);
        if (!value || !(*value >= 0) || out.size() == 3)
            break;
        out.push_back(*value);
    }
    return out;
}

std::string decodeMountField(std::string_view field)
{
    std::string out;
    out.reserve(field.size());
    for (std::size_t i = 0; i < field.size(); ++i) {
        const auto octal = [&](std::size_t k) { return field[k] >= '0' && field[k] <= '7'; };
        if (field[i] == '\\' && i + 3 < field.size() && octal(i + 1) && octal(i + 2) &&
            octal(i + 3)) {
            const int value =
                (field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0');
            if (value <= 0xff) {
                out.push_back(char(value));
                i += 3;
                continue;
            }
        }
        out.push_back(field[i]);
    }
    return out;
}

std::vector<MountEntry> parseMountInfo(std::string_view mountinfo)
{
    std::vector<MountEntry> out;
    forEachLine(mountinfo, [&](std::string_view line) {
        // id parent major:minor root mount-point options [optional fields…] - type source super
        const auto fields = words(line);
        if (fields.size() < 10)
            return;
        std::size_t separator = 6;
        while (separator < fields.size() && fields[separator] != "-")
            ++separator;
        // All three after the separator, or the line was cut short.
        if (separator + 3 >= fields.size())
            return;
        out.push_back({decodeMountField(fields[4]), decodeMountField(fields[separator + 1]),
                       decodeMountField(fields[separator + 2])});
    });
    return out;
}

bool isPseudoFileSystem(std::string_view type)
{
    static constexpr std::string_view kPseudo[] = {
        "autofs",        "binfmt_misc",     "bpf",       "cgroup",          "cgroup2",
        "configfs",      "cramfs",          "debugfs",   "devpts",          "devtmpfs",
        "efivarfs",      "erofs",           "fusectl",   "hugetlbfs",       "mqueue",
        "nsfs",          "overlay",         "proc",      "pstore",          "ramfs",
        "rpc_pipefs",    "securityfs",      "selinuxfs", "squashfs",        "sysfs",
        "tmpfs",         "tracefs",         "nfsd",      "fuse.gvfsd-fuse", "fuse.portal",
        "fuse.snapfuse", "fuse.squashfuse", "fuse.lxcfs"};
    return std::find(std::begin(kPseudo), std::end(kPseudo), type) != std::end(kPseudo);
}


std::map<std::string, std::string> readDiskLabels(const std::string& folder)
{
    std::map<std::string, std::string> labels;
    DIR* dir = ::opendir(folder.c_str());
    if (!dir)
        return labels;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        const std::string link = folder + "/" + entry->d_name;
        if (char* resolved = ::realpath(link.c_str(), nullptr)) {
            labels.emplace(resolved, decodeHexEscapes(name, "\\x"));
            std::free(resolved);
        }
    }
    ::closedir(dir);
    return labels;
}

} // namespace tarnbridge::platform
