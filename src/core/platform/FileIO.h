#pragma once

#include <cstddef>
#include <string>

// Small blocking file primitives shared by every part that reads or writes files itself.
namespace tarnbridge::platform {

// Reads until `size` bytes arrived or the file ended; retries on EINTR. Throws
// std::system_error.
std::size_t readFully(int fd, char* buffer, std::size_t size);

// Writes all of `data`; retries on EINTR and short writes. Throws std::system_error.
void writeFully(int fd, const char* data, std::size_t size);

// The whole of a file, read to its end rather than trusting st_size (/proc files report 0).
// Returns 0 or the errno; `out` is replaced.
int readWholeFile(const std::string& path, std::string& out);
int readWholeFileAt(int dirfd, const char* relative, std::string& out);

// The same, throwing the system's error.
std::string readWholeFile(const std::string& path);

// realpath(3); a path that cannot be resolved comes back unchanged.
std::string resolvedPath(const std::string& path);

} // namespace tarnbridge::platform
