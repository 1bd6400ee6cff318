#include "platform/Trash.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>

#include "model/Errors.h"
#include "model/Formatting.h"
#include "model/PathText.h"
#include "model/TextEncoding.h"
#include "platform/UserFolders.h"
#include "platform/AtomicFile.h"
#include "platform/FileIO.h"

namespace tarnbridge::Trash {

namespace {

bool isFolder(const std::string& path, struct stat* out = nullptr)
{
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        return false;
    if (out)
        *out = st;
    return true;
}

// Creates `path` (and nothing above it) with mode 0700 when missing; true when it is a folder.
bool ensureFolder(const std::string& path)
{
    if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
        return false;
    return isFolder(path);
}

bool ensureTrash(const std::string& trash)
{
    return ensureFolder(trash) && ensureFolder(trash + "/files") && ensureFolder(trash + "/info");
}

bool ensureFolderWithParents(const std::string& path)
{
    if (isFolder(path))
        return true;
    const std::string parent = parentFolder(path);
    if (parent != path && !ensureFolderWithParents(parent))
        return false;
    return ensureFolder(path);
}

dev_t deviceOf(const std::string& path)
{
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0)
        throw systemError(errno);
    return st.st_dev;
}

// The top folder of the file system that holds `path`: the highest ancestor on its device.
std::string topFolder(const std::string& path, dev_t device)
{
    std::string top = path;
    while (top != "/") {
        const std::string parent = parentFolder(top);
        struct stat st {};
        if (::lstat(parent.c_str(), &st) != 0 || st.st_dev != device)
            break;
        top = parent;
    }
    return top;
}

int renameNoReplace(const std::string& from, const std::string& to)
{
    return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
}

// Drops the line of `name` from the trash's directorysizes cache, if it has one.
void forgetDirectorySize(const std::string& trash, const std::string& name)
{
    const std::string cache = trash + "/directorysizes";
    std::ifstream in(cache);
    if (!in)
        return;
    std::string line, kept;
    bool found = false;
    while (std::getline(in, line)) {
        const auto second = line.find(' ', line.find(' ') + 1);
        if (second != std::string::npos && decodePath(line.substr(second + 1)) == name) {
            found = true;
            continue;
        }
        kept += line + "\n";
    }
    if (!found)
        return;
    try {
        AtomicFile::write(cache, kept);
    } catch (const std::exception&) {
        // A stale cache line only makes a file manager show an old size.
    }
}

} // namespace

std::string homeTrash()
{
    return PathText::join(platform::dataHome(), "Trash");
}

TrashFolder trashFor(const std::string& path)
{
    const dev_t device = deviceOf(path);
    const std::string home = homeTrash();
    const std::string homeParent = parentFolder(home);
    if (ensureFolderWithParents(homeParent) && deviceOf(homeParent) == device) {
        if (!ensureTrash(home))
            throw TarnbridgeError(kNoUsableTrash);
        return {home, {}};
    }
    const std::string top = topFolder(path, device);
    const std::string uid = std::to_string(::getuid());
    struct stat shared {};
    if (isFolder(PathText::join(top, ".Trash"), &shared) && (shared.st_mode & S_ISVTX)) {
        const std::string own = PathText::join(top, ".Trash/" + uid);
        if (ensureTrash(own) && deviceOf(own) == device)
            return {own, top};
    }
    const std::string own = PathText::join(top, ".Trash-" + uid);
    if (ensureTrash(own) && deviceOf(own) == device)
        return {own, top};
    throw TarnbridgeError(kNoUsableTrash);
}

std::string encodePath(const std::string& path)
{
    static const char hex[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : path) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                           c == '/' || c == '-' || c == '_' || c == '.' || c == '~';
        if (plain) {
            out.push_back(char(c));
        } else {
            out.push_back('%');
            out.push_back(hex[c >> 4]);
            out.push_back(hex[c & 15]);
        }
    }
    return out;
}

std::string decodePath(const std::string& text)
{
    return decodeHexEscapes(text, "%");
}

std::string moveToTrash(const std::string& path)
{
    const TrashFolder folder = trashFor(path);
    const std::string& trash = folder.path;
    // A volume trash records the path relative to the volume's top folder.
    const std::string& top = folder.volumeTop;
    const std::string recorded = top.empty() ? path : top == "/" ? path.substr(1) : path.substr(top.size() + 1);
    // The name in the Trash need not be the original (the .trashinfo keeps that), but
    // NAME.trashinfo must fit the file system's 255-byte limit, with room for ".NNNN".
    std::string name(PathText::name(path));
    constexpr std::size_t kLongest = 255 - 10 - 5;
    if (name.size() > kLongest) {
        name.resize(kLongest);
        while (!name.empty() && (static_cast<unsigned char>(name.back()) & 0xC0) == 0x80)
            name.pop_back(); // do not leave half a character
        if (!name.empty() && static_cast<unsigned char>(name.back()) >= 0xC0)
            name.pop_back();
    }
    const std::string info = "[Trash Info]\nPath=" + encodePath(recorded) + "\nDeletionDate=" +
                             formattedTime(std::time(nullptr), "%Y-%m-%dT%H:%M:%S", ClockZone::local) + "\n";

    for (int n = 1;; ++n) {
        const std::string candidate = n == 1 ? name : name + "." + std::to_string(n);
        const std::string target = trash + "/files/" + candidate;
        const std::string infoPath = trash + "/info/" + candidate + ".trashinfo";
        struct stat st {};
        if (::lstat(target.c_str(), &st) == 0)
            continue;
        const int fd = ::open(infoPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (fd < 0) {
            if (errno == EEXIST)
                continue;
            throw systemError(errno);
        }
        try {
            platform::writeFully(fd, info.data(), info.size());
            if (::fsync(fd) != 0)
                throw systemError(errno);
        } catch (...) {
            ::close(fd);
            ::unlink(infoPath.c_str());
            throw;
        }
        ::close(fd);
        if (renameNoReplace(path, target) != 0) {
            const int error = errno;
            ::unlink(infoPath.c_str());
            if (error == EEXIST)
                continue; // another program took the name meanwhile
            throw systemError(error);
        }
        return target;
    }
}

void putBack(const std::string& trashPath, const std::string& originalPath)
{
    if (renameNoReplace(trashPath, originalPath) != 0)
        throw systemError(errno);
    const std::string files = parentFolder(trashPath);
    const std::string trash = parentFolder(files);
    const std::string name(PathText::name(trashPath));
    if (PathText::name(files) == "files") {
        ::unlink((trash + "/info/" + name + ".trashinfo").c_str());
        forgetDirectorySize(trash, name);
    }
}

} // namespace tarnbridge::Trash
