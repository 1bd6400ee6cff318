#include "duplicates/DuplicateFinder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <openssl/evp.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <memory>
#include <tuple>

#include "model/Errors.h"
#include "model/PathText.h"
#include "platform/FileFacts.h"
#include "platform/FileIO.h"
#include "model/LargeMemory.h"

namespace tarnbridge {

std::int64_t DuplicateGroup::reclaimable() const {
    std::int64_t sum = 0;
    for (std::size_t i = 1; i < files.size(); ++i)
        sum += files[i].allocatedSize;
    return sum;
}

DuplicateFinder::ReadBuffers::~ReadBuffers() {
    freeLarge(block_, 2 * kReadBytes);
}

char* DuplicateFinder::ReadBuffers::first() {
    if (!block_)
        block_ = static_cast<char*>(allocateLarge(2 * kReadBytes));
    return block_;
}

char* DuplicateFinder::ReadBuffers::second() {
    return first() + kReadBytes;
}

DuplicateFinder::FileHandle::~FileHandle() {
    if (fd_ >= 0)
        ::close(fd_);
}

namespace {

using Phase = DuplicateProgress::Phase;
using Clock = std::chrono::steady_clock;

std::string fileName(const DiskNode& node) {
    return std::string(PathText::name(node.path));
}

class Sha256 {
public:
    Sha256()
        : context_(EVP_MD_CTX_new()) {
        if (!context_ || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1)
            throw systemError(ENOMEM);
    }
    void update(const char* data, std::size_t size) {
        if (size && EVP_DigestUpdate(context_.get(), data, size) != 1)
            throw systemError(EIO);
    }
    std::string hex() {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        if (EVP_DigestFinal_ex(context_.get(), digest, &length) != 1)
            throw systemError(EIO);
        static constexpr char digits[] = "0123456789abcdef";
        std::string out;
        out.reserve(length * 2);
        for (unsigned int i = 0; i < length; ++i) {
            out += digits[digest[i] >> 4];
            out += digits[digest[i] & 0xf];
        }
        return out;
    }

private:
    struct Free {
        void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    };
    std::unique_ptr<EVP_MD_CTX, Free> context_;
};

// Drops a record when the last one sent was of the same phase less than the interval ago, so
// thousands of small files cost a handful of records a second.
class Throttle {
public:
    explicit Throttle(const DuplicateFinder::DetailProgress& sink)
        : sink_(sink) {}

    bool due(Phase phase) const {
        if (!sink_)
            return false;
        if (!lastSent_ || phase != lastPhase_)
            return true;
        return std::chrono::duration<double>(Clock::now() - *lastSent_).count() >=
               DuplicateFinder::kProgressInterval;
    }
    void send(const DuplicateProgress& record) {
        if (!sink_)
            return;
        lastPhase_ = record.phase;
        lastSent_ = Clock::now();
        sink_(record);
    }
    void offer(const DuplicateProgress& record) {
        if (due(record.phase))
            send(record);
    }

private:
    const DuplicateFinder::DetailProgress& sink_;
    Phase lastPhase_ = Phase::grouping;
    std::optional<Clock::time_point> lastSent_;
};

struct Candidate {
    std::int64_t size;
    std::int32_t device;
    std::uint64_t inode;
    NodeId id;
};

} // namespace

DuplicateFinder::FileHandle
DuplicateFinder::openVerified(const DiskNode& node,
                              const std::function<void()>& betweenCheckAndOpen) {
    const FileStat stat = platform::statPath(node.path);
    // Linux has no content that lives elsewhere; the flag only comes from scans of other systems.
    if (stat.identity != node.identity || stat.cloudPlaceholder)
        throw TarnbridgeError(kFileChangedOrCloud + fileName(node));
    if (betweenCheckAndOpen)
        betweenCheckAndOpen();
    // O_NOFOLLOW: a link put in the file's place is refused, not read through. O_NONBLOCK: a
    // pipe put there does not hang us; fstat then says it is no regular file.
    const int fd = ::open(node.path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        const int error = errno;
        // The status read a moment ago saw a regular file here; now it is a link.
        if (error == ELOOP)
            throw TarnbridgeError(kFileChangedWhileOpening + fileName(node));
        throw systemError(error);
    }
    FileHandle handle(fd);
    struct stat opened {};
    if (::fstat(fd, &opened) != 0 || !S_ISREG(opened.st_mode) ||
        opened.st_ino != stat.identity.inode ||
        platform::encodeDevice(major(opened.st_dev), minor(opened.st_dev)) != stat.identity.device)
        throw TarnbridgeError(kFileChangedWhileOpening + fileName(node));
    return handle;
}

std::string DuplicateFinder::digest(const DiskNode& node, const CancellationFlag& cancellation,
                                    Extent extent, const BytesProgress& progress,
                                    ReadBuffers& buffers) {
    const FileHandle file = openVerified(node);
    Sha256 hash;
    if (extent == Extent::prefixOnly) {
        // The head only: most files of one size already differ in their first 64 KiB.
        cancellation.check();
        char* buffer = buffers.first();
        hash.update(buffer, platform::readFully(file.fd(), buffer, kSampleBytes));
    } else {
        char* buffer = buffers.first();
        std::int64_t total = 0;
        for (;;) {
            cancellation.check();
            const std::size_t n = platform::readFully(file.fd(), buffer, kReadBytes);
            if (n == 0)
                break;
            hash.update(buffer, n);
            total += std::int64_t(n);
            if (progress)
                progress(total);
        }
    }
    if (platform::statPath(node.path).identity != node.identity)
        throw TarnbridgeError(kFileChangedDuringComparison + fileName(node));
    return hash.hex();
}

bool DuplicateFinder::equal(const DiskNode& first, const DiskNode& second,
                            const CancellationFlag& cancellation, const BytesProgress& progress,
                            ReadBuffers& buffers) {
    const FileHandle a = openVerified(first);
    const FileHandle b = openVerified(second);
    if (progress)
        progress(0);
    cancellation.check();
    char* left = buffers.first();
    char* right = buffers.second();
    std::int64_t total = 0;
    for (;;) {
        const std::size_t n = platform::readFully(a.fd(), left, kReadBytes);
        const std::size_t m = platform::readFully(b.fd(), right, kReadBytes);
        // A digest is never trusted alone: equal SHA-256 with different bytes stays apart.
        if (n != m || std::memcmp(left, right, n) != 0)
            return false;
        total += std::int64_t(n);
        if (progress)
            progress(total);
        if (n == 0)
            break;
        cancellation.check();
    }
    if (platform::statPath(first.path).identity != first.identity)
        return false;
    return platform::statPath(second.path).identity == second.identity;
}

DuplicateReport DuplicateFinder::find(const ScanResult& scan, std::int64_t minimumSize,
                                      const std::optional<std::string>& scope,
                                      const CancellationFlag& cancellation,
                                      const DetailProgress& detailProgress,
                                      const Progress& progress) const {
    cancellation.check();
    const ScanData& d = scan.data();
    NodeId scopeId = kNoNode;
    if (scope) {
        const auto folder = scan.directory(*scope);
        if (!folder)
            throw TarnbridgeError(kFolderNotInScan);
        scopeId = d.find(folder->path);
    }

    Throttle throttle(detailProgress);
    throttle.send({});

    // Regular files with content, of the size asked for, below the scope. A scope is a folder,
    // so its descendants are exactly the records whose path starts with it and a slash.
    std::vector<Candidate> candidates;
    auto consider = [&](NodeId id) {
        const NodeRecord& r = d[id];
        if ((r.mode & S_IFMT) != S_IFREG || r.isCloudPlaceholder())
            return;
        if (minimumSize > 0 ? r.logicalSize < minimumSize : r.logicalSize <= 0)
            return;
        candidates.push_back({r.logicalSize, r.device, r.inode, id});
    };
    if (scopeId != kNoNode)
        scan.forEachDescendant(scopeId, consider);
    else
        for (NodeId id = 0; id < d.size(); ++id)
            consider(id);

    // Hard links share their content by definition: of one inode only the path that sorts
    // first stays, and the others vanish uncounted. Paths are built only where links meet.
    std::sort(candidates.begin(), candidates.end(), [](const Candidate& a, const Candidate& b) {
        return std::tie(a.device, a.inode, a.id) < std::tie(b.device, b.inode, b.id);
    });
    std::vector<Candidate> unique;
    unique.reserve(candidates.size());
    for (std::size_t i = 0; i < candidates.size();) {
        std::size_t end = i + 1;
        while (end < candidates.size() && candidates[end].device == candidates[i].device &&
               candidates[end].inode == candidates[i].inode)
            ++end;
        std::size_t chosen = i;
        if (end - i > 1) {
            std::string best = d.path(candidates[i].id);
            for (std::size_t j = i + 1; j < end; ++j)
                if (std::string path = d.path(candidates[j].id); PathText::less(path, best)) {
                    best = std::move(path);
                    chosen = j;
                }
        }
        unique.push_back(candidates[chosen]);
        i = end;
    }
    candidates = {};

    // Size buckets of at least two files: only those can hold a duplicate.
    std::sort(unique.begin(), unique.end(), [](const Candidate& a, const Candidate& b) {
        return std::tie(a.size, a.id) < std::tie(b.size, b.id);
    });
    std::vector<std::pair<std::size_t, std::size_t>> buckets;
    std::int64_t total = 0;
    for (std::size_t i = 0; i < unique.size();) {
        std::size_t end = i + 1;
        while (end < unique.size() && unique[end].size == unique[i].size)
            ++end;
        if (end - i > 1) {
            buckets.emplace_back(i, end);
            total += std::int64_t(end - i);
        }
        i = end;
    }

    cancellation.check();
    DuplicateReport report;
    ReadBuffers buffers;
    auto skip = [&](const std::exception& error) {
        ++report.skipped;
        if (report.issues.size() < kIssueLimit)
            report.issues.push_back(describeError(error));
    };
    auto record = [&](Phase phase, const DiskNode* node, std::int64_t bytesRead) {
        return DuplicateProgress{phase,     report.checked,
                                 total,     node ? fileName(*node) : std::string(),
                                 bytesRead, node ? node->logicalSize : 0};
    };

    // Each size bucket is sampled, hashed and verified to the end before the next one starts:
    // memory stays at one bucket's worth of records.
    for (const auto& [begin, end] : buckets) {
        cancellation.check();
        std::vector<DiskNode> files;
        files.reserve(end - begin);
        for (std::size_t i = begin; i < end; ++i)
            files.push_back(d.nodeWithoutChildren(unique[i].id));
        std::sort(files.begin(), files.end(), [](const DiskNode& a, const DiskNode& b) {
            return PathText::less(a.path, b.path);
        });

        std::map<std::string, std::vector<const DiskNode*>> bySample;
        for (const DiskNode& file : files) {
            if (throttle.due(Phase::sampling))
                throttle.send(record(Phase::sampling, &file, 0));
            try {
                bySample[digest(file, cancellation, Extent::prefixOnly, {}, buffers)].push_back(
                    &file);
            } catch (const CancellationError&) {
                throw;
            } catch (const std::exception& error) {
                skip(error);
            }
            ++report.checked;
            if (progress)
                progress(report.checked, total);
        }

        for (const auto& [sample, sampled] : bySample) {
            if (sampled.size() < 2)
                continue;
            std::map<std::string, std::vector<const DiskNode*>> byContent;
            for (const DiskNode* file : sampled) {
                if (throttle.due(Phase::hashing))
                    throttle.send(record(Phase::hashing, file, 0));
                try {
                    const std::string hash = digest(
                        *file, cancellation, Extent::wholeContent,
                        [&](std::int64_t bytes) {
                            if (throttle.due(Phase::hashing))
                                throttle.send(record(Phase::hashing, file, bytes));
                        },
                        buffers);
                    byContent[hash].push_back(file);
                } catch (const CancellationError&) {
                    throw;
                } catch (const std::exception& error) {
                    skip(error);
                }
            }

            for (auto& [hash, same] : byContent) {
                if (same.size() < 2)
                    continue;
                std::sort(same.begin(), same.end(), [](const DiskNode* a, const DiskNode* b) {
                    return PathText::less(a->path, b->path);
                });
                const DiskNode& reference = *same.front();
                DuplicateGroup group{hash, {reference}};
                for (std::size_t i = 1; i < same.size(); ++i) {
                    const DiskNode& file = *same[i];
                    try {
                        const bool identical = equal(
                            reference, file, cancellation,
                            [&](std::int64_t bytes) {
                                if (throttle.due(Phase::verifying))
                                    throttle.send(record(Phase::verifying, &file, bytes));
                            },
                            buffers);
                        if (identical)
                            group.files.push_back(file);
                    } catch (const CancellationError&) {
                        throw;
                    } catch (const std::exception& error) {
                        skip(error);
                    }
                }
                if (group.files.size() >= 2)
                    report.groups.push_back(std::move(group));
            }
        }
    }

    throttle.send(record(Phase::complete, nullptr, 0));

    // Equal amounts keep the order they were found in.
    std::vector<std::pair<std::int64_t, DuplicateGroup>> ranked;
    ranked.reserve(report.groups.size());
    for (DuplicateGroup& group : report.groups)
        ranked.emplace_back(group.reclaimable(), std::move(group));
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    report.groups.clear();
    for (auto& [bytes, group] : ranked)
        report.groups.push_back(std::move(group));
    return report;
}

} // namespace tarnbridge
