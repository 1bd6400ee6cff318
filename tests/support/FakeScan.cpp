#include "support/FakeScan.h"

#include <sys/stat.h>

#include <algorithm>
#include <map>

#include "model/PathText.h"

namespace tarnbridge::test {

ScanResult fakeScan(const std::string& root, const std::vector<FakeEntry>& entries)
{
    std::vector<DiskNode> nodes;
    std::map<std::string, std::size_t> index;
    std::uint64_t inode = 100;
    auto add = [&](const std::string& path, bool folder, const FakeEntry* entry) -> std::size_t {
        if (auto it = index.find(path); it != index.end())
            return it->second;
        DiskNode n;
        n.path = path;
        n.isDirectory = folder;
        n.identity.device = 1;
        n.identity.inode = inode++;
        n.identity.mode = folder ? (S_IFDIR | 0755) : (S_IFREG | 0644);
        n.identity.linkCount = 1;
        if (entry) {
            n.modified = n.identity.modifiedSeconds = entry->modified;
            n.created = n.accessed = entry->modified;
        }
        if (!folder && entry) {
            n.logicalSize = n.ownLogicalSize = n.identity.size = entry->size;
            n.allocatedSize = n.ownAllocatedSize = entry->allocated < 0 ? entry->size : entry->allocated;
            n.fileCount = 1;
        }
        index[path] = nodes.size();
        nodes.push_back(std::move(n));
        return nodes.size() - 1;
    };
    add(root, true, nullptr);
    for (const FakeEntry& e : entries) {
        const bool folder = !e.path.empty() && e.path.back() == '/';
        std::string rel = folder ? e.path.substr(0, e.path.size() - 1) : e.path;
        std::string parent = root;
        std::size_t start = 0;
        for (;;) {
            const auto slash = rel.find('/', start);
            const std::string path = PathText::join(parent, rel.substr(start, slash - start));
            const bool last = slash == std::string::npos;
            const bool isFolder = !last || folder;
            const bool isNew = !index.count(path);
            const std::size_t id = add(path, isFolder, last ? &e : nullptr);
            if (isNew) {
                nodes[id].parent = parent;
                nodes[index[parent]].children.push_back(path);
            }
            if (last)
                break;
            parent = path;
            start = slash + 1;
        }
    }
    // Roll up, deepest paths first (a path is longer than its parent's).
    std::vector<std::size_t> order(nodes.size());
    for (std::size_t i = 0; i < order.size(); ++i)
        order[i] = i;
    std::sort(order.begin(), order.end(),
              [&](std::size_t a, std::size_t b) { return nodes[a].path.size() > nodes[b].path.size(); });
    for (std::size_t i : order) {
        const DiskNode& n = nodes[i];
        if (!n.parent)
            continue;
        DiskNode& p = nodes[index[*n.parent]];
        p.logicalSize += n.logicalSize;
        p.allocatedSize += n.allocatedSize;
        p.fileCount += n.fileCount;
        p.folderCount += n.folderCount + (n.isDirectory ? 1 : 0);
    }
    return ScanResult::fromNodes(QUuid::createUuid(), root, 1'700'000'000.0, 0.5, std::move(nodes), {}, 0);
}

} // namespace tarnbridge::test
