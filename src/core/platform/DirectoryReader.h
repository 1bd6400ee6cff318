#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>

namespace tarnbridge::platform {

// Reads whole folders with getdents64 into one reused buffer: the fewest system calls a
// listing can take, and no allocation per entry.
class DirectoryReader {
public:
    DirectoryReader() : buffer_(std::make_unique<char[]>(kBufferSize)) {}

    // Calls visit(const char* name) for every entry of the open folder `fd` but "." and "..",
    // in the kernel's order. Returns 0, or the errno of a failed read (entries read before it
    // have been visited).
    template <class Visit>
    int forEach(int fd, Visit&& visit)
    {
        for (;;) {
            const ssize_t n = ::getdents64(fd, buffer_.get(), kBufferSize);
            if (n == 0)
                return 0;
            if (n < 0) {
                if (errno == EINTR)
                    continue;
                return errno ? errno : EIO;
            }
            for (ssize_t offset = 0; offset < n;) {
                const auto* entry = reinterpret_cast<const dirent64*>(buffer_.get() + offset);
                offset += entry->d_reclen;
                const char* name = entry->d_name;
                if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0')))
                    continue;
                visit(name);
            }
        }
    }

private:
    static constexpr std::size_t kBufferSize = 256 * 1024;
    std::unique_ptr<char[]> buffer_;
};

// Opens a folder below `dirfd` for listing, never through a link. Returns the fd or -errno.
inline int openFolderAt(int dirfd, const char* name) noexcept
{
    const int fd = ::openat(dirfd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    return fd >= 0 ? fd : -(errno ? errno : EIO);
}

} // namespace tarnbridge::platform
