#include "model/FileIdentity.h"

#include <sys/stat.h>

namespace tarnbridge {

std::string FileIdentity::key() const
{
    return std::to_string(device) + ':' + std::to_string(inode);
}

bool FileIdentity::isDirectory() const { return (mode & S_IFMT) == S_IFDIR; }
bool FileIdentity::isSymbolicLink() const { return (mode & S_IFMT) == S_IFLNK; }
bool FileIdentity::isRegularFile() const { return (mode & S_IFMT) == S_IFREG; }

} // namespace tarnbridge
