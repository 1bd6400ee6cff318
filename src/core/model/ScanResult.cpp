#include "model/ScanResult.h"

#include <algorithm>
#include <unordered_map>

#include "model/Errors.h"
#include "model/PathText.h"
#include "model/ScanPaths.h"

namespace tarnbridge {

ScanResult::ScanResult() : data_(std::make_shared<const ScanData>()) {}

ScanResult::ScanResult(std::shared_ptr<const ScanData> data)
    : data_(data ? std::move(data) : std::make_shared<const ScanData>())
{
}

std::optional<DiskNode> ScanResult::root() const
{
    if (isEmpty())
        return std::nullopt;
    return data_->node(ScanData::rootId);
}

std::optional<DiskNode> ScanResult::node(std::string_view path) const
{
    const NodeId id = data_->find(path);
    if (id == kNoNode)
        return std::nullopt;
    return data_->node(id);
}

std::vector<NodeId> ScanResult::sortedChildren(NodeId folder, SizeMeasure measure) const
{
    const ScanData& d = *data_;
    const NodeRecord& r = d[folder];
    std::vector<NodeId> ids(r.childCount);
    for (std::uint32_t i = 0; i < r.childCount; ++i)
        ids[i] = r.firstChild + i;
    if (d.sealed() && d.pathRanksReady()) {
        // Path ranks make the tie an integer: one 128-bit key per child, the size inverted
        // (largest first), then the path rank, then the id to read back. A folder of 100,000
        // entries sorts in milliseconds instead of comparing names a million times.
        __extension__ using Key = unsigned __int128;
        std::vector<Key> keys(ids.size());
        for (std::size_t i = 0; i < ids.size(); ++i) {
            const auto bytes = std::uint64_t(std::max<std::int64_t>(d[ids[i]].bytes(measure), 0));
            keys[i] = (Key(~bytes) << 64) | (Key(d.pathRank(ids[i])) << 32) | ids[i];
        }
        std::sort(keys.begin(), keys.end());
        for (std::size_t i = 0; i < ids.size(); ++i)
            ids[i] = NodeId(keys[i]);
        return ids;
    }
    // Siblings share their parent's path, so comparing names is comparing paths.
    std::stable_sort(ids.begin(), ids.end(), [&](NodeId a, NodeId b) {
        const auto ba = d[a].bytes(measure), bb = d[b].bytes(measure);
        if (ba != bb)
            return ba > bb;
        return PathText::compare(d.name(a), d.name(b)) < 0;
    });
    return ids;
}

std::vector<DiskNode> ScanResult::children(std::string_view path, SizeMeasure measure) const
{
    const NodeId id = data_->find(path);
    if (id == kNoNode)
        return {};
    std::vector<DiskNode> out;
    for (NodeId child : sortedChildren(id, measure))
        out.push_back(data_->node(child));
    return out;
}

std::vector<DiskNode> ScanResult::descendants(std::string_view path) const
{
    const NodeId id = data_->find(path);
    if (id == kNoNode)
        return {};
    std::vector<DiskNode> out;
    forEachDescendant(id, [&](NodeId child) { out.push_back(data_->node(child)); });
    return out;
}

std::optional<DiskNode> ScanResult::directory(std::string_view path) const
{
    for (const std::string& candidate : ScanPaths::candidates(path)) {
        const NodeId id = data_->find(candidate);
        if (id != kNoNode && (*data_)[id].isDirectory() && !(*data_)[id].isSymbolicLink())
            return data_->node(id);
    }
    return std::nullopt;
}

bool ScanResult::contains(std::string_view path, std::string_view root)
{
    return PathText::contains(path, root);
}

ScanResult ScanResult::fromNodes(QUuid id, std::string rootPath, double scannedAt, double duration,
                                 std::vector<DiskNode> nodes, std::vector<ScanIssue> issues,
                                 std::int64_t skippedCount)
{
    std::unordered_map<std::string_view, std::uint32_t> index;
    index.reserve(nodes.size());
    for (std::uint32_t i = 0; i < nodes.size(); ++i)
        if (!index.emplace(nodes[i].path, i).second)
            throw TarnbridgeError("The scan lists \"" + nodes[i].path + "\" twice.");

    auto data = std::make_shared<ScanData>();
    data->id = id;
    data->scannedAt = scannedAt;
    data->duration = duration;
    data->issues = std::move(issues);
    data->skippedCount = skippedCount;

    const auto rootIt = index.find(rootPath);
    if (rootIt == index.end())
        throw TarnbridgeError("The scan has no node for its root \"" + rootPath + "\".");
    if (nodes[rootIt->second].parent)
        throw TarnbridgeError("The root \"" + rootPath + "\" of the scan has a parent.");
    for (const DiskNode& n : nodes)
        if (n.parent && !index.count(*n.parent))
            throw TarnbridgeError("The parent \"" + *n.parent + "\" of \"" + n.path +
                                  "\" is not a node of the scan.");

    // Depth first, each folder's children appended together, in the order the file gives.
    std::vector<std::uint8_t> placed(nodes.size(), 0);
    data->addRoot(rootPath, NodeRecord::fromNode(nodes[rootIt->second]));
    placed[rootIt->second] = 1;
    std::vector<std::pair<std::uint32_t, NodeId>> stack{{rootIt->second, ScanData::rootId}};
    while (!stack.empty()) {
        const auto [index0, folder] = stack.back();
        stack.pop_back();
        const DiskNode& parent = nodes[index0];
        const std::size_t firstPushed = stack.size();
        for (const std::string& childPath : parent.children) {
            const auto it = index.find(childPath);
            if (it == index.end())
                throw TarnbridgeError("The child \"" + childPath + "\" of \"" + parent.path +
                                      "\" is not a node of the scan.");
            const DiskNode& child = nodes[it->second];
            if (child.parent != parent.path ||
                PathText::join(parent.path, PathText::name(childPath)) != childPath)
                throw TarnbridgeError("The child \"" + childPath + "\" of \"" + parent.path +
                                      "\" does not name it as its parent.");
            if (placed[it->second])
                throw TarnbridgeError("\"" + childPath + "\" is listed as a child twice.");
            placed[it->second] = 1;
            const NodeId childId =
                data->append(folder, NodeRecord::fromNode(child), PathText::name(childPath));
            if (!child.children.empty())
                stack.emplace_back(it->second, childId);
        }
        std::reverse(stack.begin() + static_cast<std::ptrdiff_t>(firstPushed), stack.end());
    }
    for (std::uint32_t i = 0; i < nodes.size(); ++i)
        if (!placed[i])
            throw TarnbridgeError("\"" + nodes[i].path + "\" is not listed among the children of \"" +
                                  nodes[i].parent.value_or("") + "\".");
    data->seal();
    return ScanResult(std::move(data));
}

} // namespace tarnbridge
