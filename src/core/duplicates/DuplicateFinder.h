#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "model/CancellationFlag.h"
#include "model/DiskNode.h"
#include "model/ScanResult.h"

namespace tarnbridge {

// Files proven identical: same size, same SHA-256, equal byte for byte, unchanged since the scan.
struct DuplicateGroup {
    std::string id;              // lowercase hexadecimal SHA-256 of the content
    std::vector<DiskNode> files; // at least two, by path; the first is the reference copy

    // Allocated bytes of every file but the first: what removing the extra copies gives back.
    std::int64_t reclaimable() const;
};

struct DuplicateReport {
    std::vector<DuplicateGroup> groups; // largest reclaimable first
    std::int64_t checked = 0;           // files that went through sampling, failed ones included
    std::int64_t skipped = 0;           // failures of single files, not limited
    std::vector<std::string> issues;    // their messages, the first kIssueLimit only
};

struct DuplicateProgress {
    enum class Phase : std::uint8_t { grouping, sampling, hashing, verifying, complete };

    Phase phase = Phase::grouping;
    std::int64_t checked = 0;
    std::int64_t total = 0;
    std::string fileName;       // last component of the file being read; empty where none
    std::int64_t bytesRead = 0; // of the current file in this stage; 0 while sampling
    std::int64_t fileSize = 0;

    bool operator==(const DuplicateProgress&) const = default;
};

// Finds identical regular files among the records of one finished scan. Reads files, never
// changes them. Has no state of its own: everything lives in one call of `find`.
struct DuplicateFinder {
    using DetailProgress = std::function<void(const DuplicateProgress&)>;
    using Progress = std::function<void(std::int64_t checked, std::int64_t total)>;
    using BytesProgress = std::function<void(std::int64_t bytes)>;

    static constexpr std::size_t kSampleBytes = 65'536;
    static constexpr std::size_t kReadBytes = 1'048'576;
    static constexpr std::size_t kIssueLimit = 100;
    static constexpr double kProgressInterval = 0.15; // seconds between records of one phase

    // Files of at least `minimumSize` bytes (any non-empty file when it is 0 or less), below
    // `scope` when given. Both callbacks run on the calling thread; `progress` once per file
    // sampled, `detailProgress` throttled. Throws CancellationError (no partial report) or
    // TarnbridgeError when `scope` is no folder of the scan. A file that cannot be read is
    // skipped and described in the report's issues.
    DuplicateReport find(const ScanResult& scan, std::int64_t minimumSize,
                         const std::optional<std::string>& scope,
                         const CancellationFlag& cancellation,
                         const DetailProgress& detailProgress = {},
                         const Progress& progress = {}) const;

private:
    // Owns one open descriptor; closing errors are of no interest to a reader.
    class FileHandle {
    public:
        explicit FileHandle(int fd) noexcept
            : fd_(fd) {}
        FileHandle(FileHandle&& other) noexcept
            : fd_(std::exchange(other.fd_, -1)) {}
        FileHandle& operator=(FileHandle&&) = delete;
        ~FileHandle();
        int fd() const noexcept { return fd_; }

    private:
        int fd_;
    };
    // The two read buffers of one run, made on first use and reused for every file: fresh
    // ones per file would cost a page fault for every 4 KiB read. Both share one 2 MiB huge
    // page: one fault instead of 512, and page-aligned targets copy faster from the page cache.
    class ReadBuffers {
    public:
        ReadBuffers() = default;
        ReadBuffers(const ReadBuffers&) = delete;
        ReadBuffers& operator=(const ReadBuffers&) = delete;
        ~ReadBuffers();
        char* first();
        char* second();

    private:
        char* block_ = nullptr;
    };
    enum class Extent : std::uint8_t { prefixOnly, wholeContent };

    // SHA-256 of the file's head (one read of kSampleBytes) or of all of it, in hexadecimal.
    // Throws when the file is not the one of the record, before or after reading.
    static std::string digest(const DiskNode& node, const CancellationFlag& cancellation,
                              Extent extent, const BytesProgress& progress, ReadBuffers& buffers);
    // Whether both files hold the same bytes and are still the files of their records.
    static bool equal(const DiskNode& first, const DiskNode& second,
                      const CancellationFlag& cancellation, const BytesProgress& progress,
                      ReadBuffers& buffers);
    // An open descriptor of exactly the file the record describes. `betweenCheckAndOpen` lets
    // a test act in the gap between the status check and the open.
    static FileHandle openVerified(const DiskNode& node,
                                   const std::function<void()>& betweenCheckAndOpen = {});

    friend struct DuplicateFinderTestAccess;
};

// Texts of the skip messages; the file's name follows each.
inline constexpr const char* kFileChangedOrCloud = "File changed or is stored in the cloud: ";
inline constexpr const char* kFileChangedWhileOpening = "File changed while opening: ";
inline constexpr const char* kFileChangedDuringComparison = "File changed during comparison: ";
inline constexpr const char* kFolderNotInScan = "This folder is not in the current scan.";

} // namespace tarnbridge
