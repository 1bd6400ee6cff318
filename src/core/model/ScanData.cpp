#include "model/ScanData.h"

#include <sys/stat.h>

#include <algorithm>
#include <stdexcept>

#include "model/Errors.h"
#include "model/PathText.h"

namespace tarnbridge {

namespace {
// Folders with more children than this get a sorted index; smaller ones are scanned.
constexpr std::uint32_t kIndexedFanout = 12;
} // namespace

FileIdentity NodeRecord::identity() const
{
    FileIdentity id;
    id.device = device;
    id.inode = inode;
    id.size = statSize;
    id.modifiedSeconds = modifiedSeconds;
    id.modifiedNanos = modifiedNanos;
    id.changedSeconds = changedSeconds;
    id.changedNanos = changedNanos;
    id.mode = mode;
    id.linkCount = linkCount;
    return id;
}

namespace {
void setIdentity(NodeRecord& r, const FileIdentity& id)
{
    r.device = id.device;
    r.inode = id.inode;
    r.statSize = id.size;
    r.modifiedSeconds = id.modifiedSeconds;
    r.modifiedNanos = static_cast<std::int32_t>(id.modifiedNanos);
    r.changedSeconds = id.changedSeconds;
    r.changedNanos = static_cast<std::int32_t>(id.changedNanos);
    r.mode = id.mode;
    r.linkCount = id.linkCount;
    r.flags = 0;
    if (id.isDirectory())
        r.flags |= NodeRecord::directory;
    if (id.isSymbolicLink())
        r.flags |= NodeRecord::symbolicLink;
    if (id.isRegularFile())
        r.flags |= NodeRecord::regularFile;
}
} // namespace

NodeRecord NodeRecord::fromStat(const FileStat& stat, bool repeat)
{
    NodeRecord r;
    setIdentity(r, stat.identity);
    if (stat.cloudPlaceholder)
        r.flags |= cloudPlaceholder;
    r.createdSeconds = stat.createdSeconds;
    r.accessedSeconds = stat.accessedSeconds;
    if (!r.isDirectory()) {
        r.logicalSize = std::max<std::int64_t>(stat.identity.size, 0);
        r.allocatedSize = repeat ? 0 : std::max<std::int64_t>(stat.blocks, 0) * 512;
        if (stat.compressed)
            r.compressedSavings = std::max<std::int64_t>(0, r.logicalSize - r.allocatedSize);
        r.fileCount = 1;
    }
    return r;
}

NodeRecord NodeRecord::fromNode(const DiskNode& node)
{
    NodeRecord r;
    setIdentity(r, node.identity);
    // The node's own flags win over its mode: a value record may say what its mode does not.
    r.flags &= ~(directory | symbolicLink);
    if (node.isDirectory)
        r.flags |= directory;
    if (node.isSymbolicLink)
        r.flags |= symbolicLink;
    if (node.isCloudPlaceholder)
        r.flags |= cloudPlaceholder;
    r.logicalSize = node.logicalSize;
    r.allocatedSize = node.allocatedSize;
    r.compressedSavings = node.compressedSavings;
    r.fileCount = static_cast<std::uint32_t>(node.fileCount);
    r.folderCount = static_cast<std::uint32_t>(node.folderCount);
    r.createdSeconds = node.created;
    r.accessedSeconds = node.accessed;
    // `modified` is the identity's modification second by construction.
    r.modifiedSeconds = node.modified;
    return r;
}

NameBuffer::~NameBuffer()
{
    for (char* chunk : chunks_)
        freeLarge(chunk, kChunk);
}

std::uint32_t NameBuffer::append(std::string_view name)
{
    if (name.size() > 0xFFFF)
        throw TarnbridgeError("A file name is longer than 65,535 bytes.");
    const std::uint32_t within = used_ & (kChunk - 1);
    const bool full = (used_ >> kShift) == chunks_.size() || within + name.size() > kChunk;
    if (full) {
        if ((used_ >> kShift) < chunks_.size())
            used_ += kChunk - within; // the rest of this chunk stays unused
        if (used_ > 0xFFFFFFFFu - kChunk)
            throw TarnbridgeError("This scan holds more names than Tarnbridge can keep in memory.");
        chunks_.push_back(static_cast<char*>(allocateLarge(kChunk, !chunks_.empty())));
    }
    const std::uint32_t offset = used_;
    std::memcpy(chunks_[offset >> kShift] + (offset & (kChunk - 1)), name.data(), name.size());
    used_ += static_cast<std::uint32_t>(name.size());
    return offset;
}

void ScanData::appendPath(NodeId id, std::string& out) const
{
    NodeId chain[256];
    std::vector<NodeId> deep;
    std::size_t count = 0;
    for (NodeId at = id; at != rootId && at != kNoNode; at = records_[at].parent) {
        if (count < 256)
            chain[count++] = at;
        else
            deep.push_back(at);
    }
    out.append(rootPath);
    auto add = [&](NodeId at) {
        if (out.empty() || out.back() != '/')
            out.push_back('/');
        out.append(name(at));
    };
    for (auto it = deep.rbegin(); it != deep.rend(); ++it)
        add(*it);
    while (count > 0)
        add(chain[--count]);
}

std::string ScanData::path(NodeId id) const
{
    std::string out;
    appendPath(id, out);
    return out;
}

std::uint32_t ScanData::depth(NodeId id) const
{
    std::uint32_t d = 0;
    for (NodeId at = id; at != rootId && at != kNoNode; at = records_[at].parent)
        ++d;
    return d;
}

void ScanData::buildIndex() const
{
    byName_.assign(records_.size(), kNoNode);
    for (NodeId folder = 0; folder < records_.size(); ++folder) {
        const NodeRecord& r = records_[folder];
        if (r.childCount <= kIndexedFanout)
            continue;
        auto begin = byName_.begin() + r.firstChild;
        auto end = begin + r.childCount;
        for (std::uint32_t i = 0; i < r.childCount; ++i)
            begin[i] = r.firstChild + i;
        std::sort(begin, end, [this](NodeId a, NodeId b) { return name(a) < name(b); });
    }
}

namespace {

// Order of sibling keys as they stand in full paths: a child's own path ends with its name, and
// its descendants' paths continue with "/". Comparing "name" or "name/" keys between siblings
// is comparing the paths they begin, since the parent's path is common to all.
int compareKeys(std::string_view a, bool aBlock, std::string_view b, bool bBlock)
{
    const std::size_t common = std::min(a.size(), b.size());
    bool plain = true;
    for (std::size_t i = 0; i < common && plain; ++i)
        plain = static_cast<unsigned char>(a[i]) < 0xCC && static_cast<unsigned char>(b[i]) < 0xCC;
    for (std::size_t i = common; i < a.size() && plain; ++i)
        plain = static_cast<unsigned char>(a[i]) < 0xCC;
    for (std::size_t i = common; i < b.size() && plain; ++i)
        plain = static_cast<unsigned char>(b[i]) < 0xCC;
    if (!plain) {
        std::string ka(a), kb(b);
        if (aBlock)
            ka.push_back('/');
        if (bBlock)
            kb.push_back('/');
        return PathText::compare(ka, kb);
    }
    const int c = a.substr(0, common).compare(b.substr(0, common));
    if (c != 0)
        return c;
    // One name is a prefix of the other: the next character decides ("/" for a block, nothing
    // for the entry itself).
    const int nextA = a.size() > common ? static_cast<unsigned char>(a[common]) : (aBlock ? '/' : -1);
    const int nextB = b.size() > common ? static_cast<unsigned char>(b[common]) : (bBlock ? '/' : -1);
    if (nextA == nextB) {
        if (a.size() == b.size())
            return aBlock == bBlock ? 0 : (aBlock ? 1 : -1);
        // "ab" against the block "a/": decided by 'b' against '/', as above; equal only when
        // the remaining texts are; cannot happen between distinct siblings.
        return a.size() < b.size() ? -1 : 1;
    }
    return nextA < nextB ? -1 : 1;
}

} // namespace

void ScanData::buildPathRanks() const
{
    pathRanks_.assign(records_.size(), 0);
    if (records_.size() == 0)
        return;
    struct Item {
        NodeId id;
        bool block; // the descendants of `id`, rather than `id` itself
    };
    struct Level {
        std::vector<Item> items;
        std::size_t next = 0;
    };
    std::uint32_t rank = 0;
    pathRanks_[rootId] = rank++;
    std::vector<Level> stack;
    auto open = [&](NodeId folder) {
        Level level;
        const NodeRecord& r = records_[folder];
        level.items.reserve(r.childCount * 2);
        for (std::uint32_t i = 0; i < r.childCount; ++i) {
            const NodeId child = r.firstChild + i;
            level.items.push_back({child, false});
            if (records_[child].childCount)
                level.items.push_back({child, true});
        }
        std::sort(level.items.begin(), level.items.end(), [this](const Item& x, const Item& y) {
            return compareKeys(name(x.id), x.block, name(y.id), y.block) < 0;
        });
        stack.push_back(std::move(level));
    };
    open(rootId);
    while (!stack.empty()) {
        Level& level = stack.back();
        if (level.next == level.items.size()) {
            stack.pop_back();
            continue;
        }
        const Item item = level.items[level.next++];
        if (item.block)
            open(item.id);
        else
            pathRanks_[item.id] = rank++;
    }
}

NodeId ScanData::findChild(NodeId folder, std::string_view childName) const
{
    const NodeRecord& r = records_[folder];
    if (r.childCount > kIndexedFanout && sealed_) {
        std::call_once(indexOnce_, [this] { buildIndex(); });
        auto begin = byName_.begin() + r.firstChild;
        auto end = begin + r.childCount;
        auto it = std::lower_bound(begin, end, childName,
                                   [this](NodeId a, std::string_view n) { return name(a) < n; });
        return (it != end && name(*it) == childName) ? *it : kNoNode;
    }
    for (std::uint32_t i = 0; i < r.childCount; ++i)
        if (name(r.firstChild + i) == childName)
            return r.firstChild + i;
    return kNoNode;
}

NodeId ScanData::find(std::string_view path) const
{
    if (empty() || !PathText::contains(path, rootPath))
        return kNoNode;
    std::string_view rest = path.substr(rootPath.size());
    if (!rest.empty() && rest.front() == '/')
        rest.remove_prefix(1);
    else if (!rest.empty() && rootPath != "/")
        return kNoNode;
    NodeId at = rootId;
    while (!rest.empty()) {
        const auto slash = rest.find('/');
        const std::string_view part = rest.substr(0, slash);
        if (part.empty())
            return kNoNode;
        at = findChild(at, part);
        if (at == kNoNode)
            return kNoNode;
        if (slash == std::string_view::npos)
            break;
        rest.remove_prefix(slash + 1);
        if (rest.empty())
            return kNoNode; // a trailing slash is not a key
    }
    return at;
}

DiskNode ScanData::nodeWithoutChildren(NodeId id) const
{
    const NodeRecord& r = records_[id];
    if (r.parent == kNoNode) {
        DiskNode n = nodeWithoutChildren(id, {});
        n.path = rootPath;
        n.parent.reset();
        return n;
    }
    return nodeWithoutChildren(id, path(r.parent));
}

DiskNode ScanData::nodeWithoutChildren(NodeId id, std::string_view parentPath) const
{
    const NodeRecord& r = records_[id];
    DiskNode n;
    n.path = PathText::join(parentPath, name(id));
    n.parent = std::string(parentPath);
    n.isDirectory = r.isDirectory();
    n.isSymbolicLink = r.isSymbolicLink();
    n.isCloudPlaceholder = r.isCloudPlaceholder();
    n.logicalSize = r.logicalSize;
    n.allocatedSize = r.allocatedSize;
    n.ownLogicalSize = r.ownLogicalSize();
    n.ownAllocatedSize = r.ownAllocatedSize();
    n.compressedSavings = r.compressedSavings;
    n.fileCount = r.fileCount;
    n.folderCount = r.folderCount;
    n.created = r.createdSeconds;
    n.modified = r.modifiedSeconds;
    n.accessed = r.accessedSeconds;
    n.identity = r.identity();
    return n;
}

DiskNode ScanData::node(NodeId id) const
{
    DiskNode n = nodeWithoutChildren(id);
    const NodeRecord& r = records_[id];
    n.children.reserve(r.childCount);
    for (std::uint32_t i = 0; i < r.childCount; ++i)
        n.children.push_back(PathText::join(n.path, name(r.firstChild + i)));
    return n;
}

NodeId ScanData::addRoot(std::string root, NodeRecord record)
{
    if (!empty())
        throw std::logic_error("ScanData::addRoot on a scan that has nodes");
    rootPath = std::move(root);
    record.parent = kNoNode;
    record.firstChild = 0;
    record.childCount = 0;
    const std::string_view rootName = PathText::name(rootPath);
    record.nameOffset = names_.append(rootName);
    record.nameLength = static_cast<std::uint16_t>(rootName.size());
    records_.push_back(record);
    return rootId;
}

NodeId ScanData::append(NodeId parent, NodeRecord record, std::string_view childName)
{
    const NodeId id = static_cast<NodeId>(records_.size());
    if (id == kNoNode)
        throw TarnbridgeError("This scan holds more entries than Tarnbridge can keep in memory.");
    NodeRecord& p = records_[parent];
    if (p.childCount == 0)
        p.firstChild = id;
    else if (p.firstChild + p.childCount != id)
        throw std::logic_error("ScanData::append: a folder's children must be contiguous");
    ++p.childCount;
    record.parent = parent;
    record.firstChild = 0;
    record.childCount = 0;
    record.nameOffset = names_.append(childName);
    record.nameLength = static_cast<std::uint16_t>(childName.size());
    records_.push_back(record);
    return id;
}

std::size_t ScanData::memoryBytes() const
{
    return records_.memoryBytes() + names_.memoryBytes() + byName_.capacity() * sizeof(NodeId);
}

} // namespace tarnbridge
