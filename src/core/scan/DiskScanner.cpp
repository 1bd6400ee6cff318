#include "scan/DiskScanner.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "model/Errors.h"
#include "model/PathText.h"
#include "model/ScanPaths.h"
#include "platform/DirectoryReader.h"
#include "platform/FileFacts.h"
#include "scan/LiveChartSnapshot.h"

namespace tarnbridge::DiskScanner {

namespace {

using Clock = std::chrono::steady_clock;

// (device, inode) of every regular file met: open addressing, no allocation per insert.
class IdentitySet {
public:
    // True when the key was new.
    bool insert(std::int32_t device, std::uint64_t inode)
    {
        if ((count_ + 1) * 4 > slots_.size() * 3)
            grow();
        return insertInto(slots_, device, inode);
    }

private:
    struct Slot {
        std::uint64_t inode;
        std::int32_t device;
        std::uint32_t used;
    };
    static std::size_t hash(std::int32_t device, std::uint64_t inode)
    {
        std::uint64_t h = inode * 0x9E3779B97F4A7C15ull ^ std::uint64_t(std::uint32_t(device));
        h ^= h >> 29;
        h *= 0xBF58476D1CE4E5B9ull;
        return std::size_t(h ^ (h >> 32));
    }
    bool insertInto(std::vector<Slot>& slots, std::int32_t device, std::uint64_t inode)
    {
        const std::size_t mask = slots.size() - 1;
        for (std::size_t i = hash(device, inode) & mask;; i = (i + 1) & mask) {
            Slot& s = slots[i];
            if (!s.used) {
                s = {inode, device, 1};
                ++count_;
                return true;
            }
            if (s.inode == inode && s.device == device)
                return false;
        }
    }
    void grow()
    {
        std::vector<Slot> bigger(slots_.empty() ? 1024 : slots_.size() * 2);
        count_ = 0;
        for (const Slot& s : slots_)
            if (s.used)
                insertInto(bigger, s.device, s.inode);
        slots_.swap(bigger);
    }
    std::vector<Slot> slots_;
    std::size_t count_ = 0;
};

// One folder on the path from the root to the folder being walked.
struct Frame {
    NodeId id;
    int fd;              // -1 once closed to stay within the descriptor budget
    std::uint32_t next;  // index of the next child to consider for descending
    std::size_t pathLength; // length of this folder's path in Walk::path_
};

class Walk {
public:
    Walk(const CancellationFlag& cancellation, ScanNavigation* navigation,
         const ScanProgressCallback& progress)
        : cancellation_(cancellation), navigation_(navigation), progress_(progress)
    {
    }

    ScanResult run(const std::string& requestedRoot);

private:
    void prepareRoot(const std::string& requestedRoot);
    void walkTree();
    void readFolder(Frame& frame);
    void accept(NodeId parent, const char* name, const FileStat& stat, std::size_t depth);
    bool ensureOpen(std::size_t frameIndex);
    void descend(Frame& parent, NodeId child);
    void addIssue(std::string path, std::string message);
    std::string entryPath(const char* name) const;
    void emitProgress(std::string path);
    double secondsSinceStart() const
    {
        return std::chrono::duration<double>(Clock::now() - started_).count();
    }

    static constexpr std::size_t kMaxOpenFolders = 64;
    static constexpr double kProgressInterval = 0.35;

    const CancellationFlag& cancellation_;
    ScanNavigation* navigation_;
    const ScanProgressCallback& progress_;

    std::shared_ptr<ScanData> data_ = std::make_shared<ScanData>();
    std::vector<Frame> frames_;
    std::string path_; // path of the folder being read
    platform::DirectoryReader reader_;
    IdentitySet seenFiles_;
    std::vector<NodeRecord> topLevel_; // running totals of the root's children, ids 1..n
    std::int32_t rootDevice_ = 0;
    std::int64_t files_ = 0, folders_ = 0, bytes_ = 0;
    Clock::time_point started_ = Clock::now();
    double startedWall_ = 0;
    Clock::time_point lastProgress_ = Clock::time_point::min();
};

ScanResult Walk::run(const std::string& requestedRoot)
{
    startedWall_ = std::chrono::duration<double>(
                       std::chrono::system_clock::now().time_since_epoch())
                       .count();
    prepareRoot(requestedRoot);
    try {
        walkTree();
    } catch (...) {
        for (const Frame& f : frames_)
            if (f.fd >= 0)
                ::close(f.fd);
        throw;
    }
    cancellation_.check();

    ScanData& d = *data_;
    if (!navigation_) {
        // Parents come before their contents in the arena, so one backward pass sees every
        // record complete before adding it to its parent.
        for (std::size_t i = d.size(); i-- > 1;) {
            const NodeRecord& r = d[NodeId(i)];
            d.at(r.parent).addTotals(r);
        }
    }
    emitProgress(d.rootPath);
    d.id = QUuid::createUuid();
    d.scannedAt = startedWall_;
    d.duration = secondsSinceStart();
    d.seal();
    return ScanResult(std::move(data_));
}

void Walk::prepareRoot(const std::string& requestedRoot)
{
    char* resolved = ::realpath(requestedRoot.c_str(), nullptr);
    if (!resolved)
        throw systemError(errno ? errno : ENOENT);
    std::string rootPath(resolved);
    std::free(resolved);

    const FileStat stat = platform::statPath(rootPath);
    if (!stat.identity.isDirectory())
        throw TarnbridgeError(kNotAFolder);
    if (::faccessat(AT_FDCWD, rootPath.c_str(), R_OK | X_OK, AT_EACCESS) != 0)
        throw TarnbridgeError(kUnreadableRoot);

    const int fd = ::open(rootPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        throw TarnbridgeError(kCannotEnumerate);
    NodeRecord root = NodeRecord::fromStat(stat);
    data_->addRoot(rootPath, root);
    rootDevice_ = stat.identity.device;
    path_ = rootPath;
    frames_.push_back({ScanData::rootId, fd, 0, path_.size()});
}

std::string Walk::entryPath(const char* name) const { return PathText::join(path_, name); }

void Walk::addIssue(std::string path, std::string message)
{
    ++data_->skippedCount;
    if (data_->issues.size() < kIssueLimit)
        data_->issues.push_back({std::move(path), std::move(message)});
}

void Walk::walkTree()
{
    readFolder(frames_.back());
    while (!frames_.empty()) {
        Frame& top = frames_.back();
        const NodeRecord& folder = (*data_)[top.id];
        bool descended = false;
        while (top.next < folder.childCount) {
            const NodeId child = folder.firstChild + top.next++;
            if ((*data_)[child].isDirectory()) {
                descend(top, child);
                descended = true;
                break;
            }
        }
        if (descended)
            continue;
        if (frames_.back().fd >= 0)
            ::close(frames_.back().fd);
        frames_.pop_back();
        if (!frames_.empty())
            path_.resize(frames_.back().pathLength);
    }
}

// Reopens a folder whose descriptor was given up, from the nearest open ancestor.
bool Walk::ensureOpen(std::size_t index)
{
    if (frames_[index].fd >= 0)
        return true;
    std::size_t base = index;
    while (frames_[base].fd < 0)
        --base; // the root's descriptor is never given up
    int fd = frames_[base].fd;
    for (std::size_t i = base + 1; i <= index; ++i) {
        const std::string name(data_->name(frames_[i].id));
        const int next = platform::openFolderAt(fd, name.c_str());
        if (fd != frames_[base].fd)
            ::close(fd);
        if (next < 0)
            return false;
        fd = next;
    }
    frames_[index].fd = fd;
    return true;
}

void Walk::descend(Frame& parent, NodeId child)
{
    const std::size_t parentIndex = std::size_t(&parent - frames_.data());
    const std::string_view name = data_->name(child);
    const std::string childPath = PathText::join(path_, name);
    if (!ensureOpen(parentIndex)) {
        addIssue(childPath, std::strerror(ENOENT));
        return;
    }
    const std::string nameText(name);
    const int fd = platform::openFolderAt(frames_[parentIndex].fd, nameText.c_str());
    if (fd < 0) {
        addIssue(childPath, std::strerror(-fd));
        return;
    }
    // Keep at most kMaxOpenFolders descriptors along the chain: a tree thousands of folders
    // deep must not run out of them.
    if (frames_.size() >= kMaxOpenFolders) {
        Frame& old = frames_[frames_.size() - kMaxOpenFolders + 1];
        if (old.fd >= 0 && &old != &frames_.front()) {
            ::close(old.fd);
            old.fd = -1;
        }
    }
    path_ = childPath;
    frames_.push_back({child, fd, 0, path_.size()});
    readFolder(frames_.back());
}

void Walk::readFolder(Frame& frame)
{
    const NodeId folder = frame.id;
    const std::size_t depth = frames_.size();
    FileStat stat;
    const int error = reader_.forEach(frame.fd, [&](const char* name) {
        if (cancellation_.isCancelled())
            throw CancellationError();
        if (const int failed = platform::statAt(frame.fd, name, stat)) {
            addIssue(entryPath(name), std::strerror(failed));
            return;
        }
        accept(folder, name, stat, depth);
    });
    if (error)
        addIssue(path_, std::strerror(error));
}

void Walk::accept(NodeId parent, const char* name, const FileStat& stat, std::size_t depth)
{
    const bool isFolder = stat.identity.isDirectory();
    if (isFolder && stat.identity.device != rootDevice_) {
        addIssue(entryPath(name), kNestedVolume);
        return;
    }
    bool repeat = false;
    if (stat.identity.isRegularFile())
        repeat = !seenFiles_.insert(stat.identity.device, stat.identity.inode);

    const NodeRecord record = NodeRecord::fromStat(stat, repeat);
    data_->append(parent, record, name);
    ScanData& d = *data_;

    if (isFolder)
        ++folders_;
    else
        ++files_;
    bytes_ += record.allocatedSize;

    if (navigation_) {
        for (NodeId at = parent; at != kNoNode; at = d[at].parent)
            d.at(at).addTotals(record);
    }

    // The root's children are ids 1..n (the root is read first), which makes the top-level
    // bucket of anything deeper the child frame just below the root.
    if (depth == 1)
        topLevel_.push_back(record);
    else
        topLevel_[frames_[1].id - 1].addTotals(record);

    if (((files_ + folders_) & 0xFF) == 0) {
        const auto now = Clock::now();
        if (lastProgress_ == Clock::time_point::min() ||
            std::chrono::duration<double>(now - lastProgress_).count() > kProgressInterval) {
            lastProgress_ = now;
            emitProgress(entryPath(name));
        }
    }
}

void Walk::emitProgress(std::string path)
{
    if (!progress_)
        return;
    const ScanData& d = *data_;
    ScanProgress p;
    p.files = files_;
    p.folders = folders_;
    p.bytes = bytes_;
    p.path = std::move(path);
    p.duration = secondsSinceStart();
    p.preview.reserve(topLevel_.size());
    for (std::size_t i = 0; i < topLevel_.size(); ++i) {
        DiskNode n = d.nodeWithoutChildren(NodeId(i + 1));
        const NodeRecord& t = topLevel_[i];
        n.logicalSize = t.logicalSize;
        n.allocatedSize = t.allocatedSize;
        n.compressedSavings = t.compressedSavings;
        n.fileCount = t.fileCount;
        n.folderCount = t.folderCount;
        p.preview.push_back(std::move(n));
    }
    if (navigation_)
        p.browsing = folderPreview(d, d.rootPath, navigation_->requestedPath());
    progress_(p);
}

} // namespace

ScanResult scan(const std::string& root, const CancellationFlag& cancellation,
                ScanNavigation* navigation, const ScanProgressCallback& progress)
{
    Walk walk(cancellation, navigation, progress);
    return walk.run(root);
}

ScanFolderPreview folderPreview(const ScanData& nodes, const std::string& root,
                                const std::optional<std::string>& requested)
{
    NodeId folder = kNoNode;
    if (requested) {
        for (const std::string& candidate : ScanPaths::candidates(*requested)) {
            const NodeId id = nodes.find(candidate);
            if (id != kNoNode && nodes[id].isDirectory() && !nodes[id].isSymbolicLink()) {
                folder = id;
                break;
            }
        }
    }
    if (folder == kNoNode)
        folder = nodes.find(root);

    ScanFolderPreview preview;
    preview.rootPath = root;
    for (NodeId at = folder; at != kNoNode; at = nodes[at].parent)
        preview.ancestors.push_back(nodes.nodeWithoutChildren(at));
    std::reverse(preview.ancestors.begin(), preview.ancestors.end());

    auto chart = LiveChartSnapshot::make(nodes, folder, 2048, 8, 48);
    preview.folder = preview.ancestors.back();
    const NodeRecord& r = nodes[folder];
    preview.children.reserve(r.childCount);
    for (std::uint32_t i = 0; i < r.childCount; ++i)
        preview.children.push_back(nodes.nodeWithoutChildren(r.firstChild + i));
    preview.chart = std::move(chart.scan);
    preview.chartIsLimited = chart.limited;
    return preview;
}

} // namespace tarnbridge::DiskScanner
