#include "platform/RunningPrograms.h"

#include "platform/FileIO.h"

#include <dirent.h>

#include <algorithm>
#include <cstdlib>

namespace tarnbridge::platform {


std::vector<std::string> runningExecutables()
{
    std::vector<std::string> out;
    DIR* proc = ::opendir("/proc");
    if (!proc)
        return out;
    while (const dirent* entry = ::readdir(proc)) {
        const char* name = entry->d_name;
        if (*name < '1' || *name > '9')
            continue;
        // A process we may not inspect, or one that ended meanwhile, is simply not listed.
        char* target = ::realpath((std::string("/proc/") + name + "/exe").c_str(), nullptr);
        if (!target)
            continue;
        out.emplace_back(target);
        std::free(target);
    }
    ::closedir(proc);
    std::sort(out.begin(), out.end());
    out.erase(std::unique(out.begin(), out.end()), out.end());
    return out;
}

std::vector<std::string> ownExecutables()
{
    std::vector<std::string> out{resolvedPath("/proc/self/exe")};
    if (const char* image = std::getenv("APPIMAGE"); image && *image)
        out.push_back(resolvedPath(image));
    return out;
}

} // namespace tarnbridge::platform
