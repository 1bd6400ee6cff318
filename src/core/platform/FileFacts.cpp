#include "platform/FileFacts.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "model/Errors.h"

namespace tarnbridge::platform {

std::int32_t encodeDevice(unsigned major, unsigned minor) noexcept
{
    const std::uint32_t value = (minor & 0xffu) | (major << 8) | ((minor & ~0xffu) << 12);
    return static_cast<std::int32_t>(value);
}

namespace {

void fill(const struct statx& st, FileStat& out) noexcept
{
    FileIdentity& id = out.identity;
    id.device = encodeDevice(st.stx_dev_major, st.stx_dev_minor);
    id.inode = st.stx_ino;
    id.size = static_cast<std::int64_t>(st.stx_size);
    id.modifiedSeconds = st.stx_mtime.tv_sec;
    id.modifiedNanos = st.stx_mtime.tv_nsec;
    id.changedSeconds = st.stx_ctime.tv_sec;
    id.changedNanos = st.stx_ctime.tv_nsec;
    id.mode = st.stx_mode;
    id.linkCount = static_cast<std::uint16_t>(std::min<std::uint32_t>(st.stx_nlink, 65535));
    out.blocks = static_cast<std::int64_t>(st.stx_blocks);
    out.accessedSeconds = st.stx_atime.tv_sec;
    if (st.stx_mask & STATX_BTIME)
        out.createdSeconds = st.stx_btime.tv_sec;
    else // no birth time on this file system: the earliest moment we know of
        out.createdSeconds = std::min(st.stx_mtime.tv_sec, st.stx_ctime.tv_sec);
    out.compressed = (st.stx_attributes & STATX_ATTR_COMPRESSED) != 0;
    out.systemProtected = (st.stx_attributes & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0;
    out.cloudPlaceholder = false;
}

constexpr unsigned kMask = STATX_BASIC_STATS | STATX_BTIME;
constexpr int kFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;

} // namespace

int statAt(int dirfd, const char* name, FileStat& out) noexcept
{
    struct statx st;
    if (::statx(dirfd, name, kFlags, kMask, &st) != 0)
        return errno ? errno : EIO;
    fill(st, out);
    return 0;
}

FileStat statPath(const std::string& path)
{
    FileStat out;
    if (int error = statAt(AT_FDCWD, path.c_str(), out))
        throw systemError(error);
    return out;
}

} // namespace tarnbridge::platform
