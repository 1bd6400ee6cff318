#include "platform/UserFolders.h"

#include <cstdlib>

#include "model/PathText.h"
#include "platform/FileIO.h"

namespace tarnbridge::platform {

std::string currentHome()
{
    const char* home = std::getenv("HOME");
    return resolvedPath(home && *home ? home : "/");
}

std::string xdgFolder(const char* variable, const char* fallback)
{
    const char* value = std::getenv(variable);
    if (value && *value == '/')
        return value;
    return PathText::join(currentHome(), fallback);
}

} // namespace tarnbridge::platform
