#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/ScanData.h"

namespace tarnbridge {

// One finished scan: an immutable, cheaply copied handle that crosses threads freely.
class ScanResult {
public:
    // An empty scan: no nodes, no root.
    ScanResult();
    explicit ScanResult(std::shared_ptr<const ScanData> data);

    const ScanData& data() const { return *data_; }
    const ScanData* operator->() const { return data_.get(); }
    bool isEmpty() const { return data_->empty(); }

    QUuid id() const { return data_->id; }
    const std::string& rootPath() const { return data_->rootPath; }
    double scannedAt() const { return data_->scannedAt; }
    double duration() const { return data_->duration; }
    const std::vector<ScanIssue>& issues() const { return data_->issues; }
    std::int64_t skippedCount() const { return data_->skippedCount; }
    std::size_t nodeCount() const { return data_->size(); }

    std::optional<DiskNode> root() const;
    std::optional<DiskNode> node(std::string_view path) const;
    NodeId find(std::string_view path) const { return data_->find(path); }

    // The direct children, greater size first, ties by path; unknown paths give nothing.
    std::vector<DiskNode> children(std::string_view path, SizeMeasure measure) const;
    std::vector<NodeId> sortedChildren(NodeId folder, SizeMeasure measure) const;
    // Everything below `path`, itself left out, in no defined order.
    std::vector<DiskNode> descendants(std::string_view path) const;
    // Calls `visit` for every id below `folder` (itself left out), parents before children.
    template <class Visit>
    void forEachDescendant(NodeId folder, Visit&& visit) const;

    static bool contains(std::string_view path, std::string_view root);

    // The browsable folder a path names, under any of its spellings: a folder that is no
    // symbolic link, or nothing.
    std::optional<DiskNode> directory(std::string_view path) const;

    // A scan from value records in any order, as a file or a test gives them. Each folder's
    // `children` gives the order of its children. Throws TarnbridgeError naming what is
    // broken: no root, a child or parent that is not a node, a child that names another parent.
    static ScanResult fromNodes(QUuid id, std::string rootPath, double scannedAt, double duration,
                                std::vector<DiskNode> nodes, std::vector<ScanIssue> issues,
                                std::int64_t skippedCount);

private:
    std::shared_ptr<const ScanData> data_;
};

template <class Visit>
void ScanResult::forEachDescendant(NodeId folder, Visit&& visit) const
{
    const ScanData& d = *data_;
    // Explicit stack of child ranges: a chain of folders thousands deep costs no recursion.
    std::vector<std::pair<NodeId, NodeId>> ranges;
    const NodeRecord& start = d[folder];
    if (start.childCount)
        ranges.emplace_back(start.firstChild, start.firstChild + start.childCount);
    while (!ranges.empty()) {
        auto& [next, end] = ranges.back();
        if (next == end) {
            ranges.pop_back();
            continue;
        }
        const NodeId id = next++;
        visit(id);
        const NodeRecord& r = d[id];
        if (r.childCount)
            ranges.emplace_back(r.firstChild, r.firstChild + r.childCount);
    }
}

} // namespace tarnbridge
