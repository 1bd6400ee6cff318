#pragma once

#include <string>

#include "model/FileIdentity.h"

namespace tarnbridge::platform {

// statx of `name` relative to the open folder `dirfd`, links not followed, no automount.
// Returns 0 or the errno. This is the one system call per entry of the scan.
int statAt(int dirfd, const char* name, FileStat& out) noexcept;

// The same for a whole path; throws std::system_error with the errno.
FileStat statPath(const std::string& path);

// The kernel's old 32-bit encoding of a device number, as stat's st_dev had it.
std::int32_t encodeDevice(unsigned major, unsigned minor) noexcept;

} // namespace tarnbridge::platform
