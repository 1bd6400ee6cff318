#pragma once

#include <functional>
#include <string>
#include <vector>

#include "cleanup/CleanupEntry.h"

namespace tarnbridge {

struct BackupItem {
    std::string originalPath;
    std::string relativePath; // "Files/0001/Name" inside the backup folder
    std::int64_t bytes = 0;
    bool operator==(const BackupItem&) const = default;
};

struct BackupReceipt {
    std::string id; // uppercase UUID text; also ends the folder's name
    std::string directory;
    double createdAt = 0; // seconds since the Unix epoch
    std::vector<BackupItem> items;

    void write(json::Writer& w) const;
    static BackupReceipt read(const json::Value& value);
    bool operator==(const BackupReceipt&) const = default;
};

// A copy of the staged items, proven byte for byte, that only gets its final name once it is
// complete: a folder named "Tarnbridge Backup …" is always whole, and every other ending leaves
// nothing behind in the chosen folder. Originals are only read.
namespace CleanupBackup {

using Progress = std::function<void(const std::string&)>;

BackupReceipt create(const std::vector<CleanupEntry>& entries, const std::string& parent,
                     const CancellationFlag& cancellation, const Progress& progress = {});

// Proves that `copy` holds what `source` holds: the same tree, the same link texts, the same
// bytes. Throws TarnbridgeError with the mismatch.
void verify(const std::string& source, const std::string& copy, const CancellationFlag& cancellation);
void compareFile(const std::string& a, const std::string& b, const CancellationFlag& cancellation);

} // namespace CleanupBackup

inline constexpr const char* kNoFilesForBackup = "No files selected for backup.";
inline constexpr const char* kChooseBackupFolder = "Choose a folder for the backup.";
inline constexpr const char* kBackupInsideItems = "Choose a backup folder outside the items being moved to Trash.";
inline constexpr const char* kBackupNotVerified = "The backup could not be verified. Nothing was moved to Trash.";
inline constexpr const char* kLinkMismatch = "A link in the backup does not match the original.";
inline constexpr const char* kOnlyRegularFiles = "Only regular files can be verified for backup.";

} // namespace tarnbridge
