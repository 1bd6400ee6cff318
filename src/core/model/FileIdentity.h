#pragma once

#include <cstdint>
#include <string>

namespace tarnbridge {

// The facts of one stat call, used to recognise a file again later. Equal only when all
// nine fields are equal.
struct FileIdentity {
    std::int32_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t size = 0;
    std::int64_t modifiedSeconds = 0;
    std::int64_t modifiedNanos = 0;
    std::int64_t changedSeconds = 0;
    std::int64_t changedNanos = 0;
    std::uint16_t mode = 0;
    std::uint16_t linkCount = 0;

    // "device:inode", the hard-link key.
    std::string key() const;

    bool isDirectory() const;
    bool isSymbolicLink() const;
    bool isRegularFile() const;

    bool operator==(const FileIdentity&) const = default;

    // Everything taken from one stat call; platform::statPath reads it from disk.
    struct Stat;
};

// Everything the product takes from one stat call of an entry.
struct FileIdentity::Stat {
    FileIdentity identity;
    std::int64_t blocks = 0; // 512-byte units
    std::int64_t accessedSeconds = 0;
    std::int64_t createdSeconds = 0;
    bool compressed = false;
    bool cloudPlaceholder = false; // no such state on Linux; kept for scans from elsewhere
    bool systemProtected = false;  // immutable or append-only: only the administrator can undo it
};

using FileStat = FileIdentity::Stat;

} // namespace tarnbridge
