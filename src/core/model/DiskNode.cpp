#include "model/DiskNode.h"

#include "model/PathText.h"

namespace tarnbridge {

DiskNode DiskNode::make(std::string path, std::optional<std::string> parent, const FileStat& stat,
                        std::optional<std::int64_t> allocatedOverride)
{
    DiskNode node;
    node.path = std::move(path);
    node.parent = std::move(parent);
    node.identity = stat.identity;
    node.isDirectory = stat.identity.isDirectory();
    node.isSymbolicLink = stat.identity.isSymbolicLink();
    node.isCloudPlaceholder = stat.cloudPlaceholder;
    node.created = stat.createdSeconds;
    node.modified = stat.identity.modifiedSeconds;
    node.accessed = stat.accessedSeconds;
    if (!node.isDirectory) {
        const std::int64_t logical = std::max<std::int64_t>(stat.identity.size, 0);
        const std::int64_t allocated =
            allocatedOverride ? *allocatedOverride : std::max<std::int64_t>(stat.blocks, 0) * 512;
        node.logicalSize = node.ownLogicalSize = logical;
        node.allocatedSize = node.ownAllocatedSize = allocated;
        node.compressedSavings = stat.compressed ? std::max<std::int64_t>(0, logical - allocated) : 0;
        node.fileCount = 1;
    }
    return node;
}

std::string_view DiskNode::name() const { return PathText::name(path); }
std::string_view DiskNode::pathExtension() const { return PathText::pathExtension(path); }

} // namespace tarnbridge
