#include "platform/FileIO.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "model/Errors.h"

namespace tarnbridge::platform {

std::size_t readFully(int fd, char* buffer, std::size_t size)
{
    std::size_t got = 0;
    while (got < size) {
        const ssize_t n = ::read(fd, buffer + got, size - got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            throw systemError(errno);
        if (n == 0)
            break;
        got += std::size_t(n);
    }
    return got;
}

void writeFully(int fd, const char* data, std::size_t size)
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            throw systemError(errno);
        }
        data += n;
        size -= std::size_t(n);
    }
}

namespace {

int readAll(int fd, std::string& out)
{
    out.clear();
    std::size_t used = 0;
    for (;;) {
        if (out.size() - used < 1024)
            out.resize(std::max<std::size_t>(4096, out.size() * 2));
        const ssize_t n = ::read(fd, out.data() + used, out.size() - used);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            const int error = errno;
            out.clear();
            return error;
        }
        if (n == 0)
            break;
        used += std::size_t(n);
    }
    out.resize(used);
    return 0;
}

} // namespace

int readWholeFileAt(int dirfd, const char* relative, std::string& out)
{
    const int fd = ::openat(dirfd, relative, O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) {
        out.clear();
        return errno ? errno : EIO;
    }
    const int error = readAll(fd, out);
    ::close(fd);
    return error;
}

int readWholeFile(const std::string& path, std::string& out)
{
    return readWholeFileAt(AT_FDCWD, path.c_str(), out);
}

std::string readWholeFile(const std::string& path)
{
    std::string out;
    if (const int error = readWholeFile(path, out))
        throw systemError(error);
    return out;
}

std::string resolvedPath(const std::string& path)
{
    char* out = ::realpath(path.c_str(), nullptr);
    if (!out)
        return path;
    std::string result(out);
    std::free(out);
    return result;
}

} // namespace tarnbridge::platform
