#include "monitor/VolumeInfo.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cstdlib>
#include <limits>
#include <map>

#include "model/PathText.h"

namespace tarnbridge {

namespace {

std::int64_t bytes(std::uint64_t blocks, std::uint64_t blockSize)
{
    constexpr auto kMax = std::uint64_t(std::numeric_limits<std::int64_t>::max());
    if (blockSize != 0 && blocks > kMax / blockSize)
        return std::numeric_limits<std::int64_t>::max();
    return std::int64_t(blocks * blockSize);
}

std::optional<VolumeInfo> measure(const std::string& path)
{
    struct statvfs fs;
    if (::statvfs(path.c_str(), &fs) != 0)
        return std::nullopt;
    VolumeInfo volume;
    volume.path = path;
    volume.total = bytes(fs.f_blocks, fs.f_frsize);
    volume.free = bytes(fs.f_bavail, fs.f_frsize);
    volume.importantAvailable = volume.free;
    return volume;
}

std::string labelOf(const std::string& source, const std::map<std::string, std::string>& labels)
{
    if (source.empty() || source.front() != '/')
        return {};
    char* resolved = ::realpath(source.c_str(), nullptr);
    if (!resolved)
        return {};
    const auto found = labels.find(resolved);
    std::free(resolved);
    return found == labels.end() ? std::string() : found->second;
}

std::string volumeName(const std::string& path, const std::string& label)
{
    if (!label.empty())
        return label;
    if (path == "/")
        return "System Disk";
    return std::string(PathText::name(path));
}

std::vector<platform::MountEntry> mountTable(const platform::SystemPaths& system)
{
    std::string text;
    if (platform::readWholeFile(system.proc + "/self/mountinfo", text) != 0)
        return {};
    return platform::parseMountInfo(text);
}

} // namespace

std::optional<VolumeInfo> VolumeInfo::read(const std::string& path,
                                           const platform::SystemPaths& system)
{
    auto volume = measure(path);
    if (!volume)
        return std::nullopt;
    // The label belongs to the innermost mount that holds the path; later lines win ties, as a
    // later mount hides an earlier one on the same point.
    const platform::MountEntry* holder = nullptr;
    const auto mounts = mountTable(system);
    for (const auto& mount : mounts) {
        if (PathText::contains(path, mount.mountPoint) &&
            (!holder || mount.mountPoint.size() >= holder->mountPoint.size()))
            holder = &mount;
    }
    const std::string label =
        holder ? labelOf(holder->source, platform::readDiskLabels(system.diskLabels))
               : std::string();
    volume->name = volumeName(path, label);
    return volume;
}

std::vector<VolumeInfo> VolumeInfo::mounted(const platform::SystemPaths& system)
{
    // A later mount on the same point hides the earlier one, whatever its type.
    std::vector<platform::MountEntry> kept;
    for (auto& mount : mountTable(system)) {
        const auto same =
            std::find_if(kept.begin(), kept.end(), [&](const platform::MountEntry& m) {
                return m.mountPoint == mount.mountPoint;
            });
        if (same != kept.end())
            *same = std::move(mount);
        else
            kept.push_back(std::move(mount));
    }
    const auto labels = platform::readDiskLabels(system.diskLabels);
    std::vector<VolumeInfo> out;
    for (const auto& mount : kept) {
        if (platform::isPseudoFileSystem(mount.type))
            continue;
        // Container runtimes mount single files (/etc/hosts and the like); they are no volumes.
        struct stat st;
        if (::stat(mount.mountPoint.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
            continue;
        auto volume = measure(mount.mountPoint);
        // A file system with no blocks is a kernel or FUSE view that the type list missed.
        if (!volume || volume->total == 0)
            continue;
        volume->name = volumeName(mount.mountPoint, labelOf(mount.source, labels));
        out.push_back(std::move(*volume));
    }
    return out;
}

} // namespace tarnbridge
