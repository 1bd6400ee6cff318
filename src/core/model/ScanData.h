#pragma once

#include <QUuid>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "model/DiskNode.h"
#include "model/LargeMemory.h"

namespace tarnbridge {

using NodeId = std::uint32_t;
inline constexpr NodeId kNoNode = 0xFFFFFFFFu;

// One entry of a scan in the arena. Everything but the full path: that is rebuilt from the
// parent chain when asked for. Kept at 120 bytes; full-disk scans hold millions of these.
struct NodeRecord {
    enum Flag : std::uint8_t { directory = 1, symbolicLink = 2, cloudPlaceholder = 4, regularFile = 8 };

    std::int64_t logicalSize = 0;
    std::int64_t allocatedSize = 0;
    std::int64_t compressedSavings = 0;
    std::int64_t statSize = 0; // identity's size: a folder's own st_size too
    std::int64_t modifiedSeconds = 0;
    std::int64_t changedSeconds = 0;
    std::int64_t createdSeconds = 0;
    std::int64_t accessedSeconds = 0;
    std::uint64_t inode = 0;
    std::int32_t modifiedNanos = 0;
    std::int32_t changedNanos = 0;
    NodeId parent = kNoNode;
    NodeId firstChild = 0;
    std::uint32_t childCount = 0;
    std::uint32_t fileCount = 0;
    std::uint32_t folderCount = 0;
    std::int32_t device = 0;
    std::uint32_t nameOffset = 0;
    std::uint16_t nameLength = 0;
    std::uint16_t mode = 0;
    std::uint16_t linkCount = 0;
    std::uint8_t flags = 0;

    bool isDirectory() const { return flags & directory; }
    bool isSymbolicLink() const { return flags & symbolicLink; }
    bool isRegularFile() const { return flags & regularFile; }
    bool isCloudPlaceholder() const { return flags & cloudPlaceholder; }
    std::int64_t bytes(SizeMeasure m) const
    {
        return m == SizeMeasure::logical ? logicalSize : allocatedSize;
    }
    std::int64_t ownLogicalSize() const { return isDirectory() ? 0 : logicalSize; }
    std::int64_t ownAllocatedSize() const { return isDirectory() ? 0 : allocatedSize; }
    FileIdentity identity() const;

    // A record from a stat of the entry: own sizes for a non-folder, zeros for a folder.
    // `repeat` marks a hard link met before: it adds no allocated bytes.
    static NodeRecord fromStat(const FileStat& stat, bool repeat = false);
    // The record's facts from a DiskNode value (tree links and name are not touched).
    static NodeRecord fromNode(const DiskNode& node);

    // Adds what `child` contributes to a folder's totals.
    void addTotals(const NodeRecord& child)
    {
        logicalSize += child.logicalSize;
        allocatedSize += child.allocatedSize;
        compressedSavings += child.compressedSavings;
        fileCount += child.fileCount;
        folderCount += child.folderCount + (child.isDirectory() ? 1 : 0);
    }
};
static_assert(sizeof(NodeRecord) == 120, "NodeRecord grew: it is paid once per entry");

// Storage that grows in fixed chunks of 4 MiB: no reallocation copies and no doubling slack
// while a scan of unknown size is built, and records never move. The first chunk uses small
// pages, so a small scan stays small; later ones use huge pages (see LargeMemory.h).
template <class T>
class ChunkedArray {
    static_assert(std::is_trivially_destructible_v<T> && std::is_trivially_copyable_v<T>);

public:
    static constexpr std::size_t chunkBytes = std::size_t(4) << 20;
    static constexpr std::size_t perChunk = chunkBytes / sizeof(T);

    ChunkedArray() = default;
    ChunkedArray(const ChunkedArray&) = delete;
    ChunkedArray& operator=(const ChunkedArray&) = delete;
    ~ChunkedArray()
    {
        for (T* chunk : chunks_)
            freeLarge(chunk, chunkBytes);
    }

    std::size_t size() const { return size_; }
    T& operator[](std::size_t i) { return chunks_[i / perChunk][i % perChunk]; }
    const T& operator[](std::size_t i) const { return chunks_[i / perChunk][i % perChunk]; }
    T& push_back(const T& value)
    {
        if (size_ == chunks_.size() * perChunk)
            chunks_.push_back(static_cast<T*>(allocateLarge(chunkBytes, !chunks_.empty())));
        T* slot = std::construct_at(&(*this)[size_], value);
        ++size_;
        return *slot;
    }
    std::size_t memoryBytes() const { return size_ * sizeof(T); }
    // The elements from `i` to the end of its chunk (or of the array), which lie back to back.
    std::span<const T> runFrom(std::size_t i) const
    {
        const std::size_t offset = i % perChunk;
        return {chunks_[i / perChunk] + offset, std::min(perChunk - offset, size_ - i)};
    }

private:
    std::vector<T*> chunks_;
    std::size_t size_ = 0;
};

// All names of a scan, back to back in 2 MiB chunks; a name never spans two chunks.
class NameBuffer {
public:
    NameBuffer() = default;
    NameBuffer(const NameBuffer&) = delete;
    NameBuffer& operator=(const NameBuffer&) = delete;
    ~NameBuffer();
    std::uint32_t append(std::string_view name);
    std::string_view view(std::uint32_t offset, std::uint16_t length) const
    {
        return {chunks_[offset >> kShift] + (offset & (kChunk - 1)), length};
    }
    std::size_t memoryBytes() const { return used_; }

private:
    static constexpr unsigned kShift = 21;
    static constexpr std::uint32_t kChunk = 1u << kShift;
    std::vector<char*> chunks_;
    std::uint32_t used_ = 0; // offset of the next free byte
};

// A whole scan: its facts and the arena of records in walk order, node 0 the root. Each
// folder's children are one contiguous id range. Built by one thread, then shared read-only.
class ScanData {
public:
    ScanData() = default;
    ScanData(const ScanData&) = delete;
    ScanData& operator=(const ScanData&) = delete;

    QUuid id;
    std::string rootPath;
    double scannedAt = 0; // seconds since the Unix epoch
    double duration = 0;
    std::vector<ScanIssue> issues;
    std::int64_t skippedCount = 0;

    static constexpr NodeId rootId = 0;
    std::size_t size() const { return records_.size(); }
    bool empty() const { return records_.size() == 0; }
    const NodeRecord& operator[](NodeId id) const { return records_[id]; }
    // Records `first`, `first` + 1, … up to the end of their block of memory (at least one when
    // `first` is a record): passes in id order read them without indexing each one.
    std::span<const NodeRecord> recordsFrom(NodeId first) const { return records_.runFrom(first); }
    NodeRecord& at(NodeId id) { return records_[id]; }

    std::string_view name(NodeId id) const
    {
        const NodeRecord& r = records_[id];
        return names_.view(r.nameOffset, r.nameLength);
    }
    std::string path(NodeId id) const;
    void appendPath(NodeId id, std::string& out) const;
    // Depth below the root (root 0).
    std::uint32_t depth(NodeId id) const;

    // The node whose path is exactly `path` (no trailing slash, no "." parts), or kNoNode.
    NodeId find(std::string_view path) const;
    NodeId findChild(NodeId folder, std::string_view name) const;

    // The value record of a node, children's paths included.
    DiskNode node(NodeId id) const;
    // The same without the children list (what previews and rows need).
    DiskNode nodeWithoutChildren(NodeId id) const;
    // The same for a record below the root whose parent's path the caller has at hand: rows of
    // one folder then make their paths without walking up the tree each time.
    DiskNode nodeWithoutChildren(NodeId id, std::string_view parentPath) const;

    // Building, in walk order: the root first, then each folder's children together.
    NodeId addRoot(std::string rootPath, NodeRecord record);
    // Appends a child of `parent`. A folder's children must be appended without another
    // folder's in between; std::logic_error otherwise.
    NodeId append(NodeId parent, NodeRecord record, std::string_view name);
    // Done building: the lookup index may be made from here on.
    void seal() { sealed_ = true; }
    bool sealed() const { return sealed_; }

    // The position of each record in the plain text order of all paths of the scan (root 0),
    // made on first use of a sealed scan: ties of every sort and ranking then cost one integer
    // compare instead of two built paths.
    std::uint32_t pathRank(NodeId id) const
    {
        std::call_once(rankOnce_, [this] {
            buildPathRanks();
            ranksReady_.store(true, std::memory_order_release);
        });
        return pathRanks_[id];
    }
    // Whether the ranks are made already: a small sort should not pay for a whole scan's.
    bool pathRanksReady() const { return ranksReady_.load(std::memory_order_acquire); }

    std::size_t memoryBytes() const;

private:
    void buildIndex() const;
    void buildPathRanks() const;

    ChunkedArray<NodeRecord> records_;
    NameBuffer names_;
    bool sealed_ = false;
    // For folders of many children: their ids sorted by name, stored at the same positions as
    // the children's own range. Made on the first lookup of a sealed scan.
    mutable std::once_flag indexOnce_;
    mutable std::vector<NodeId> byName_;
    mutable std::once_flag rankOnce_;
    mutable std::vector<std::uint32_t> pathRanks_;
    mutable std::atomic<bool> ranksReady_{false};
};

} // namespace tarnbridge
