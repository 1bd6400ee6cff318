#pragma once

// A synthetic scan held in memory, the same on every run, for the benchmarks that need a
// large scan without a tree on disk.

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "BenchRandom.h"
#include "model/ScanResult.h"
#include "query/ScanQuery.h"

namespace tarnbridge::bench {

const char* const kWords[] = {"data", "cache", "photo", "report", "lib", "module", "index", "assets",
                              "docs", "music", "notes", "draft", "image", "src", "test"};
// Names the quick wins look for, given to about one folder in a hundred.
const char* const kClutter[] = {"node_modules", "build", "Downloads", ".cache", "target", "__pycache__"};
const char* const kExtensions[] = {".txt", ".jpg", ".png", ".so", ".h", ".cpp", ".py", ".json", ".mp4",
                                   ".pdf", ".gz", ".log", "", ".mov", ".html"};

// Breadth-first: each folder's children are appended together, as the arena wants. With
// `bigFolder`, the root's first child is a folder "big" of that many files.
inline ScanResult syntheticScan(std::size_t entries, std::size_t bigFolder = 0)
{
    BenchRandom rng{42};
    auto data = std::make_shared<ScanData>();
    NodeRecord root;
    root.flags = NodeRecord::directory;
    root.mode = 040755;
    data->addRoot("/bench", root);
    std::vector<NodeId> folders{ScanData::rootId};
    NodeId big = kNoNode;
    if (bigFolder > 0) {
        NodeRecord r;
        r.flags = NodeRecord::directory;
        r.mode = 040755;
        big = data->append(ScanData::rootId, r, "big");
        folders.push_back(big);
    }
    std::size_t next = 0;
    const std::int64_t now = currentTime();
    while (data->size() < entries) {
        if (next == folders.size())
            next = 0; // every folder has had its turn: give the oldest more children elsewhere
        const NodeId folder = folders[next++];
        if (folder != ScanData::rootId && (*data)[folder].childCount > 0)
            continue;
        if (folder == ScanData::rootId && big != kNoNode && (*data)[folder].childCount > 1)
            continue; // the root's children must stay one range
        const std::size_t count = std::min<std::size_t>(entries - data->size(),
                                                        folder == big ? bigFolder : 2 + rng.next() % 30);
        for (std::size_t i = 0; i < count; ++i) {
            NodeRecord r;
            // With the big folder taking a branch of files, every batch holds a folder so that
            // the tree keeps growing until it has all its entries.
            const bool isFolder = folder != big && (rng.unit() < 0.15 || (big != kNoNode && i == 0));
            std::string name = kWords[rng.next() % 15];
            if (isFolder && rng.next() % 100 == 0)
                name = kClutter[rng.next() % 6];
            name.push_back('-');
            name.append(std::to_string(i));
            if (isFolder) {
                r.flags = NodeRecord::directory;
                r.mode = 040755;
            } else {
                name += rng.next() % 1000 == 0 ? ".dmg" : kExtensions[rng.next() % 15];
                r.flags = NodeRecord::regularFile;
                r.mode = 0100644;
                r.logicalSize = r.statSize = std::int64_t(std::exp(8.3 + 2.4 * (rng.unit() * 2 - 1) * 1.5));
                r.allocatedSize = (r.logicalSize + 4095) / 4096 * 4096;
                r.fileCount = 1;
            }
            r.modifiedSeconds = now - std::int64_t(rng.next() % (4 * 365 * 86400));
            r.accessedSeconds = r.modifiedSeconds;
            const NodeId id = data->append(folder, r, name);
            if (isFolder)
                folders.push_back(id);
        }
    }
    for (std::size_t i = data->size(); i-- > 1;) {
        const NodeRecord& r = (*data)[NodeId(i)];
        data->at(r.parent).addTotals(r);
    }
    data->seal();
    return ScanResult(std::move(data));
}

} // namespace tarnbridge::bench
